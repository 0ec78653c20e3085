#pragma once

#include "api/Application.h"
#include "base/PoolWork.h"
#include "transfer/AddressCache.h"
#include "transfer/FileTransferManager.h"
#include "transport/Endpoints.h"
#include "transport/Outcome.h"

#include <velmora/CloudAPI.h>

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

#include <memory>
#include <utility>

class QJsonArray;
class QJsonObject;
class QNetworkReply;

namespace Velmora {

class SocketManager;

/// The engine behind `CloudAPI`: the session, the one request pipeline, and the operations, whose
/// definitions live in src/operations.
///
/// Lifetime rules that every member keeps:
/// - Host callbacks run from a clean stack: replies and sockets are read inside Qt's signals, the
///   callback is queued (`deliver`). So a callback may destroy this object, and with it replies and
///   sockets, while no signal of theirs is being emitted.
/// - After a callback nothing of this object is touched.
/// - Whatever is still queued dies with this object, uncalled.
class CloudAPIImpl : public QObject {
    Q_OBJECT
public:
    using Done = CloudAPI::Done;
    template <class Result> using ResultDone = CloudAPI::ResultDone<Result>;

    CloudAPIImpl();
    ~CloudAPIImpl() override;

    // Session
    void applyProxy(const ProxyDefinition &proxy);
    void setAPIPortal(PortalTarget portal);
    int currentNetworkStatus();
    bool isUserLoggedIn() const { return m_loggedIn; }
    void clearActiveAccount();
    void logUserIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
                   const Done &onComplete);
    void checkMFAEnabled(const std::string &emailAddress, const ResultDone<bool> &onComplete);

    // Jobs
    void generateNewJobID(const std::string &accountId, const std::string &hpcId,
                          const ResultDone<std::string> &onComplete);
    void submitNewJob(const std::string &submissionJson, const ResultDone<JobDetails> &onComplete);
    void submitNewJob(const JobSubmit &job, const ResultDone<JobDetails> &onComplete);
    void requestAllJobInformation(const ResultDone<std::list<JobDetails>> &onComplete);
    void getJobDetails(const std::string &jobId, const ResultDone<JobDetails> &onComplete);
    void getJobProgress(const std::string &jobId, const ResultDone<JobProgress> &onComplete);
    void killJob(const std::string &jobId, const ResultDone<std::list<SimulationAbortState>> &onComplete);
    void killSimulation(const std::string &jobId, const std::string &simulationId,
                        const ResultDone<SimulationAbortState> &onComplete);
    void archiveJob(const std::string &jobId, const ResultDone<std::list<JobDetails>> &onComplete);

    // Accounts, users, clusters
    void getAccountList(const ResultDone<std::list<AccountDetails>> &onComplete);
    void getAccountBalance(const std::string &accountId, const ResultDone<AccountBalance> &onComplete);
    void getHpcList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete);
    void getHpcPreferenceList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete);
    void getCurrentUserDetails(const ResultDone<UserDetails> &onComplete);
    void modifyCurrentUserDetails(const std::string &lastName, const std::string &firstName,
                                  const std::string &companyName, const ResultDone<UserDetails> &onComplete);
    void sendUserEvent(const std::string &eventType, const std::string &eventSource, const std::string &eventValue,
                       const Done &onComplete);

    // Tags
    void tagJob(const std::string &jobId, const std::string &tag, const ResultDone<std::list<ItemTag>> &onComplete);
    void untagJob(const std::string &jobId, const std::string &tag, const ResultDone<std::list<ItemTag>> &onComplete);
    void getJobTags(const std::string &jobId, const ResultDone<std::list<ItemTag>> &onComplete);
    void getAllAccountTags(const std::string &accountId, const ResultDone<std::list<ItemTag>> &onComplete);
    void searchUserTags(const std::list<std::string> &tags, const ResultDone<std::list<JobDetails>> &onComplete);

    // Files
    void getJobFileList(const std::string &jobId, bool showAllFiles,
                        const ResultDone<std::list<CloudFile>> &onComplete);
    void getSimulationFileList(const std::string &jobId, const std::string &simulationId, bool showAllFiles,
                               const ResultDone<std::list<CloudFile>> &onComplete);
    void getUsersFileList(bool showAllFiles, const ResultDone<std::list<CloudFile>> &onComplete);
    void deleteFile(const DeleteFileDetails &file, const ResultDone<DeleteFileDetails> &onComplete);

    /// Returns false when it was refused, and has completed, at once.
    bool uploadFile(const FileUploadDetails &file, const CloudAPI::UploadProgress &onProgress,
                    const ResultDone<FileUploadDetails> &onComplete);
    void uploadInputFile(const FileUploadDetails &file, const CloudAPI::UploadProgress &onProgress,
                         const ResultDone<FileUploadDetails> &onComplete);
    void downloadFile(const FileDownloadDetails &file, const CloudAPI::DownloadProgress &onProgress,
                      const ResultDone<FileDownloadDetails> &onComplete);
    bool cancelUpload(const FileUploadDetails &file);
    bool cancelDownload(const FileDownloadDetails &file);

    // What transfers ask for
    void handleAESKeyRequest(const std::string &jobId, const EncryptionKeyCB &onCompleteCB);
    void handleUploadURLRequest(const std::string &jobId, const UploadUrlCB &onCompleteCB);
    void handleDownloadURLRequest(const std::string &jobId, const std::string &fileName,
                                  const DownloadUrlCB &onCompleteCB);
    void handleUploadMultiPartRequest(FileUpload *uploadRunnable, const QNetworkRequest &request, RequestBody *body);
    void handleUploadFileRequest(FileUpload *uploadRunnable, const QNetworkRequest &request, const QByteArray &verb,
                                 RequestBody *body);
    void handleDownloadMultiPartRequest(FileDownload *downloadRunnable, const QNetworkRequest &request,
                                        RequestBody *form);

    // Live progress
    void subscribeToJob(const std::string &jobId, const CloudAPI::JobMessage &onMessage,
                        const CloudAPI::JobMessage &onFinished);
    void unsubscribeFromJob(const std::string &jobId);

    // Requests. The senders count and log; the count falls again when the manager reports the reply.
    QString baseUrl() const;
    QUrl endpointUrl(RequestType type) const;
    QNetworkRequest buildRequest(RequestType type) const;
    QNetworkReply *sendJson(QNetworkRequest request, const QByteArray &body);
    QNetworkReply *sendGet(QNetworkRequest request);
    QNetworkReply *sendDelete(QNetworkRequest request);
    QNetworkReply *sendCustom(QNetworkRequest request, const QByteArray &verb, const QByteArray &body);
    QNetworkReply *sendMultipart(QNetworkRequest request, RequestBody *body);
    QNetworkReply *sendStream(QNetworkRequest request, const QByteArray &verb, RequestBody *body);

    /// Milliseconds since the epoch, for the age of transfer addresses.
    void setClock(std::function<qint64()> clock) { m_clock = std::move(clock); }

private:
    static constexpr int largeBody = 65536; ///< bytes; read in about a millisecond

    enum class Verb { Post, Get, Delete, DeleteWithBody };

    /// One REST request, described.
    struct Request {
        RequestType type;
        Verb verb = Verb::Post;
        QByteArray body = {};
        QString suffix = {}; ///< appended to the endpoint's URL as it stands
    };

    /// Sends, and calls `handle(Outcome &)` once when the reply has finished, inside Qt's signal:
    /// `handle` calls no host code, it hands it to `deliver`. Never called when this object goes first.
    template <class Handle> void exchange(const Request &request, Handle handle);

    /// Calls `then(read(body))`: at once, or, for a body so large that the host would feel it, once it has
    /// been read on another thread. `read` uses nothing of this object.
    template <class Read, class Then> void readBody(const QByteArray &body, Read read, Then then);

    /// The pipeline of nearly every operation: send, classify, read the body with `read` when the
    /// request succeeded, complete with the error and the (otherwise default) result.
    template <class Result, class Read>
    void call(const Request &request, Read read, const ResultDone<Result> &onComplete);
    template <class Record> void callForRecord(const Request &request, const ResultDone<Record> &onComplete);
    template <class Record> void callForList(const Request &request, const ResultDone<std::list<Record>> &onComplete);

    /// Calls a host callback, if there is one, from a clean stack.
    template <class... Parameters, class... Values>
    void deliver(const std::function<void(Parameters...)> &callback, Values &&...values);

    QNetworkReply *send(const Request &request);
    QNetworkReply *sendOnce(QNetworkRequest request, const QByteArray &verb, const QByteArray &body);
    void announce(const char *text);
    void onRequestFinished();
    void requestTokens(RequestType type, const QJsonObject &body, const Done &onComplete);
    void acceptTokens(RequestType type, const QByteArray &body);
    void renewToken(const Done &onComplete);
    void getHpcs(bool preferredOnly, const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete);
    void listFiles(const QString &suffix, bool showAllFiles, const ResultDone<std::list<CloudFile>> &onComplete);
    using FileListHandler = std::function<void(const Outcome &, std::list<CloudFile> &&)>;
    void requestFileList(const QString &suffix, bool showAllFiles, const FileListHandler &handle);
    void connectTransfers();
    bool answerDownload(const QString &key, const DownloadUrlCB &then);
    void rememberDownloads(const QJsonArray &files);
    void callForTags(const Request &request, const ResultDone<std::list<ItemTag>> &onComplete);

    ApplicationClaim m_application; // first, so that it outlives all other members
    std::unique_ptr<FileTransferManager> m_transfers;
    std::unique_ptr<SocketManager> m_sockets;
    std::unique_ptr<QNetworkAccessManager> m_network;
    QString m_idToken;
    QString m_refreshToken;
    int m_tokenLifetime = 0; // seconds
    bool m_loggedIn = false;
    int m_requestsInFlight = 0;
    std::unique_ptr<QTimer> m_refreshTimer; // null until the first token reply
    PortalTarget m_portal = PortalTarget::Production;

    QThreadPool m_readerPool;      // its own: a listing does not wait for gigabytes to be encrypted
    std::list<PoolWork> m_readers; // large bodies being read

    struct DownloadWaiter {
        QString key;
        DownloadUrlCB then;
    };
    std::function<qint64()> m_clock;
    AddressCache m_uploadAddresses;                               ///< by job
    AddressCache m_downloadAddresses;                             ///< by "job/file": the pieces of the latest listing
    QMap<QString, std::list<UploadUrlCB>> m_uploadAddressWaiters; ///< by job, while a request is under way
    QMap<QString, std::list<DownloadWaiter>> m_downloadWaiters;   ///< likewise
};

} // namespace Velmora
