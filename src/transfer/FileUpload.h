#pragma once

#include "base/PoolWork.h"

#include <velmora/Callbacks.h>

#include <QByteArray>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class QFile;
class QNetworkReply;

namespace Velmora {

class RequestBody;

/// One file on its way into a job's storage.
///
///     waiting for the key ── setKey() ─▶ waiting for its turn ── encrypt() ─▶ encrypting (pool)
///         ─ signalEncryptionDone ─▶ waiting for the address ── send() ─▶ sending ── follow()
///         ─▶ confirmed ─▶ removing the temporary folder (pool) ─ signalUploadComplete ─▶ finished
///
/// Every state may instead fail (`fail()`: on to removing, with the error) or be destroyed, which
/// stops the pool work between two buffers, aborts the reply and removes the temporary folder.
/// Owned by the `FileTransferManager`; owns the encrypted copy, its folder and the reply. The plain
/// file is read once, and only its encryption is ever stored or sent.
class FileUpload : public QObject {
    Q_OBJECT
public:
    FileUpload(const FileUploadDetails &file, const UploadProgress &onProgress,
               const ResultDone<FileUploadDetails> &onComplete);
    ~FileUpload() override;

    /// Same local file, same job.
    bool isFor(const FileUploadDetails &file) const;
    const std::string &jobId() const { return m_details.cloudFileJobID; }
    /// What callbacks receive: the size is the one found on disk.
    const FileUploadDetails &details() const { return m_details; }
    const ResultDone<FileUploadDetails> &onComplete() const { return m_onComplete; }
    /// True once the outcome is certain: too late to cancel.
    bool isFinished() const { return m_finished; }
    bool isReady() const { return !m_key.isEmpty() && !m_started && !m_finished; }
    bool isStarted() const { return m_started; }

    void setKey(const QByteArray &key) { m_key = key; }
    void encrypt();
    /// Prepares the request for the address that the portal handed out.
    void send(const QJsonObject &address);
    /// Follows the reply to its end.
    void follow(QNetworkReply *reply);
    void fail(const ApiError &error);

Q_SIGNALS:
    void signalEncryptionDone();
    /// `body` is the receiver's; `multipart` distinguishes a form from the bare file.
    void signalSend(const QNetworkRequest &request, const QByteArray &verb, RequestBody *body, bool multipart);
    /// The last signal; emitted from a clean stack.
    void signalUploadComplete(const ApiError &error);

private:
    void reportProgress(qint64 bytesSent);
    void onReplyFinished();
    void finish(const ApiError &error);
    QString temporaryPath() const;

    FileUploadDetails m_details;
    UploadProgress m_onProgress;
    ResultDone<FileUploadDetails> m_onComplete;
    QByteArray m_key;
    std::unique_ptr<QTemporaryDir> m_folder; ///< readable by its owner only
    QPointer<QNetworkReply> m_reply;
    QPointer<RequestBody> m_body; ///< the reply's
    QByteArray m_answer;          ///< the start of the answer's body
    qint64 m_bytesSent = 0;
    bool m_started = false;
    bool m_finished = false;
    PoolWork m_work; // last: destroyed first
};

} // namespace Velmora
