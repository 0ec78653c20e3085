#pragma once

#include "base/PoolWork.h"
#include "transfer/FileDownload.h"

#include <velmora/Callbacks.h>

#include <QByteArray>
#include <QJsonArray>
#include <QObject>
#include <QString>
#include <QThreadPool>

#include <memory>
#include <vector>

namespace Velmora {

/// The threads on which downloads end. To append is long work; a small file does not wait behind it.
struct DownloadPools {
    DownloadPools();

    QThreadPool finishing;
    QThreadPool appending;
};

/// One download: its pieces, and their joining into the target.
///
///     waiting for the address and the key ── prepare() ── begin() ─▶ receiving pieces, a few at a time, and appending
///         ─ all appended ─▶ putting the file into place (pool) ─ downloadComplete ─▶ finished
///         ─ one failed ─▶ stopping the others ─ all finished ─ downloadComplete ─▶ finished
///
/// The joined file grows beside the target, under the working name of its first piece. A piece whose predecessors are
/// all in it when it starts is written straight into it; another one has a working file of its own, and is appended in
/// its turn. The joined file takes the target's place only when complete, so a download that fails leaves an existing
/// target alone. Owned by the `FileTransferManager`; owns its pieces. Destroying it unfinished removes every file that
/// it has made.
class DownloadObjects : public QObject {
    Q_OBJECT
public:
    DownloadObjects(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                    const ResultDone<FileDownloadDetails> &onComplete, DownloadPools &pools, const RetryPolicy &policy);
    ~DownloadObjects() override;

    const FileDownloadDetails &details() const { return m_details; }
    const ResultDone<FileDownloadDetails> &onComplete() const { return m_onComplete; }
    /// Equal for downloads to one file.
    static QString targetKey(const FileDownloadDetails &file);
    bool hasTarget(const QString &key) const { return key == m_targetKey; }
    bool isFinished() const { return m_finished; }
    /// Prepares a cancellation. @return false: the file is in its place already, and the download completes
    bool canBeCancelled();

    /// Creates the pieces.
    void prepare(const Grant &grant, const QByteArray &key);
    const std::vector<std::unique_ptr<FileDownload>> &pieces() const { return m_pieces; }
    void begin();
    /// Before the pieces were created: something that is needed for them cannot be had.
    void failOrTryAgain(const GrantError &error, std::function<void()> again);

Q_SIGNALS:
    /// The last signal; emitted from a clean stack.
    void downloadComplete(const ApiError &error);

private:
    using Work = std::function<QString(const std::atomic<bool> &stop)>;

    ApiError problemOfNames() const;
    void startPieces();
    void onChunkProgress();
    void onChunkComplete(const ApiError &error);
    void goOn();
    void append();
    void moveToTarget();
    void work(PoolWork &on, Work job, std::function<void()> then);
    void failOnce(const ApiError &error);
    void finish(const ApiError &error);

    FileDownloadDetails m_details;
    DownloadProgress m_onProgress;
    ResultDone<FileDownloadDetails> m_onComplete;
    DownloadPools &m_pools;
    const RetryPolicy m_policy;
    Retry m_retry;          ///< of what comes before the pieces
    const QString m_target; ///< cleaned, absolute
    const QString m_targetKey;
    const QString m_folder;
    QByteArray m_key;
    std::vector<std::unique_ptr<FileDownload>> m_pieces; ///< in the order of their numbers
    std::shared_ptr<WorkingFile> m_joined;
    std::size_t m_started = 0;
    std::size_t m_receiving = 0;
    std::size_t m_appended = 0; ///< pieces that the joined file holds
    bool m_working = false;     ///< the joined file is appended to, or put into place
    ApiError m_failure;         ///< the first one
    bool m_failed = false;
    qint64 m_reported = 0;
    bool m_finished = false;
    PoolWork m_appending; // last: destroyed first
    PoolWork m_moving;
};

} // namespace Velmora
