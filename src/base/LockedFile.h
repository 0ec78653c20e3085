#pragma once

#include <QString>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Velmora {

/// A file that this process alone writes. The lock dies with the process, so nobody mistakes the file of a running
/// process for one that was left behind. Functions block; they are for pool threads.
class LockedFile {
public:
    LockedFile() = default;
    ~LockedFile() { close(); }
    LockedFile(const LockedFile &) = delete;
    LockedFile &operator=(const LockedFile &) = delete;

    enum class Created { Yes, Exists, Failed };
    /// Creates and locks a file that did not exist.
    Created create(const QString &path);
    /// Removes a file whose owner is gone. @return false: it is in use, no file, or cannot be removed
    static bool removeAbandoned(const QString &path);

    bool isOpen() const { return m_handle != closed; }
    bool write(const void *data, std::size_t size);
    std::int64_t size() const; ///< bytes; negative when it cannot be known
    /// Cuts the file off. Writing goes on from there.
    bool truncate(std::int64_t size);
    /// Appends what `other` holds, by the system's kernel where it can.
    bool append(LockedFile &other, const std::atomic<bool> &stop);
    /// Makes the file durable and lets it take the place of `target` in one step, with the permissions of the file that
    /// it replaces. It stays locked until then. Closed when done.
    bool moveTo(const QString &target, const std::atomic<bool> &stop);
    bool isInPlace() const { return m_isInPlace; }
    void close();
    void remove();

    /// The system's text for what failed last.
    const QString &problem() const { return m_problem; }

private:
    static constexpr std::intptr_t closed = -1;

    bool noted(bool success); // keeps the error
    bool sync();
    bool wrote(std::size_t size);
    bool copy(LockedFile &other, const std::atomic<bool> &stop);
    bool prepareFor(const QString &target);
    static void syncFolder(const QString &path);

    std::intptr_t m_handle = closed;
    QString m_path;
    QString m_problem;
    std::size_t m_unsynced = 0; ///< bytes
    bool m_isInPlace = false;
};

} // namespace Velmora
