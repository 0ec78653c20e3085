#include "transfer/FileTransferManager.h"

#include "crypto/Cipher.h"
#include "model/Json.h"
#include "transfer/DownloadObjects.h"
#include "transfer/FileUpload.h"
#include "transport/RequestBody.h"

#include <algorithm>
#include <vector>

namespace Velmora {

namespace {

// Uploads that may be past their start at once: enough to keep every connection to the storage and the
// pool busy, few enough that encrypted copies and open files do not pile up.
constexpr int uploadsAtOnce = 10;

ApiError alreadyRunning()
{
    return {400, "Unable to Initiate Download",
            "The requested file was already being downloaded to the same location, or it is in the process of being "
            "edited on the cloud.\nPlease try again later."};
}

// Takes the transfers out of the list that `wanted` picks.
template <class Transfer, class Predicate>
std::vector<std::unique_ptr<Transfer>> take(std::list<std::unique_ptr<Transfer>> &transfers, Predicate wanted)
{
    std::vector<std::unique_ptr<Transfer>> taken;
    for (auto next = transfers.begin(); next != transfers.end();) {
        if (wanted(**next)) {
            taken.push_back(std::move(*next));
            next = transfers.erase(next);
        } else {
            ++next;
        }
    }
    return taken;
}

} // namespace

FileTransferManager::FileTransferManager() = default;

FileTransferManager::~FileTransferManager() = default;

void FileTransferManager::withKey(QObject *context, const std::string &jobId, const EncryptionKeyCB &then)
{
    const QString job = toQt(jobId);
    if (const QByteArray key = m_keys.value(job); !key.isEmpty()) {
        then({200, {}, {}}, key);
        return;
    }
    const bool underWay = m_keyWaiters.contains(job);
    m_keyWaiters[job].push_back({context, then});
    if (underWay)
        return;
    Q_EMIT requestAESKey(jobId, [self = QPointer<FileTransferManager>(this), job](const auto &error, const auto &key) {
        if (self)
            self->onKey(job, error, key);
    });
}

void FileTransferManager::onKey(const QString &jobId, const ApiError &error, const QByteArray &key)
{
    ApiError outcome = error;
    if (outcome.errorCode < 300 && !key.isEmpty() && key.size() <= cipherKeySize)
        m_keys.insert(jobId, key);
    else if (outcome.errorCode < 300)
        outcome = {400, "Error Requesting Encryption Key", "The service gave no usable encryption key for the job."};
    const std::list<KeyWaiter> waiters = m_keyWaiters.take(jobId);
    for (const KeyWaiter &waiter : waiters) {
        if (waiter.context)
            waiter.then(outcome, m_keys.value(jobId));
    }
}

void FileTransferManager::uploadFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                                     const ResultDone<FileUploadDetails> &onComplete)
{
    m_uploads.push_back(std::make_unique<FileUpload>(file, onProgress, onComplete));
    FileUpload *upload = m_uploads.back().get();
    connect(upload, &FileUpload::signalEncryptionDone, this, [this, upload] {
        Q_EMIT requestUploadURL(upload->jobId(),
                                [target = QPointer<FileUpload>(upload)](const auto &error, const auto &address) {
                                    if (!target)
                                        return;
                                    if (error.errorCode >= 300)
                                        target->fail(error);
                                    else
                                        target->send(address);
                                });
    });
    connect(upload, &FileUpload::signalSend, this,
            [this, upload](const QNetworkRequest &request, const QByteArray &verb, RequestBody *body, bool multipart) {
                if (multipart)
                    Q_EMIT requestUploadPostMultiPart(upload, request, body);
                else
                    Q_EMIT requestUploadPostFile(upload, request, verb, body);
            });
    connect(upload, &FileUpload::signalUploadComplete, this,
            [this, upload](const ApiError &error) { slotUploadComplete(upload, error); });
    withKey(upload, upload->jobId(), [this, upload](const ApiError &error, const QByteArray &key) {
        if (error.errorCode >= 300) {
            upload->fail(error);
        } else {
            upload->setKey(key);
            startUploads();
        }
    });
}

void FileTransferManager::startUploads()
{
    auto started =
        std::count_if(m_uploads.begin(), m_uploads.end(), [](const auto &each) { return each->isStarted(); });
    for (const auto &upload : m_uploads) {
        if (started >= uploadsAtOnce)
            return;
        if (!upload->isReady())
            continue;
        ++started;
        upload->encrypt();
    }
}

void FileTransferManager::slotUploadComplete(FileUpload *upload, const ApiError &error)
{
    const auto callback = upload->onComplete();
    const FileUploadDetails details = upload->details();
    take(m_uploads, [upload](const FileUpload &each) { return &each == upload; });
    startUploads();
    if (callback)
        callback(error, details);
}

void FileTransferManager::downloadFile(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                                       const ResultDone<FileDownloadDetails> &onComplete)
{
    const bool running = std::any_of(m_downloads.begin(), m_downloads.end(),
                                     [&file](const auto &each) { return !each->isOver() && each->isFor(file); });
    if (running) {
        if (const auto callback = onComplete)
            callback(alreadyRunning(), FileDownloadDetails(file));
        return;
    }
    m_downloads.push_back(std::make_unique<DownloadObjects>(file, onProgress, onComplete));
    DownloadObjects *download = m_downloads.back().get();
    connect(download, &DownloadObjects::downloadComplete, this,
            [this, download](const ApiError &error) { slotDownloadComplete(download, error); });
    Q_EMIT requestDownloadURL(
        file.cloudFileDetails.jobId, file.cloudFileDetails.fileName,
        [this, target = QPointer<DownloadObjects>(download)](const ApiError &error, const QJsonObject &address) {
            if (!target)
                return;
            if (error.errorCode >= 300)
                target->fail(error);
            else
                startDownload(target, address);
        });
}

void FileTransferManager::startDownload(DownloadObjects *download, const QJsonObject &address)
{
    const QJsonArray chunks = address.value(QLatin1String("chunks")).toArray();
    const auto whenKeyed = [this, download, chunks](const ApiError &error, const QByteArray &key) {
        if (error.errorCode >= 300) {
            download->fail(error);
            return;
        }
        QSet<QString> taken;
        for (const auto &other : m_downloads) {
            if (other.get() != download && !other->isOver())
                taken.unite(other->paths());
        }
        if (!download->prepare(chunks, key, taken)) {
            download->fail(alreadyRunning());
            return;
        }
        for (const auto &piece : download->pieces()) {
            connect(piece.get(), &FileDownload::signalFetch, this,
                    [this, target = piece.get()](const QNetworkRequest &request, RequestBody *form) {
                        Q_EMIT requestDownloadGetOrPostMultiPart(target, request, form);
                    });
        }
        download->begin();
    };
    withKey(download, download->details().cloudFileDetails.jobId, whenKeyed);
}

void FileTransferManager::slotDownloadComplete(DownloadObjects *download, const ApiError &error)
{
    const auto callback = download->onComplete();
    const FileDownloadDetails details = download->details();
    take(m_downloads, [download](const DownloadObjects &each) { return &each == download; });
    if (callback)
        callback(error, details);
}

// A callback may destroy this object: the transfers are taken out and destroyed first, and no further
// callback runs once this object has gone.
bool FileTransferManager::cancelUpload(const FileUploadDetails &file)
{
    auto cancelled = take(m_uploads, [&file](const FileUpload &each) { return !each.isOver() && each.isFor(file); });
    if (cancelled.empty())
        return false;
    std::vector<std::pair<ResultDone<FileUploadDetails>, FileUploadDetails>> completions;
    for (const auto &upload : cancelled)
        completions.emplace_back(upload->onComplete(), upload->details());
    cancelled.clear();
    startUploads();
    const QPointer<FileTransferManager> self(this);
    for (const auto &[callback, details] : completions) {
        if (self && callback)
            callback({400, "Upload Cancelled", "The upload of this file was cancelled."}, details);
    }
    return true;
}

bool FileTransferManager::cancelDownload(const FileDownloadDetails &file)
{
    auto cancelled =
        take(m_downloads, [&file](const DownloadObjects &each) { return !each.isOver() && each.hasTarget(file); });
    if (cancelled.empty())
        return false;
    const auto callback = cancelled.front()->onComplete();
    const FileDownloadDetails details = cancelled.front()->details();
    cancelled.clear();
    if (callback)
        callback({400, "Download Cancelled", "The download of this file was cancelled."}, details);
    return true;
}

} // namespace Velmora
