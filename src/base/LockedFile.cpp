#include "base/LockedFile.h"

#include "base/DiskFile.h"

#include <QFileInfo>

namespace Velmora {

namespace {

// Bytes that may wait to be made durable. The last sync of a large file is then short, and so is the time in which it
// cannot be cancelled.
constexpr std::size_t mostUnsynced = 64 * 1024 * 1024;

} // namespace

bool LockedFile::wrote(std::size_t size)
{
    m_unsynced += size;
    return m_unsynced < mostUnsynced || sync();
}

bool LockedFile::append(LockedFile &other, const std::atomic<bool> &stop)
{
    const bool done = copy(other, stop);
    if (!done && m_problem.isEmpty())
        m_problem = other.m_problem;
    return done;
}

bool LockedFile::moveTo(const QString &target, const std::atomic<bool> &stop)
{
    if (!prepareFor(target) || !sync() || stop)
        return false;
    m_problem = replaceFile(m_path, target, stop);
    if (!m_problem.isEmpty())
        return false;
    m_isInPlace = true;
    m_path.clear();
    close();
    // The file is whole under either name, so a folder that cannot be synced is no failure.
    syncFolder(QFileInfo(target).absolutePath());
    return true;
}

} // namespace Velmora
