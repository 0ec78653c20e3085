#pragma once

// Lets a test program see, and fail, the calls by which it works on files: it replaces the C library's calls in the
// whole process. For programs that compile DiskCalls.cpp.

#include <string>

namespace Torture {

enum class DiskCall { None, Open, Read, Write, Copy, Sync, Close, Rename, Remove };

struct DiskUse {
    DiskCall call = DiskCall::None;
    std::string path; ///< of a file that was removed: ends with " (deleted)"
    int descriptor = -1;
    int flags = 0;  ///< of Open
    std::string to; ///< of Rename
};

/// Runs before the call, on its thread; its own calls are not seen.
/// @return 0 to go on, the errno to fail with, or `halfOnly`, which makes Read, Write and Copy move half of the bytes
using DiskHook = int (*)(const DiskUse &use);
constexpr int halfOnly = -1;

/// For files below the folder. One hook at a time; null ends it.
void watchDisk(const std::string &folder, DiskHook hook);

/// What this thread does meanwhile is not seen: for the test's own work on files.
struct DiskPause {
    DiskPause();
    ~DiskPause();
    DiskPause(const DiskPause &) = delete;
    DiskPause &operator=(const DiskPause &) = delete;
};

} // namespace Torture
