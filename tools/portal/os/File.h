#pragma once

// All that needs the operating system for files. File.cpp is written for POSIX, FileWindows.cpp for Windows.

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
    /// Reports what a delayed write may have failed with.
    void close();

private:
    std::intptr_t m_handle; ///< -1: closed
};

/// Whoever reads it still can.
void removeFile(const std::string &path);
/// With all that is in it, as far as that can be removed.
void removeFolder(const std::string &path);

/// A new folder that is its owner's alone; false when there is one already, or none can be made.
bool makePrivateFolder(const std::string &path);
/// The same, of a name that begins so and is not taken. Empty when none can be made.
std::string makeTemporaryFolder(const std::string &beginning);
enum class Ownership { NoFolder, Shared, Private };
Ownership ownershipOf(const std::string &folder);

} // namespace VelmoraPortal
