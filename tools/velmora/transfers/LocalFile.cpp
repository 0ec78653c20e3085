#include "transfers/LocalFile.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>

namespace Velmora::Cli {

namespace {

constexpr qint64 BufferSize = 256 * 1024;

} // namespace

LocalFile LocalFile::at(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isFile())
        return {};
    return {info.size(), info.lastModified().toMSecsSinceEpoch(), {}};
}

LocalFile LocalFile::of(const QJsonObject &object)
{
    return {qint64(object[QLatin1String("size")].toDouble(-1)), qint64(object[QLatin1String("time")].toDouble()),
            object[QLatin1String("hash")].toString().toLatin1()};
}

QJsonObject LocalFile::toJson() const
{
    return {
        {QStringLiteral("size"), size}, {QStringLiteral("time"), time}, {QStringLiteral("hash"), QLatin1String(hash)}};
}

bool LocalFile::isAt(const QString &path) const
{
    const LocalFile now = at(path);
    if (looksLike(now))
        return true;
    return now.size == size && size >= 0 && !hash.isEmpty() && hashOf(path, false) == hash;
}

QByteArray hashOf(const QString &path, const std::atomic<bool> &stop)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    QByteArray buffer(int(BufferSize), Qt::Uninitialized);
    for (;;) {
        const qint64 count = file.read(buffer.data(), BufferSize);
        if (count < 0 || stop)
            return {};
        if (count == 0)
            return hash.result().toHex();
        hash.addData(QByteArray::fromRawData(buffer.constData(), int(count)));
    }
}

} // namespace Velmora::Cli
