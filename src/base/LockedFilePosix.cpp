#ifndef _WIN32

#include "base/DiskFile.h"
#include "base/LockedFile.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmora {

namespace {

constexpr std::size_t copiedAtOnce = 8 * 1024 * 1024;
constexpr std::size_t bufferSize = 1024 * 1024;

int descriptorOf(std::intptr_t handle) { return static_cast<int>(handle); }

bool lock(int descriptor) { return ::flock(descriptor, LOCK_EX | LOCK_NB) == 0; }

// Whether the open file is still the one of that name.
bool isAt(int descriptor, const char *path)
{
    struct stat open = {}, named = {};
    return ::fstat(descriptor, &open) == 0 && ::lstat(path, &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

// What the kernel copied; -1 where it cannot.
ssize_t copyInKernel(int from, int to, std::size_t size)
{
#ifdef __linux__
    return ::copy_file_range(from, nullptr, to, nullptr, size, 0);
#else
    (void)from, (void)to, (void)size;
    return -1;
#endif
}

} // namespace

bool LockedFile::noted(bool success)
{
    if (!success)
        m_problem = QString::fromStdString(std::generic_category().message(errno));
    return success;
}

LockedFile::Created LockedFile::create(const QString &path)
{
    const auto native = nativePath(path);
    const int made = ::open(native.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (!noted(made >= 0))
        return errno == EEXIST ? Created::Exists : Created::Failed;
    // Until it was locked, somebody may have taken it for abandoned. A file system without locks goes without.
    if ((!lock(made) && errno == EWOULDBLOCK) || !isAt(made, native.c_str())) {
        ::close(made);
        return Created::Exists;
    }
    m_handle = made;
    m_path = path;
    m_problem.clear();
    m_unsynced = 0;
    return Created::Yes;
}

bool LockedFile::removeAbandoned(const QString &path)
{
    const auto native = nativePath(path);
    const int found = ::open(native.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (found < 0)
        return errno == ENOENT;
    struct stat status = {};
    bool gone = false;
    if (::fstat(found, &status) == 0 && S_ISREG(status.st_mode) && lock(found))
        gone = !isAt(found, native.c_str()) || ::unlink(native.c_str()) == 0;
    ::close(found);
    return gone;
}

bool LockedFile::write(const void *data, std::size_t size)
{
    const char *next = static_cast<const char *>(data);
    for (std::size_t left = size; left > 0;) {
        const ssize_t count = ::write(descriptorOf(m_handle), next, left);
        if (count < 0 && errno == EINTR)
            continue;
        if (!noted(count > 0))
            return false;
        next += count;
        left -= static_cast<std::size_t>(count);
    }
    return wrote(size);
}

std::int64_t LockedFile::size() const
{
    struct stat status = {};
    return ::fstat(descriptorOf(m_handle), &status) == 0 ? std::int64_t{status.st_size} : -1;
}

bool LockedFile::truncate(std::int64_t size)
{
    const int descriptor = descriptorOf(m_handle);
    return noted(::ftruncate(descriptor, size) == 0 && ::lseek(descriptor, size, SEEK_SET) == size);
}

bool LockedFile::copy(LockedFile &other, const std::atomic<bool> &stop)
{
    const int from = descriptorOf(other.m_handle), to = descriptorOf(m_handle);
    struct stat status = {};
    if (!other.noted(::fstat(from, &status) == 0 && ::lseek(from, 0, SEEK_SET) == 0))
        return false;
    auto left = static_cast<std::size_t>(status.st_size);
    std::vector<char> buffer;
    while (left > 0 && !stop) {
        const ssize_t copied = buffer.empty() ? copyInKernel(from, to, std::min(left, copiedAtOnce)) : -1;
        if (copied > 0) {
            left -= static_cast<std::size_t>(copied);
            if (!wrote(static_cast<std::size_t>(copied)))
                return false;
            continue;
        }
        buffer.resize(bufferSize); // goes on where the kernel's copy ended
        const ssize_t count = ::read(from, buffer.data(), std::min(left, bufferSize));
        if (count < 0 && errno == EINTR)
            continue;
        if (count == 0)
            errno = EIO; // shorter than it was
        if (!other.noted(count > 0) || !write(buffer.data(), static_cast<std::size_t>(count)))
            return false;
        left -= static_cast<std::size_t>(count);
    }
    return left == 0;
}

bool LockedFile::sync()
{
    m_unsynced = 0;
    return noted(::fsync(descriptorOf(m_handle)) == 0);
}

// Permissions, and the errors that only closing tells. The lock stays: it is that of both descriptors.
bool LockedFile::prepareFor(const QString &target)
{
    const int descriptor = descriptorOf(m_handle);
    struct stat own = {}, replaced = {};
    if (::stat(nativePath(target).c_str(), &replaced) == 0 && S_ISREG(replaced.st_mode) &&
        ::fstat(descriptor, &own) == 0 && own.st_mode != replaced.st_mode &&
        !noted(::fchmod(descriptor, replaced.st_mode & 0777) == 0))
        return false;
    const int second = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    return noted(second >= 0) && noted(::close(second) == 0);
}

void LockedFile::syncFolder(const QString &path)
{
    const int folder = ::open(nativePath(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return;
    ::fsync(folder);
    ::close(folder);
}

void LockedFile::close()
{
    if (isOpen())
        ::close(descriptorOf(std::exchange(m_handle, closed)));
}

void LockedFile::remove()
{
    if (isOpen() && !m_path.isEmpty()) // while the lock is held
        ::unlink(nativePath(m_path).c_str());
    m_path.clear();
    close();
}

} // namespace Velmora

#endif
