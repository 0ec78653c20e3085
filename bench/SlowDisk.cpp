/// @file SlowDisk.cpp
/// Preloaded into a program, it makes its files as slow as on a disk of 20 MB/s. Sockets and pipes keep their speed.
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

void takeTime(int descriptor, std::size_t size)
{
    struct stat info = {};
    if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode))
        return;
    static std::mutex disk; // one at a time
    const std::lock_guard lock(disk);
    std::this_thread::sleep_for(std::chrono::nanoseconds(size * 50));
}

template <class Function> Function *next(Function *, const char *name)
{
    return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

} // namespace

EXPORTED ssize_t write(int descriptor, const void *data, size_t size)
{
    static const auto real = next(&::write, "write");
    takeTime(descriptor, size);
    return real(descriptor, data, size);
}

EXPORTED ssize_t copy_file_range(int from, off64_t *fromAt, int to, off64_t *toAt, size_t size, unsigned int flags)
{
    static const auto real = next(&::copy_file_range, "copy_file_range");
    takeTime(to, 2 * size);
    return real(from, fromAt, to, toAt, size, flags);
}

// Uploads read through a stream.
EXPORTED size_t fread(void *to, size_t size, size_t count, std::FILE *file)
{
    static const auto real = next(&::fread, "fread");
    takeTime(::fileno(file), size * count);
    return real(to, size, count, file);
}
