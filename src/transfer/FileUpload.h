#pragma once

#include "base/PoolWork.h"
#include "storage/StorageClient.h"

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
///     waiting for the key ── examine() ─▶ looking at the file (pool) ─ signalExamined ─▶ waiting for the address
///         ── send() ─▶ sending ── follow() ─▶ answered ─ signalUploadComplete ─▶ finished
///
/// Every state may instead fail (`fail()`) or be destroyed, which cancels the request. Owned by the
/// `FileTransferManager`. The file is encrypted while it is sent; only its encryption leaves the machine, and nothing
/// is written.
class FileUpload : public QObject {
    Q_OBJECT
public:
    FileUpload(const FileUploadDetails &file, const UploadProgress &onProgress,
               const ResultDone<FileUploadDetails> &onComplete, QThreadPool *pool);
    ~FileUpload() override;

    /// Same local file, same job.
    bool isFor(const FileUploadDetails &file) const;
    const std::string &jobId() const { return m_details.cloudFileJobID; }
    /// What callbacks receive: the size is the one found on disk.
    const FileUploadDetails &details() const { return m_details; }
    const ResultDone<FileUploadDetails> &onComplete() const { return m_onComplete; }
    /// True once the outcome is certain: too late to cancel.
    bool isFinished() const { return m_finished; }

    void examine(const QByteArray &key);
    /// Prepares the request for the address that the portal handed out.
    void send(const QJsonObject &address);
    /// Starts the request and follows it to its end. @param counted  released when the request has ended
    void follow(StorageClient &storage, const StorageRequest &request, std::shared_ptr<void> counted);
    void fail(const ApiError &error);

Q_SIGNALS:
    void signalExamined();
    /// `multipart` distinguishes a form from the bare file.
    void signalSend(const StorageRequest &request, bool multipart);
    /// The last signal; emitted from a clean stack.
    void signalUploadComplete(const ApiError &error);

private:
    void reportProgress(qint64 bytesSent);
    void onAnswered(const StorageAnswer &answer);
    void finish(const ApiError &error);

    FileUploadDetails m_details;
    UploadProgress m_onProgress;
    ResultDone<FileUploadDetails> m_onComplete;
    std::shared_ptr<Source> m_source;
    QPointer<StorageClient> m_storage; ///< while a request is under way
    StorageClient::Id m_request = 0;
    std::shared_ptr<void> m_counted;
    bool m_finished = false;
    PoolWork m_work; // last: destroyed first
};

} // namespace Velmora
