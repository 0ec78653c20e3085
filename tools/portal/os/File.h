#pragma once

// The file operations that need the operating system: File.cpp for POSIX, FileWindows.cpp for Windows.

#include <cstddef>
#include <cstdint>
#include <string>

namespace VelmoraPortal {

/// An open file. Every member throws std::system_error on failure.
class File {
public:
    enum class Mode { Read, Create };
    File(const std::string &path, Mode mode);
    ~File();
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    long long size() const;
    /// Short only at the file's end.
    std::size_t read(char *to, std::size_t size, long long offset) const;
    void write(const char *data, std::size_t size);
    /// Reports the failure of a delayed write.
    void close();

private:
    std::intptr_t m_handle; ///< -1: closed
};

/// A reader that has the file open can still read it.
void removeFile(const std::string &path);
/// With its content, as far as possible.
void removeFolder(const std::string &path);

/// Creates a folder that only its owner can use; false when it exists or cannot be created.
bool makePrivateFolder(const std::string &path);
/// The same with a free name that begins so; empty when it cannot be created.
std::string makeTemporaryFolder(const std::string &beginning);
enum class Ownership { NoFolder, Shared, Private };
Ownership ownershipOf(const std::string &folder);

} // namespace VelmoraPortal
