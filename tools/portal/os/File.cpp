#include "portal/os/File.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace VelmoraPortal {
namespace {

[[noreturn]] void fail(const std::string &what) { throw std::system_error(errno, std::generic_category(), what); }

int descriptor(std::intptr_t handle) { return static_cast<int>(handle); }

} // namespace

File::File(const std::string &path, Mode mode)
    : m_handle(mode == Mode::Read ? ::open(path.c_str(), O_RDONLY | O_CLOEXEC)
                                  : ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600))
{
    if (m_handle < 0)
        fail("Cannot open a stored file");
}

File::~File()
{
    if (m_handle >= 0)
        ::close(descriptor(m_handle));
}

long long File::size() const
{
    struct stat info = {};
    if (::fstat(descriptor(m_handle), &info) != 0)
        fail("Cannot look at a stored file");
    return info.st_size;
}

std::size_t File::read(char *to, std::size_t size, long long offset) const
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count =
            ::pread(descriptor(m_handle), to + done, size - done, offset + static_cast<long long>(done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            fail("Cannot read a stored file");
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

void File::write(const char *data, std::size_t size)
{
    while (size > 0) {
        const ssize_t count = ::write(descriptor(m_handle), data, size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            fail("Cannot store the file");
        data += count;
        size -= static_cast<std::size_t>(count);
    }
}

void File::close()
{
    if (::close(static_cast<int>(std::exchange(m_handle, -1))) != 0)
        fail("Cannot store the file");
}

void removeFile(const std::string &path) { ::unlink(path.c_str()); }

void removeFolder(const std::string &path)
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

bool makePrivateFolder(const std::string &path) { return ::mkdir(path.c_str(), 0700) == 0; }

std::string makeTemporaryFolder(const std::string &beginning)
{
    std::string path = beginning + "XXXXXX";
    return ::mkdtemp(path.data()) ? path : std::string();
}

Ownership ownershipOf(const std::string &folder)
{
    struct stat info = {};
    if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        return Ownership::NoFolder;
    return info.st_uid == ::geteuid() && (info.st_mode & 077) == 0 ? Ownership::Private : Ownership::Shared;
}

} // namespace VelmoraPortal
