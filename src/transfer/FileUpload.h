#pragma once

#include "base/PoolWork.h"
#include "storage/StorageClient.h"
#include "transfer/Retry.h"
#include "transfer/Waiter.h"

#include <velmora/Callbacks.h>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

namespace Velmora {

class Source;

/// One file on its way into a job's storage.
///
///     start() ─ signalKeyWanted ─▶ waiting for the key ── examine() ─▶ looking at the file (pool)
///         ─ signalAddressWanted ─▶ waiting for the address ── send() ─▶ sending ── follow() ─▶ answered
///         ─ signalUploadComplete ─▶ finished
///
/// Every state may instead fail, or be destroyed, which cancels the request. What may go better next time begins again
/// with the first state, after a pause, as often as the policy says. Owned by the
/// `FileTransferManager`. The file is encrypted while it is sent; only its encryption leaves the machine, and nothing
/// is written.
class FileUpload : public QObject {
    Q_OBJECT
public:
    FileUpload(const FileUploadDetails &file, const UploadProgress &onProgress,
               const ResultDone<FileUploadDetails> &onComplete, QThreadPool *pool, const RetryPolicy &policy);
    ~FileUpload() override;

    /// Same local file, same job.
    bool isFor(const FileUploadDetails &file) const;
    const std::string &jobId() const { return m_details.cloudFileJobID; }
    QString cloudName() const; ///< without folders
    /// What callbacks receive: the size is the one found on disk.
    const FileUploadDetails &details() const { return m_details; }
    const ResultDone<FileUploadDetails> &onComplete() const { return m_onComplete; }
    /// True once the outcome is certain: too late to cancel.
    bool isFinished() const { return m_finished; }

    void start();
    void examine(const GrantError &error, const QByteArray &key);
    /// Prepares the request for the address that the portal handed out.
    void send(const GrantError &error, const Grant &grant);
    /// Starts the request and follows it to its end. @param counted  released when the request has ended
    void follow(StorageClient &storage, const StorageRequest &request, std::shared_ptr<void> counted);

Q_SIGNALS:
    void signalKeyWanted();
    void signalAddressWanted();
    /// The storage refused it, or it grew too old.
    void signalAddressSpent(const QJsonObject &address);
    /// `multipart` distinguishes a form from the bare file.
    void signalSend(const StorageRequest &request, bool multipart);
    /// The last signal; emitted from a clean stack.
    void signalUploadComplete(const ApiError &error);

private:
    void reportProgress(qint64 bytesSent);
    void onAnswered(const StorageAnswer &answer);
    void finishOrTryAgain(const ApiError &error, bool mayPass);
    void finish(const ApiError &error);

    FileUploadDetails m_details;
    UploadProgress m_onProgress;
    ResultDone<FileUploadDetails> m_onComplete;
    Retry m_retry;
    std::shared_ptr<Source> m_source; ///< of this try
    Grant m_grant;
    bool m_hasWaited = false;          ///< for its turn, with an address that grew too old
    qint64 m_reported = 0;             ///< bytes, in the best try so far
    QPointer<StorageClient> m_storage; ///< while a request is under way
    StorageClient::Id m_request = 0;
    std::shared_ptr<void> m_counted;
    bool m_finished = false;
    PoolWork m_work; // last: destroyed first
};

} // namespace Velmora
