#pragma once

#include "base/LockedFile.h"

#include <QString>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Velmora {

/// The file in which a download grows, "UNCONFIRMED_DOWNLOAD.name.VELMORA". Where another running download works under
/// that name, of this process or another one, a number is added. Used by one thread at a time; blocks.
class WorkingFile {
public:
    /// Nothing is created until `open`. @param name  of a file, without folders
    WorkingFile(const QString &folder, const QString &name);

    /// Creates the file, and its folder, unless it is open.
    bool open();
    bool write(const void *data, std::size_t size) { return m_file.write(data, size); }
    std::int64_t size() const { return m_file.size(); }
    bool truncate(std::int64_t size) { return m_file.truncate(size); }
    /// Appends `other`, and removes that.
    bool append(WorkingFile &other, const std::atomic<bool> &stop);
    bool moveTo(const QString &target, const std::atomic<bool> &stop) { return m_file.moveTo(target, stop); }
    /// Whether it has moved. Not asked for while it may be moving.
    bool isInPlace() const { return m_file.isInPlace(); }
    void close() { m_file.close(); }
    void remove() { m_file.remove(); }
    QString problem() const;

    /// Removes the files that downloads of this name left whose process has gone.
    static void removeAbandoned(const QString &folder, const QString &name);
    /// The path with a number; 1 stands for none. A name that is too long for a folder is shortened.
    static QString pathOf(const QString &folder, const QString &name, int number);

private:
    const QString m_folder;
    const QString m_name;
    LockedFile m_file;
    QString m_problem; ///< before the file was open
};

} // namespace Velmora
