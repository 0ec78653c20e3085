#pragma once

#include <QString>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#ifdef _WIN32
#include <QFile>
#endif

namespace Velmora {

/// A path that is UTF-8 wherever the library runs.
struct Utf8Path {
    const char *text;
};

/// An unbuffered file, for the ciphers. On POSIX it is not Qt's: Qt converts names to the encoding of the application's
/// locale, which may lack characters of a UTF-8 path. On Windows it is Qt's, which takes paths of any length.
class DiskFile {
public:
    enum class Kind {
        Missing,
        Folder,
        Regular,
        Other
    }; ///< Missing: also what cannot be looked at. Other: pipes, devices

    explicit DiskFile(const QString &path);
    explicit DiskFile(Utf8Path path);

    Kind kind() const;
    qint64 size() const; ///< of a regular file; -1 on an error
    /// The time of the last change of its bytes, in units of the system.
    qint64 modified() const;
    /// Also by another name.
    bool isSameAs(const DiskFile &other) const;

    bool openToRead();
    bool openToWrite(); ///< replaces what the file held
    bool isOpen() const;
    qint64 read(unsigned char *to, std::size_t room); ///< short at the end only; -1 on an error
    bool write(const unsigned char *data, std::size_t size);
    bool close(); ///< false also when a write that was delayed has failed
    void remove();
    /// The system's text for what failed last.
    QString problem() const;

private:
#ifdef _WIN32
    QFile m_file;
#else
    struct Close {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };
    bool open(const char *mode);
    bool noted(bool success); // keeps the error

    std::filesystem::path m_path;
    std::unique_ptr<std::FILE, Close> m_file;
    mutable int m_error = 0;
#endif
};

/// As the system's own calls take it; on Windows without a limit of length.
std::filesystem::path nativePath(const QString &path);

/// Lets `from` take the place of `to` in one step. Blocks; for pool threads.
/// @return why not; empty when done.
QString replaceFile(const QString &from, const QString &to, const std::atomic<bool> &stop);

/// Tries once, and on Windows again for about a second, until it succeeds or `stop` is set. Virus scanners hold a fresh
/// file open there, and an open file can neither be renamed nor removed. Blocks; for pool threads.
bool persistently(const std::atomic<bool> &stop, const std::function<bool()> &attempt);

/// Equal for two paths that name one file.
QString pathKey(const QString &path);

} // namespace Velmora
