#include "transfer/Join.h"

#include "base/DiskFile.h"

#include <QFile>

namespace Velmora {

namespace {

constexpr int bufferSize = 1024 * 1024;

bool append(QFile &whole, const QString &piecePath, QByteArray &buffer, const std::atomic<bool> &stop)
{
    QFile piece(piecePath);
    if (!piece.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;
    for (;;) {
        if (stop)
            return false;
        const qint64 count = piece.read(buffer.data(), buffer.size());
        if (count == 0)
            break;
        if (count < 0 || whole.write(buffer.constData(), count) != count)
            return false;
    }
    piece.close();
    piece.remove();
    return true;
}

bool assemble(const std::vector<QString> &pieces, const QString &growing, const std::atomic<bool> &stop)
{
    if (pieces.empty())
        return false;
    QFile::remove(growing);
    if (!replaceFile(pieces.front(), growing, stop).isEmpty()) // saves copying the first, or only, piece
        return false;
    QFile whole(growing);
    if (!whole.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        return false;
    QByteArray buffer(pieces.size() > 1 ? bufferSize : 0, Qt::Uninitialized);
    for (std::size_t next = 1; next < pieces.size(); ++next) {
        if (!append(whole, pieces[next], buffer, stop))
            return false;
    }
    return !stop;
}

} // namespace

JoinResult joinPieces(const std::vector<QString> &pieces, const QString &growing, const QString &target,
                      const std::atomic<bool> &stop)
{
    JoinResult result;
    result.joined = assemble(pieces, growing, stop);
    if (!result.joined) {
        QFile::remove(growing);
        return result;
    }
    result.renameProblem = replaceFile(growing, target, stop);
    return result;
}

} // namespace Velmora
