#pragma once

#include "crypto/Cipher.h"
#include "storage/WorkingFile.h"

#include <QByteArray>
#include <QString>
#include <QThreadPool>

#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace Velmora {

/// Where the bytes of a piece go: into a file, decrypted on the way.
///
///     begin() ─▶ put() … the whole answer has arrived ─▶ finish() (pool), or abandon()
///                     ─ it broke off ─▶ begin() for an answer that goes on, or restart() and begin()
///
/// Short tasks on a pool decrypt and write what has arrived. `put` never waits for them, so the thread that receives
/// never waits for a disk: it is told that there is no room, and later that there is. The last block is written by
/// `finish` only, after its padding was checked.
class Sink : public std::enable_shared_from_this<Sink> {
public:
    /// @param file  used by nobody else until the sink is finished or abandoned
    Sink(std::shared_ptr<WorkingFile> file, const QByteArray &key);

    // On the thread that receives.

    /// @param onRoom  called on a pool thread when `put` found no room and there is some again, or when writing failed
    void begin(QThreadPool *pool, std::function<void()> onRoom);
    enum class State { Taken, Full, Failed };
    /// Takes all of it, or nothing.
    State put(const char *data, std::size_t size);
    bool hasFailed() const;
    /// Bytes of the piece that it has.
    qint64 received() const;
    /// Forgets them: the piece starts anew. On the owner's thread only while nobody receives.
    void restart();
    /// `onRoom` is not called any more when this has returned.
    void detach();

    /// The whole answer has arrived: writes what is left. Blocks; for pool threads. @return false: see `problem`
    bool finish();
    /// Ends the writing. What is written right now is waited for.
    void abandon();

    /// Why the piece cannot be had; empty while all is well.
    QString problem() const;
    /// Whether the file is the reason.
    bool isUnwritable() const;

private:
    void addBuffer();
    bool next(QByteArray *part, std::size_t left);
    void setCipher();
    bool open();
    void write();
    bool write(const QByteArray &part, bool isLast);
    bool fail(const QString &problem, bool isUnwritable = false);

    std::mutex m_work; // held by whoever writes; guards what follows
    const std::shared_ptr<WorkingFile> m_file;
    const QByteArray m_key;
    std::unique_ptr<Cipher> m_cipher;
    QByteArray m_plain;        ///< decrypted, on its way into the file
    std::int64_t m_start = -1; ///< of the piece in the file; negative: nothing was written yet
    bool m_startsAnew = false;

    mutable std::mutex m_mutex; // guards what follows
    QThreadPool *m_pool = nullptr;
    std::function<void()> m_onRoom;
    std::deque<QByteArray> m_waiting; ///< all but the last one are full
    std::vector<QByteArray> m_spare;  ///< empty, with room for a full one
    std::size_t m_held = 0;           ///< bytes that wait or are being written
    qint64 m_received = 0;            ///< bytes
    QString m_problem;
    bool m_unwritable = false;
    bool m_writing = false; ///< a task is queued or running
    bool m_full = false;    ///< `put` found no room
    bool m_ended = false;   ///< failed, or abandoned
    bool m_restart = false; ///< what waits is the beginning of the piece
};

} // namespace Velmora
