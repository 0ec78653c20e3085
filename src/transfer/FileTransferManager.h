#pragma once

#include <velmora/Callbacks.h>

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <list>
#include <memory>

namespace Velmora {

class DownloadObjects;
class FileDownload;
class FileUpload;
class RequestBody;

/// Answers of the portal to a transfer. On failure the second argument is empty. May be called from
/// inside a signal of the network layer.
using EncryptionKeyCB = std::function<void(const ApiError &, const QByteArray &key)>;
using UploadUrlCB = std::function<void(const ApiError &, const QJsonObject &address)>;
using DownloadUrlCB = std::function<void(const ApiError &, const QJsonObject &address)>;

/// Owns every running upload and download, and the jobs' keys. What a transfer needs from the portal,
/// and every request it sends, it asks for by the request signals, which `CloudAPIImpl` answers.
///
/// Host callbacks run from a clean stack. Destroying the manager ends all transfers without their
/// completions and leaves none of their temporary files behind.
class FileTransferManager : public QObject {
    Q_OBJECT
public:
    FileTransferManager();
    ~FileTransferManager() override;

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
    /// The receiver sends the request, takes over `body` and calls `follow` with the reply.
    void requestUploadPostMultiPart(FileUpload *uploadRunnable, const QNetworkRequest &request, RequestBody *body);
    void requestUploadPostFile(FileUpload *uploadRunnable, const QNetworkRequest &request, const QByteArray &verb,
                               RequestBody *body);
    void requestDownloadGetOrPostMultiPart(FileDownload *downloadRunnable, const QNetworkRequest &request,
                                           RequestBody *form);

private:
    /// Calls `then` with the job's key, or with the error: at once when the key is known. Transfers
    /// that wait for the same job's key share one request. Not called when `context` dies first.
    void withKey(QObject *context, const std::string &jobId, const EncryptionKeyCB &then);
    void onKey(const QString &jobId, const ApiError &error, const QByteArray &key);
    void startUploads();
    void slotUploadComplete(FileUpload *upload, const ApiError &error);
    void startDownload(DownloadObjects *download, const QJsonObject &address);
    void slotDownloadComplete(DownloadObjects *download, const ApiError &error);

    struct KeyWaiter {
        QPointer<QObject> context;
        EncryptionKeyCB then;
    };

    QMap<QString, QByteArray> m_keys;
    QMap<QString, std::list<KeyWaiter>> m_keyWaiters; ///< an entry while a request is under way
    std::list<std::unique_ptr<FileUpload>> m_uploads;
    std::list<std::unique_ptr<DownloadObjects>> m_downloads;
};

} // namespace Velmora
