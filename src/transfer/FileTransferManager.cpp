#include "transfer/FileTransferManager.h"

#include "transfer/FileUpload.h"
#include "transfer/Titles.h"

#include <QPointer>

#include <algorithm>
#include <vector>

namespace Velmora {

namespace {

ApiError alreadyRunning()
{
    return {400, Titles::DownloadNotStarted,
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

FileTransferManager::FileTransferManager(QThreadPool *uploadPool)
    : m_uploadPool(uploadPool)
{
}

FileTransferManager::~FileTransferManager() = default;

void FileTransferManager::uploadFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                                     const ResultDone<FileUploadDetails> &onComplete)
{
    m_uploads.push_back(std::make_unique<FileUpload>(file, onProgress, onComplete, m_uploadPool, m_retries));
    FileUpload *upload = m_uploads.back().get();
    connect(upload, &FileUpload::signalKeyWanted, this, [this, upload] {
        const auto examine = [upload](const GrantError &error, const QByteArray &key) { upload->examine(error, key); };
        Q_EMIT requestAESKey(upload->jobId(), {upload, examine});
    });
    connect(upload, &FileUpload::signalAddressWanted, this, [this, upload] {
        const auto send = [upload](const GrantError &error, const Grant &grant) { upload->send(error, grant); };
        Q_EMIT requestUploadURL(upload->jobId(), {upload, send});
    });
    connect(upload, &FileUpload::signalAddressSpent, this,
            [this, upload](const QJsonObject &address) { Q_EMIT uploadAddressSpent(upload->jobId(), address); });
    connect(upload, &FileUpload::signalSend, this, [this, upload](const StorageRequest &request, bool multipart) {
        Q_EMIT cloudFileChanged(upload->jobId(), upload->cloudName());
        if (multipart)
            Q_EMIT requestUploadPostMultiPart(upload, request);
        else
            Q_EMIT requestUploadPostFile(upload, request);
    });
    connect(upload, &FileUpload::signalUploadComplete, this,
            [this, upload](const ApiError &error) { slotUploadComplete(upload, error); });
    upload->start();
}

void FileTransferManager::slotUploadComplete(FileUpload *upload, const ApiError &error)
{
    const auto callback = upload->onComplete();
    const FileUploadDetails details = upload->details();
    if (error.errorCode < 300)
        Q_EMIT cloudFileChanged(upload->jobId(), upload->cloudName());
    take(m_uploads, [upload](const FileUpload &each) { return &each == upload; });
    if (callback)
        callback(error, details);
}

void FileTransferManager::downloadFile(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                                       const ResultDone<FileDownloadDetails> &onComplete)
{
    const QString key = DownloadObjects::targetKey(file); // not for each of the running ones, which may be thousands
    const bool running = std::any_of(m_downloads.begin(), m_downloads.end(),
                                     [&key](const auto &each) { return !each->isFinished() && each->hasTarget(key); });
    if (running) {
        if (const auto callback = onComplete)
            callback(alreadyRunning(), FileDownloadDetails(file));
        return;
    }
    m_downloads.push_back(std::make_unique<DownloadObjects>(file, onProgress, onComplete, m_pools, m_retries));
    DownloadObjects *download = m_downloads.back().get();
    connect(download, &DownloadObjects::downloadComplete, this,
            [this, download](const ApiError &error) { slotDownloadComplete(download, error); });
    requestAddresses(download);
}

void FileTransferManager::requestAddresses(DownloadObjects *download)
{
    const auto then = [this, download](const GrantError &error, const Grant &grant) {
        if (error.errorCode >= 300)
            download->failOrTryAgain(error, [this, download] { requestAddresses(download); });
        else
            requestKey(download, grant);
    };
    const CloudFile &file = download->details().cloudFileDetails;
    Q_EMIT requestDownloadURL(file.jobId, file.fileName, {download, then});
}

void FileTransferManager::requestKey(DownloadObjects *download, const Grant &grant)
{
    const auto then = [this, download, grant](const GrantError &error, const QByteArray &key) {
        if (error.errorCode >= 300)
            download->failOrTryAgain(error, [this, download, grant] { requestKey(download, grant); });
        else
            startDownload(download, grant, key);
    };
    Q_EMIT requestAESKey(download->details().cloudFileDetails.jobId, {download, then});
}

void FileTransferManager::startDownload(DownloadObjects *download, const Grant &grant, const QByteArray &key)
{
    const CloudFile &file = download->details().cloudFileDetails;
    download->prepare(grant, key);
    for (const auto &each : download->pieces()) {
        FileDownload *const piece = each.get();
        connect(piece, &FileDownload::signalFetch, this, [this, piece](const StorageRequest &request) {
            Q_EMIT requestDownloadGetOrPostMultiPart(piece, request);
        });
        connect(piece, &FileDownload::signalAddressSpent, this, [this, &file](const QJsonObject &address) {
            Q_EMIT downloadAddressSpent(file.jobId, file.fileName, address);
        });
        connect(piece, &FileDownload::signalAddressWanted, this, [this, piece, &file] {
            const auto renew = [piece](const GrantError &error, const Grant &fresh) { piece->renew(error, fresh); };
            Q_EMIT requestDownloadURL(file.jobId, file.fileName, {piece, renew});
        });
    }
    download->begin();
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
    auto cancelled =
        take(m_uploads, [&file](const FileUpload &each) { return !each.isFinished() && each.isFor(file); });
    if (cancelled.empty())
        return false;
    std::vector<std::pair<ResultDone<FileUploadDetails>, FileUploadDetails>> completions;
    for (const auto &upload : cancelled)
        completions.emplace_back(upload->onComplete(), upload->details());
    cancelled.clear();
    const QPointer<FileTransferManager> self(this);
    for (const auto &[callback, details] : completions) {
        if (self && callback)
            callback({400, Titles::UploadCancelled, "The upload of this file was cancelled."}, details);
    }
    return true;
}

bool FileTransferManager::cancelDownload(const FileDownloadDetails &file)
{
    const QString key = DownloadObjects::targetKey(file);
    const auto found = std::find_if(m_downloads.begin(), m_downloads.end(),
                                    [&key](const auto &each) { return !each->isFinished() && each->hasTarget(key); });
    if (found == m_downloads.end() || !(*found)->canBeCancelled())
        return false;
    const DownloadObjects *const download = found->get();
    const auto callback = download->onComplete();
    const FileDownloadDetails details = download->details();
    auto cancelled = take(m_downloads, [download](const DownloadObjects &each) { return &each == download; });
    cancelled.clear();
    if (callback)
        callback({400, Titles::DownloadCancelled, "The download of this file was cancelled."}, details);
    return true;
}

} // namespace Velmora
