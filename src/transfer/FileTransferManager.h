#pragma once

#include "transfer/DownloadObjects.h"
#include "transfer/Waiter.h"

#include <velmora/Callbacks.h>
#include <velmora/ClientOptions.h>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QThreadPool>

#include <list>
#include <memory>

namespace Velmora {

class FileUpload;
struct StorageRequest;

/// Owns every running upload and download. What a transfer needs from the portal, and every request it sends, it asks
/// for by the request signals. The engine connects them to `JobGrants` and to the `RestClient`.
///
/// Callbacks of the application run from a clean stack. Destroying the manager ends all transfers without their
/// completions and leaves none of their temporary files behind.
class FileTransferManager : public QObject {
    Q_OBJECT
public:
    /// @param uploadPool  where uploads look at their files; outlives this
    explicit FileTransferManager(QThreadPool *uploadPool);
    ~FileTransferManager() override;

    /// For the transfers that follow.
    void setOptions(const ClientOptions &options) { m_retries.tries = options.transferRetries; }
    /// As above; tests lower it.
    void setFirstRetryPause(int milliseconds) { m_retries.firstPause = milliseconds; }
    void uploadFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                    const ResultDone<FileUploadDetails> &onComplete);
    void downloadFile(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                      const ResultDone<FileDownloadDetails> &onComplete);
    bool cancelUpload(const FileUploadDetails &file);
    bool cancelDownload(const FileDownloadDetails &file);

Q_SIGNALS:
    void requestAESKey(const std::string &jobId, const EncryptionKeyCB &onCompleteCB);
    void requestUploadURL(const std::string &jobId, const UploadUrlCB &onCompleteCB);
    void requestDownloadURL(const std::string &jobId, const std::string &fileName, const DownloadUrlCB &onCompleteCB);
    /// The storage refused it, or it grew too old.
    void uploadAddressSpent(const std::string &jobId, const QJsonObject &address);
    void downloadAddressSpent(const std::string &jobId, const std::string &fileName, const QJsonObject &address);
    /// What the cloud holds under this name is about to be replaced, or was.
    void cloudFileChanged(const std::string &jobId, const QString &fileName);
    // The receiver calls `follow` with a client that sends the request.
    void requestUploadPostMultiPart(FileUpload *uploadRunnable, const StorageRequest &request);
    void requestUploadPostFile(FileUpload *uploadRunnable, const StorageRequest &request);
    void requestDownloadGetOrPostMultiPart(FileDownload *downloadRunnable, const StorageRequest &request);

private:
    void slotUploadComplete(FileUpload *upload, const ApiError &error);
    void requestAddresses(DownloadObjects *download);
    void requestKey(DownloadObjects *download, const Grant &grant);
    void startDownload(DownloadObjects *download, const Grant &grant, const QByteArray &key);
    void slotDownloadComplete(DownloadObjects *download, const ApiError &error);

    RetryPolicy m_retries;
    DownloadPools m_pools;
    QThreadPool *m_uploadPool;
    std::list<std::unique_ptr<FileUpload>> m_uploads;
    std::list<std::unique_ptr<DownloadObjects>> m_downloads;
};

} // namespace Velmora
