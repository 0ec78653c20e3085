#pragma once

#include "base/PoolWork.h"
#include "transfer/FileDownload.h"

#include <velmora/Callbacks.h>

#include <QJsonArray>
#include <QObject>
#include <QSet>
#include <QString>

#include <memory>
#include <vector>

namespace Velmora {

/// One download: its pieces, and their joining into the target.
///
///     waiting for the address and the key ── begin() ─▶ receiving pieces
///         ─ all ready ─▶ joining (pool) ─ downloadComplete ─▶ finished
///         ─ one failed ─▶ stopping the others ─ all finished ─ downloadComplete ─▶ finished
///
/// The joined file grows beside the target and takes its place only when complete, so that a download
/// that fails leaves an existing target alone. Owned by the `FileTransferManager`; owns its pieces.
/// Destroying it unfinished removes every file it has made.
class DownloadObjects : public QObject {
    Q_OBJECT
public:
    DownloadObjects(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                    const ResultDone<FileDownloadDetails> &onComplete);
    ~DownloadObjects() override;

    const FileDownloadDetails &details() const { return m_details; }
    const ResultDone<FileDownloadDetails> &onComplete() const { return m_onComplete; }
    /// The same target, or the same cloud file into the same folder, where its pieces would collide.
    bool isFor(const FileDownloadDetails &file) const;
    bool hasTarget(const FileDownloadDetails &file) const;
    bool isFinished() const { return m_finished; }

    /// Creates the pieces; returns false, and has done nothing, when `taken` holds one of their paths.
    bool prepare(const QJsonArray &chunks, const QByteArray &key, const QSet<QString> &taken);
    /// Every path that this download writes, as `pathKey` has it.
    const QSet<QString> &paths() const { return m_paths; }
    const std::vector<std::unique_ptr<FileDownload>> &pieces() const { return m_pieces; }
    void begin();
    void fail(const ApiError &error);

Q_SIGNALS:
    /// The last signal; emitted from a clean stack.
    void downloadComplete(const ApiError &error);

private Q_SLOTS:
    void onChunkProgress();
    void onChunkComplete(const ApiError &error);

private:
    void join();
    void finish(const ApiError &error);

    FileDownloadDetails m_details;
    DownloadProgress m_onProgress;
    ResultDone<FileDownloadDetails> m_onComplete;
    QString m_target; ///< cleaned, absolute
    QString m_folder;
    std::vector<std::unique_ptr<FileDownload>> m_pieces; ///< in the order of the chunks
    QSet<QString> m_paths;
    ApiError m_failure; ///< the first one
    bool m_failed = false;
    std::size_t m_finishedPieces = 0;
    qint64 m_reported = 0;
    bool m_finished = false;
    PoolWork m_work; // last: destroyed first
};

} // namespace Velmora
