#pragma once

#include "base/DiskFile.h"
#include "crypto/Cipher.h"

#include <QByteArray>
#include <QString>
#include <QThreadPool>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace Velmora {

/// The body of an upload: a file, read once and encrypted on the way, between the bytes of a form.
///
///     examine() (pool) ─▶ frame() ─▶ begin() ─▶ take() … until the end, or stop()
///
/// Short tasks on a pool read and encrypt ahead into a few buffers. `take` never waits for them, so the thread that
/// sends never waits for a disk. The last block of the cipher text is made only when the whole file has been read and
/// has the size and time that `examine` saw. So a body is complete only when the file did not change meanwhile.
class Source : public std::enable_shared_from_this<Source> {
public:
    explicit Source(const QString &path);

    /// Looks at the file and sets up the cipher. Blocks; for pool threads. @return false: `problem` says why
    bool examine(const QByteArray &key);
    /// Why the body cannot be had, or broke off: a sentence that names the file. Empty while all is well.
    QString problem() const;
    /// Bytes of the encrypted file.
    qint64 cipherSize() const { return m_plainSize / cipherBlockSize * cipherBlockSize + cipherBlockSize; }

    /// What goes before and after the file.
    void frame(const QByteArray &head, const QByteArray &tail);
    /// Bytes of the whole body.
    qint64 size() const { return m_head.size() + cipherSize() + m_tail.size(); }

    /// Starts reading. `onReady` is called on a pool thread when `take` had nothing and now would have.
    void begin(QThreadPool *pool, std::function<void()> onReady);
    enum class State { Taken, NotReady, Ended, Failed };
    /// Moves the next bytes of the body to `to`. @param count  receives how many
    State take(char *to, std::size_t room, std::size_t *count);
    /// Ends the reading. `onReady` is not called any more when this has returned.
    void stop();

private:
    /// The next bytes of the body, or why there are none.
    struct Part {
        QByteArray bytes;
        bool isLast;
        QString problem;
    };

    void fillLater();
    void fill();
    Part read();
    QString changeOf() const;
    QString unreadable(const QString &reason) const;
    QString notEncrypted() const;

    // Used by one task at a time.
    DiskFile m_file;
    const QString m_path;
    std::unique_ptr<Cipher> m_cipher;
    qint64 m_plainSize = 0;
    qint64 m_modified = 0;
    qint64 m_read = 0;
    QByteArray m_head;
    QByteArray m_tail;

    mutable std::mutex m_mutex; // guards what follows
    QThreadPool *m_pool = nullptr;
    std::function<void()> m_onReady;
    std::deque<QByteArray> m_ready;
    std::size_t m_taken = 0; ///< of the first one
    QString m_problem;
    bool m_filling = false; ///< a task is queued or running
    bool m_starved = false; ///< `take` had nothing
    bool m_ended = false;   ///< nothing more will be ready
};

} // namespace Velmora
