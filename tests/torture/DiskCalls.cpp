#include "DiskCalls.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <mutex>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace Torture {

namespace {

std::atomic<DiskHook> watching{nullptr};
std::mutex mutex;
std::string below;
thread_local int pauses = 0;

bool isWatched(const char *path)
{
    if (!watching || pauses > 0)
        return false;
    const std::lock_guard lock(mutex);
    return std::string(path).compare(0, below.size(), below) == 0;
}

// What the hook says; an error is in errno.
int ask(DiskUse use)
{
    const DiskHook hook = watching;
    if (!hook || !isWatched(use.path.c_str()))
        return 0;
    const int before = errno;
    const DiskPause pause;
    const int verdict = hook(use);
    errno = verdict > 0 ? verdict : before;
    return verdict;
}

int ask(DiskCall call, int descriptor)
{
    if (!watching || pauses > 0)
        return 0;
    char path[4096] = {};
    const int before = errno;
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const bool isNamed = ::readlink(link.c_str(), path, sizeof path - 1) > 0;
    errno = before;
    return isNamed ? ask({call, path, descriptor, 0, {}}) : 0;
}

// The C library's own function.
template <auto Function> auto next(const char *name)
{
    static const auto found = reinterpret_cast<decltype(Function)>(::dlsym(RTLD_NEXT, name));
    return found;
}

// -1 when the call fails; otherwise how many bytes it may move.
ssize_t allowed(DiskCall call, int descriptor, size_t size)
{
    const int verdict = ask(call, descriptor);
    return verdict > 0 ? -1 : static_cast<ssize_t>(verdict == halfOnly ? (size + 1) / 2 : size);
}

int descriptorOf(void *cookie) { return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie)); }

// The C library's streams call the system directly. Those of watched files are made of the calls below instead.
std::FILE *streamOf(const char *path, const char *mode)
{
    const int descriptor = ::open(path, *mode == 'r' ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (descriptor < 0)
        return nullptr;
    cookie_io_functions_t calls = {};
    calls.read = [](void *cookie, char *to, size_t size) { return ::read(descriptorOf(cookie), to, size); };
    calls.write = [](void *cookie, const char *from, size_t size) {
        return std::max<ssize_t>(0, ::write(descriptorOf(cookie), from, size)); // 0 stands for an error
    };
    calls.close = [](void *cookie) { return ::close(descriptorOf(cookie)); };
    return ::fopencookie(reinterpret_cast<void *>(static_cast<std::intptr_t>(descriptor)), mode, calls);
}

} // namespace

void watchDisk(const std::string &folder, DiskHook hook)
{
    const std::lock_guard lock(mutex);
    below = folder;
    watching = hook;
}

DiskPause::DiskPause() { ++pauses; }

DiskPause::~DiskPause() { --pauses; }

} // namespace Torture

using namespace Torture;

extern "C" {

int open(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const auto mode = va_arg(rest, unsigned int); // read only when the flags ask for it
    va_end(rest);
    return ask({DiskCall::Open, path, -1, flags, {}}) > 0 ? -1 : next<&::open>("open")(path, flags, mode);
}

int open64(const char *, int, ...) __attribute__((alias("open"))); // as offsets have 64 bits anyway

std::FILE *fopen(const char *path, const char *mode)
{
    return isWatched(path) ? streamOf(path, mode) : next<&::fopen>("fopen")(path, mode);
}

ssize_t read(int descriptor, void *to, size_t size)
{
    const ssize_t most = allowed(DiskCall::Read, descriptor, size);
    return most < 0 ? -1 : next<&::read>("read")(descriptor, to, static_cast<size_t>(most));
}

ssize_t write(int descriptor, const void *from, size_t size)
{
    const ssize_t most = allowed(DiskCall::Write, descriptor, size);
    return most < 0 ? -1 : next<&::write>("write")(descriptor, from, static_cast<size_t>(most));
}

ssize_t copy_file_range(int from, off64_t *fromOffset, int to, off64_t *toOffset, size_t size, unsigned int flags)
{
    const ssize_t most = allowed(DiskCall::Copy, to, size);
    return most < 0 ? -1
                    : next<&::copy_file_range>("copy_file_range")(from, fromOffset, to, toOffset,
                                                                  static_cast<size_t>(most), flags);
}

int fsync(int descriptor) { return ask(DiskCall::Sync, descriptor) > 0 ? -1 : next<&::fsync>("fsync")(descriptor); }

// The descriptor is closed all the same.
int close(int descriptor)
{
    const int error = ask(DiskCall::Close, descriptor), result = next<&::close>("close")(descriptor);
    if (error > 0)
        errno = error;
    return error > 0 ? -1 : result;
}

int rename(const char *from, const char *to) noexcept
{
    return ask({DiskCall::Rename, from, -1, 0, to}) > 0 ? -1 : next<&::rename>("rename")(from, to);
}

int unlink(const char *path) noexcept
{
    return ask({DiskCall::Remove, path, -1, 0, {}}) > 0 ? -1 : next<&::unlink>("unlink")(path);
}
}
