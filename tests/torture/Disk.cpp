// Injects faults of the disk.

#include "Torture.h"

#include <cerrno>
#include <mutex>
#include <utility>

#include <fcntl.h>

namespace Torture {

namespace {

std::mutex mutex;
DiskFault wanted; // None: spent
bool isFilling = false;
DiskStrikes struck;

// What the library cannot do without. Its folders' syncs and the removal of abandoned files come after the fact, and
// where the kernel cannot copy, the library does.
bool isFatal(const DiskUse &use)
{
    const bool isWorking = use.path.find("UNCONFIRMED_DOWNLOAD.") != string::npos;
    const bool isRemoved = use.path.find(" (deleted)") != string::npos;
    if (use.call == DiskCall::Open)
        return (use.flags & O_CREAT) || !(use.flags & (O_RDWR | O_DIRECTORY));
    const bool isSpare = isRemoved || use.call == DiskCall::Copy || use.call == DiskCall::Remove;
    return use.call == DiskCall::Read || (isWorking && !isSpare);
}

int strike(const DiskUse &use)
{
    const std::lock_guard lock(mutex);
    if (use.call == DiskCall::Copy && wanted.call == DiskCall::Read)
        return EXDEV; // makes the library read what it would let the kernel copy
    const bool isMeant = use.call == wanted.call || (use.call == DiskCall::Copy && wanted.call == DiskCall::Write);
    if (!isMeant || wanted.skip-- > 0)
        return 0;
    ++struck.all;
    if (wanted.error == ENOSPC && !std::exchange(isFilling, true))
        return halfOnly; // what still fits
    struck.fatal += wanted.error > 0 && isFatal(use);
    const int error = wanted.error;
    if (!wanted.isPermanent)
        wanted.call = DiskCall::None;
    return error;
}

} // namespace

void failDisk(const string &folder, const DiskFault &fault)
{
    const std::lock_guard lock(mutex);
    wanted = fault;
    isFilling = false;
    watchDisk(folder, strike);
}

DiskStrikes restoreDisk()
{
    watchDisk({}, nullptr);
    const std::lock_guard lock(mutex);
    return std::exchange(struck, {});
}

} // namespace Torture
