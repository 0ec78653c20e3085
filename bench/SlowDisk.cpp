/// @file SlowDisk.cpp
/// Preloaded into a program, it makes every disk write as slow as on a disk of 20 MB/s. Sockets and pipes keep
/// their speed.
#include <chrono>
#include <mutex>
#include <thread>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" __attribute__((visibility("default"))) ssize_t write(int descriptor, const void *data, size_t size)
{
    using Write = ssize_t (*)(int, const void *, size_t);
    static const auto next = reinterpret_cast<Write>(::dlsym(RTLD_NEXT, "write"));
    struct stat info = {};
    if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode)) {
        static std::mutex disk; // one write at a time
        const std::lock_guard lock(disk);
        std::this_thread::sleep_for(std::chrono::nanoseconds(size * 50));
    }
    return next(descriptor, data, size);
}
