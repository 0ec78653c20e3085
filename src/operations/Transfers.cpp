// Uploads and downloads: their start, and what the transfers ask the portal for.

#include "base/Log.h"
#include "transfer/DownloadObjects.h"
#include "transfer/FileUpload.h"
#include "transport/Pipeline.h"
#include "transport/RequestBody.h"

#include <QDir>
#include <QEventLoop>

namespace Velmora {

namespace {

FileUploadDetails withNativePath(FileUploadDetails file)
{
    file.localFileLocation = QDir::toNativeSeparators(toQt(file.localFileLocation)).toStdString();
    return file;
}

// Transfers are stricter than operations: an answer that did not arrive whole is a failure.
ApiError transferError(const Outcome &outcome, RequestType type = RequestType::JobFilesUpload)
{
    if (outcome.failed || outcome.broken.isEmpty())
        return outcome.error;
    return {400, errorTitle(type).toStdString(), outcome.broken.toStdString()};
}

QString downloadKey(const QString &jobId, const QString &fileName)
{
    return QStringLiteral("%1/%2").arg(jobId, fileName);
}

} // namespace

void CloudAPIImpl::connectTransfers()
{
    FileTransferManager *transfers = m_transfers.get();
    connect(transfers, &FileTransferManager::requestAESKey, this, &CloudAPIImpl::handleAESKeyRequest);
    connect(transfers, &FileTransferManager::requestUploadURL, this, &CloudAPIImpl::handleUploadURLRequest);
    connect(transfers, &FileTransferManager::requestDownloadURL, this, &CloudAPIImpl::handleDownloadURLRequest);
    connect(transfers, &FileTransferManager::requestUploadPostMultiPart, this,
            &CloudAPIImpl::handleUploadMultiPartRequest);
    connect(transfers, &FileTransferManager::requestUploadPostFile, this, &CloudAPIImpl::handleUploadFileRequest);
    connect(transfers, &FileTransferManager::requestDownloadGetOrPostMultiPart, this,
            &CloudAPIImpl::handleDownloadMultiPartRequest);
}

bool CloudAPIImpl::uploadFile(const FileUploadDetails &file, const CloudAPI::UploadProgress &onProgress,
                              const ResultDone<FileUploadDetails> &onComplete)
{
    const FileUploadDetails native = withNativePath(file);
    VELMORA_LOG() << "in CloudAPIImpl::uploadFile(): " << toQt(native.localFileLocation);
    if (!native.localFileLocation.empty() && !native.cloudFileJobID.empty()) {
        m_transfers->uploadFile(native, onProgress, onComplete);
        return true;
    }
    if (const auto callback = onComplete) // a copy: the callback may destroy the original
        callback({400, "Incorrect setup of UploadFile",
                  native.localFileLocation.empty() ? "Local File to upload was not provided"
                                                   : "No Job ID to upload file into was provided"},
                 native);
    return false;
}

void CloudAPIImpl::uploadInputFile(const FileUploadDetails &file, const CloudAPI::UploadProgress &onProgress,
                                   const ResultDone<FileUploadDetails> &onComplete)
{
    const PumpScope pumping;
    QEventLoop loop;
    bool done = false;
    connect(this, &QObject::destroyed, &loop, &QEventLoop::quit); // by a callback
    const bool started = uploadFile(file, onProgress,
                                    [onComplete, &done, waiting = QPointer<QEventLoop>(&loop)](
                                        const ApiError &error, const FileUploadDetails &details) {
                                        if (onComplete)
                                            onComplete(error, details);
                                        if (waiting) {
                                            done = true;
                                            waiting->quit();
                                        }
                                    });
    if (started && !done)
        loop.exec();
}

bool CloudAPIImpl::cancelUpload(const FileUploadDetails &file)
{
    return m_transfers->cancelUpload(withNativePath(file));
}

void CloudAPIImpl::downloadFile(const FileDownloadDetails &file, const CloudAPI::DownloadProgress &onProgress,
                                const ResultDone<FileDownloadDetails> &onComplete)
{
    m_transfers->downloadFile(file, onProgress, onComplete);
}

bool CloudAPIImpl::cancelDownload(const FileDownloadDetails &file) { return m_transfers->cancelDownload(file); }

void CloudAPIImpl::handleAESKeyRequest(const std::string &jobId, const EncryptionKeyCB &onCompleteCB)
{
    VELMORA_LOG() << "in CloudAPI::getEncryptionKey(): ZRV call being made for encryption key";
    exchange({RequestType::JobKey, Verb::Post, bodyOf({{"jobId", jobId}})}, [onCompleteCB](const Outcome &outcome) {
        const QJsonValue key = QJsonDocument::fromJson(outcome.body).object().value(QLatin1String("key"));
        const auto decoded = QByteArray::fromBase64Encoding(key[QLatin1String("plaintextKey")].toString().toLatin1(),
                                                            QByteArray::AbortOnBase64DecodingErrors);
        onCompleteCB(transferError(outcome, RequestType::JobKey), decoded ? *decoded : QByteArray());
    });
}

void CloudAPIImpl::handleUploadURLRequest(const std::string &jobId, const UploadUrlCB &onCompleteCB)
{
    const QString job = toQt(jobId);
    VELMORA_LOG() << "in CloudAPI::handleUploadURLRequest() for" << job;
    if (const auto cached = m_uploadAddresses.find(job, m_clock())) {
        onCompleteCB({200, {}, {}}, cached->toObject());
        return;
    }
    VELMORA_LOG() << "Did not find cached upload request for job" << job;
    const bool underWay = m_uploadAddressWaiters.contains(job);
    m_uploadAddressWaiters[job].push_back(onCompleteCB);
    if (underWay)
        return;
    exchange({RequestType::JobFilesUpload, Verb::Get, {}, QStringLiteral("/uploadUrl/%1").arg(job)},
             [this, job](const Outcome &outcome) {
                 const ApiError error = transferError(outcome);
                 const QJsonObject address = QJsonDocument::fromJson(outcome.body).object();
                 if (error.errorCode < 300 && address.contains(QLatin1String("uri")))
                     m_uploadAddresses.store(job, address, m_clock());
                 const auto waiters = m_uploadAddressWaiters.take(job);
                 for (const UploadUrlCB &waiter : waiters)
                     waiter(error, address);
             });
}

void CloudAPIImpl::handleDownloadURLRequest(const std::string &jobId, const std::string &fileName,
                                            const DownloadUrlCB &onCompleteCB)
{
    const QString job = toQt(jobId);
    const QString key = downloadKey(job, toQt(fileName));
    VELMORA_LOG() << "in CloudAPI::handleDownloadURLRequest() for" << key;
    if (answerDownload(key, onCompleteCB))
        return;
    VELMORA_LOG() << "Did not find cached download requests for job" << job;
    const bool underWay = m_downloadWaiters.contains(job);
    m_downloadWaiters[job].push_back({key, onCompleteCB});
    if (underWay)
        return;
    VELMORA_LOG() << "in CloudAPI::getJobFileList(): ZRV call for all users files in this job: " << job;
    requestFileList(QStringLiteral("/%1").arg(job), true, [this, job](const Outcome &outcome, std::list<CloudFile> &&) {
        const ApiError error = transferError(outcome);
        const auto waiters = m_downloadWaiters.take(job);
        for (const DownloadWaiter &waiter : waiters) {
            if (error.errorCode >= 300)
                waiter.then(error, {});
            else if (!answerDownload(waiter.key, waiter.then))
                waiter.then({404, "Unable to download file",
                             waiter.key.mid(job.size() + 1).toStdString() + " is not among the files of job " +
                                 job.toStdString() + '.'},
                            {});
        }
    });
}

bool CloudAPIImpl::answerDownload(const QString &key, const DownloadUrlCB &then)
{
    const auto chunks = m_downloadAddresses.find(key, m_clock());
    if (!chunks)
        return false;
    then({200, {}, {}}, {{QLatin1String("chunks"), *chunks}});
    return true;
}

void CloudAPIImpl::rememberDownloads(const QJsonArray &files)
{
    const qint64 now = m_clock();
    if (const int removed = m_downloadAddresses.removeStale(now))
        VELMORA_LOG() << "Cleared" << removed << "file download requests from cache.";
    for (const QJsonValue &file : files) {
        const QJsonValue chunks = file[QLatin1String("downloadRequest")];
        if (chunks.isArray())
            m_downloadAddresses.store(
                downloadKey(file[QLatin1String("jobId")].toString(), file[QLatin1String("fileName")].toString()),
                chunks, now);
    }
    // Downloads that wait for a listing of their own may find what they need in this one.
    for (auto &waiters : m_downloadWaiters)
        waiters.remove_if([this](const DownloadWaiter &waiter) { return answerDownload(waiter.key, waiter.then); });
}

void CloudAPIImpl::handleUploadMultiPartRequest(FileUpload *uploadRunnable, const QNetworkRequest &request,
                                                RequestBody *body)
{
    uploadRunnable->follow(sendMultipart(request, body));
}

void CloudAPIImpl::handleUploadFileRequest(FileUpload *uploadRunnable, const QNetworkRequest &request,
                                           const QByteArray &verb, RequestBody *body)
{
    uploadRunnable->follow(sendStream(request, verb, body));
}

void CloudAPIImpl::handleDownloadMultiPartRequest(FileDownload *downloadRunnable, const QNetworkRequest &request,
                                                  RequestBody *form)
{
    downloadRunnable->follow(form ? sendMultipart(request, form) : sendGet(request));
}

} // namespace Velmora
