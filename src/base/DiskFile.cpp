#include "base/DiskFile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cerrno>
#include <system_error>

namespace Velmora {

namespace fs = std::filesystem;

#ifdef _WIN32

namespace {

constexpr int pauses[] = {50, 100, 200, 300, 350}; // milliseconds between two tries

} // namespace

fs::path nativePath(const QString &path)
{
    QString native = QDir::toNativeSeparators(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
    if (native.startsWith(QLatin1String("\\\\?\\"))) // long already
        return native.toStdWString();
    // A path without the prefix is limited to 260 characters.
    if (native.startsWith(QLatin1String("\\\\")))
        return (QLatin1String("\\\\?\\UNC") + native.mid(1)).toStdWString();
    return (QLatin1String("\\\\?\\") + native).toStdWString();
}

DiskFile::DiskFile(const QString &path)
    : m_file(path)
{
}

DiskFile::DiskFile(Utf8Path path)
    : m_file(QString::fromUtf8(path.text))
{
}

DiskFile::Kind DiskFile::kind() const
{
    const QFileInfo info(m_file.fileName());
    return info.isDir() ? Kind::Folder : info.isFile() ? Kind::Regular : info.exists() ? Kind::Other : Kind::Missing;
}

qint64 DiskFile::size() const { return m_file.size(); }

qint64 DiskFile::modified() const { return QFileInfo(m_file.fileName()).lastModified().toMSecsSinceEpoch(); }

bool DiskFile::isSameAs(const DiskFile &other) const
{
    const auto absolute = [](const QFile &file) { return pathKey(QFileInfo(file.fileName()).absoluteFilePath()); };
    std::error_code error; // the call below resolves hard links, but takes no long paths
    return absolute(m_file) == absolute(other.m_file) ||
           fs::equivalent(m_file.fileName().toStdWString(), other.m_file.fileName().toStdWString(), error);
}

bool DiskFile::openToRead() { return m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered); }

bool DiskFile::openToWrite() { return m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered); }

bool DiskFile::isOpen() const { return m_file.isOpen(); }

qint64 DiskFile::read(unsigned char *to, std::size_t room)
{
    return m_file.read(reinterpret_cast<char *>(to), static_cast<qint64>(room));
}

bool DiskFile::write(const unsigned char *data, std::size_t size)
{
    return m_file.write(reinterpret_cast<const char *>(data), static_cast<qint64>(size)) == static_cast<qint64>(size);
}

bool DiskFile::close()
{
    m_file.close();
    return m_file.error() == QFileDevice::NoError;
}

void DiskFile::remove() { m_file.remove(); }

QString DiskFile::problem() const { return m_file.errorString(); }

bool persistently(const std::atomic<bool> &stop, const std::function<bool()> &attempt)
{
    for (const int pause : pauses) {
        if (attempt())
            return true;
        if (stop)
            return false;
        QThread::msleep(static_cast<unsigned long>(pause));
    }
    return attempt();
}

QString pathKey(const QString &path) { return path.toCaseFolded(); }

#else

fs::path nativePath(const QString &path) { return QFile::encodeName(path).toStdString(); }

DiskFile::DiskFile(const QString &path)
    : m_path(nativePath(path))
{
}

DiskFile::DiskFile(Utf8Path path)
    : m_path(path.text)
{
}

DiskFile::Kind DiskFile::kind() const
{
    std::error_code error;
    switch (fs::status(m_path, error).type()) {
    case fs::file_type::directory:
        return Kind::Folder;
    case fs::file_type::regular:
        return Kind::Regular;
    case fs::file_type::none:
    case fs::file_type::not_found:
        return Kind::Missing;
    default:
        return Kind::Other;
    }
}

qint64 DiskFile::size() const
{
    std::error_code error;
    const std::uintmax_t size = fs::file_size(m_path, error);
    m_error = error.value();
    return error ? -1 : static_cast<qint64>(size);
}

qint64 DiskFile::modified() const
{
    std::error_code error;
    return fs::last_write_time(m_path, error).time_since_epoch().count();
}

bool DiskFile::isSameAs(const DiskFile &other) const
{
    std::error_code error;
    return fs::equivalent(m_path, other.m_path, error);
}

bool DiskFile::noted(bool success)
{
    if (!success)
        m_error = errno;
    return success;
}

bool DiskFile::open(const char *mode)
{
    m_file.reset(std::fopen(m_path.c_str(), mode));
    if (!noted(m_file != nullptr))
        return false;
    std::setvbuf(m_file.get(), nullptr, _IONBF, 0);
    return true;
}

bool DiskFile::openToRead() { return open("rbe"); }

bool DiskFile::openToWrite() { return open("wbe"); }

bool DiskFile::isOpen() const { return m_file != nullptr; }

qint64 DiskFile::read(unsigned char *to, std::size_t room)
{
    const std::size_t count = std::fread(to, 1, room, m_file.get());
    return noted(count == room || !std::ferror(m_file.get())) ? static_cast<qint64>(count) : -1;
}

bool DiskFile::write(const unsigned char *data, std::size_t size)
{
    return noted(std::fwrite(data, 1, size, m_file.get()) == size);
}

bool DiskFile::close() { return noted(std::fclose(m_file.release()) == 0); }

void DiskFile::remove()
{
    std::error_code ignored;
    fs::remove(m_path, ignored);
}

QString DiskFile::problem() const { return QString::fromStdString(std::generic_category().message(m_error)); }

bool persistently(const std::atomic<bool> &, const std::function<bool()> &attempt) { return attempt(); }

QString pathKey(const QString &path) { return path; }

#endif

QString replaceFile(const QString &from, const QString &to, const std::atomic<bool> &stop)
{
    std::error_code problem;
    const fs::path source = nativePath(from);
    const fs::path target = nativePath(to);
    const bool done = persistently(stop, [&] {
        fs::rename(source, target, problem); // replaces, unlike Qt's
        return !problem;
    });
    if (done)
        return {};
    return QStringLiteral("%1 could not be put into place: %2")
        .arg(QDir::toNativeSeparators(to), QString::fromLocal8Bit(problem.message().c_str()));
}

} // namespace Velmora
