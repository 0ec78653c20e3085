// Injects faults of the disk: the calls below replace the C library's in the whole process.

#include "Torture.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace Torture {

namespace {

std::atomic<bool> armed{false};
std::mutex mutex;
DiskFault wanted;
string below; ///< the folder whose files fail

bool fails(DiskCall call, const char *path)
{
    const std::lock_guard lock(mutex);
    if (!armed || call != wanted.call || string(path).compare(0, below.size(), below) != 0 || wanted.skip-- > 0)
        return false;
    armed = wanted.isPermanent;
    errno = wanted.error;
    return true;
}

bool fails(DiskCall call, int descriptor)
{
    if (!armed)
        return false;
    char path[4096] = {};
    const string link = "/proc/self/fd/" + std::to_string(descriptor);
    return ::readlink(link.c_str(), path, sizeof path - 1) > 0 && fails(call, path);
}

template <class Function> Function *next(Function *, const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

} // namespace

void failDisk(const string &folder, const DiskFault &fault)
{
    const std::lock_guard lock(mutex);
    below = folder;
    wanted = fault;
    armed = fault.call != DiskCall::None;
}

void restoreDisk() { armed = false; }

DiskPause::DiskPause()
    : m_armed(armed.exchange(false))
{
}

DiskPause::~DiskPause() { armed = m_armed; }

} // namespace Torture

using Torture::DiskCall, Torture::fails, Torture::next;

namespace {

// The library calls the one, Qt the other.
template <class Real> int openOr(Real real, const char *path, int flags, unsigned int mode)
{
    return fails(DiskCall::Open, path) ? -1 : real(path, flags, mode);
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...)
{
    static const auto real = next(&::open, "open");
    va_list rest;
    va_start(rest, flags);
    const auto mode = va_arg(rest, unsigned int); // read only when the flags ask for it
    va_end(rest);
    return openOr(real, path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    static const auto real = next(&::open64, "open64");
    va_list rest;
    va_start(rest, flags);
    const auto mode = va_arg(rest, unsigned int); // read only when the flags ask for it
    va_end(rest);
    return openOr(real, path, flags, mode);
}

ssize_t read(int descriptor, void *to, size_t size)
{
    static const auto real = next(&::read, "read");
    return fails(DiskCall::Read, descriptor) ? -1 : real(descriptor, to, size);
}

ssize_t write(int descriptor, const void *from, size_t size)
{
    static const auto real = next(&::write, "write");
    return fails(DiskCall::Write, descriptor) ? -1 : real(descriptor, from, size);
}

int fsync(int descriptor)
{
    static const auto real = next(&::fsync, "fsync");
    return fails(DiskCall::Sync, descriptor) ? -1 : real(descriptor);
}

// The descriptor is closed all the same.
int close(int descriptor)
{
    static const auto real = next(&::close, "close");
    const bool failing = fails(DiskCall::Close, descriptor);
    const int error = errno;
    const int result = real(descriptor);
    if (failing)
        errno = error;
    return failing ? -1 : result;
}

int rename(const char *from, const char *to) noexcept
{
    static const auto real = next(&::rename, "rename");
    return fails(DiskCall::Rename, from) ? -1 : real(from, to);
}

int renameat2(int fromFolder, const char *from, int toFolder, const char *to, unsigned int flags) noexcept
{
    static const auto real = next(&::renameat2, "renameat2");
    return fails(DiskCall::Rename, from) ? -1 : real(fromFolder, from, toFolder, to, flags);
}

int link(const char *from, const char *to) noexcept
{
    static const auto real = next(&::link, "link");
    return fails(DiskCall::Rename, from) ? -1 : real(from, to);
}

int unlink(const char *path) noexcept
{
    static const auto real = next(&::unlink, "unlink");
    return fails(DiskCall::Remove, path) ? -1 : real(path);
}
}
