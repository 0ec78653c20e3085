#pragma once

#include "Portal.h"

namespace Bench {

/// One transfer in a process of its own, whose pauses and memory are its own; what `measuredTransfer` prints is a row.
/// @param arguments  after "--measure"
int measuredTransfer(const QStringList &arguments);

/// Pauses of the event loop and growth of memory: files of the sizes (MiB), on the disk and on one of 20 MB/s; then
/// fifty files at once.
void longTransfers(Portal &portal, const QString &folder, const QStringList &sizes);

/// Bytes that transfers read from files and write to them, as strace sees them.
void diskTraffic(Portal &portal, const QString &folder, std::size_t mebibytes);

} // namespace Bench
