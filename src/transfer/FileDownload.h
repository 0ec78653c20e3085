#pragma once

#include "base/PoolWork.h"

#include <velmora/Records.h>

#include <QByteArray>
#include <QFile>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <memory>

class QNetworkReply;

namespace Velmora {

class RequestBody;

/// One piece of a download, in the target's folder.
///
///     start() ─▶ receiving (UNCONFIRMED_DOWNLOAD.name.VELMORA) ── follow() … finished and drained
///         ─▶ decrypting on the pool (UNCONFIRMED_DECRYPT.name.VELMORA) ─▶ ready (name)
///
/// Every state may fail, which leaves the file under the name it has reached, or be ended by `stop()`.
/// Either way `downloadComplete` is emitted once, from a clean stack. Destruction stops the pool work
/// between two buffers and aborts the reply, without a signal; after `discard()` it also removes the
/// piece's file, whatever its name is by then.
///
/// The reply is read in slices through a bounded buffer, so that memory stays flat and the owner's
/// thread never waits for the disk longer than one slice takes.
class FileDownload : public QObject {
    Q_OBJECT
public:
    /// @param folder  the target's
    /// @param target  the download's target file, which a piece never touches
    FileDownload(const QString &folder, const QString &target, const QJsonObject &chunk, const QByteArray &key);
    ~FileDownload() override;

    const QString &fileName() const { return m_fileName; } ///< as the service gave it
    QString path() const;                                  ///< where the piece is when it is ready
    bool isReported() const { return m_reported; }
    qint64 bytesReceived() const { return m_received; } ///< encrypted bytes

    void start();
    void follow(QNetworkReply *reply);
    /// Another piece has failed: finish, with `downloadComplete`.
    void stop();
    /// The download was cancelled: leave no file of this piece behind.
    void discard() { m_discard = true; }

Q_SIGNALS:
    /// `form` is null for a GET; otherwise it is posted, and the receiver's.
    void signalFetch(const QNetworkRequest &request, RequestBody *form);
    void downloadProgress();
    /// Code 200 when the piece is ready, otherwise the failure.
    void downloadComplete(const ApiError &error);

private:
    /// Where the file is, and how its decryption went; shared with the pool.
    struct Progress;

    bool prepareFolder(QString *problem);
    void scheduleDrain();
    void drain();
    bool store(const char *part, int received);
    void onReceived();
    void decrypt();
    void onDecrypted();
    void releaseReply();
    void finish(const ApiError &error);
    void fail(const QString &reason);
    void failWriting(const QString &reason);
    QString temporaryPath(const char *phase) const;

    QString m_folder;
    QString m_target; ///< cleaned, absolute
    QJsonObject m_chunk;
    QString m_fileName;
    QByteArray m_key;
    QByteArray m_batch; ///< as it arrived
    int m_filled = 0;   ///< of the batch's bytes
    int m_taken = 0;    ///< of those
    QFile m_file;
    QPointer<QNetworkReply> m_reply;
    QByteArray m_refusal; ///< the start of a refusal's body
    qint64 m_received = 0;
    std::shared_ptr<Progress> m_progress;
    /// One slice in a turn of the loop; events posted from within events would all share one turn.
    QTimer m_drain;
    bool m_replyFinished = false;
    bool m_ended = false;    ///< the outcome is certain
    bool m_reported = false; ///< and `downloadComplete` was emitted
    bool m_discard = false;
    PoolWork m_work; // last: destroyed first
};

} // namespace Velmora
