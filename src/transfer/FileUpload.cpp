#include "transfer/FileUpload.h"

#include "base/Later.h"
#include "model/Json.h"
#include "storage/Source.h"
#include "transfer/Address.h"
#include "transfer/Titles.h"
#include "transport/Outcome.h"

#include <QFileInfo>

#include <algorithm>

namespace Velmora {

FileUpload::FileUpload(const FileUploadDetails &file, const UploadProgress &onProgress,
                       const ResultDone<FileUploadDetails> &onComplete, QThreadPool *pool, const RetryPolicy &policy)
    : m_details(file)
    , m_onProgress(onProgress)
    , m_onComplete(onComplete)
    , m_retry(policy)
    , m_work(pool)
{
    m_details.totalFileSize = QFileInfo(toQt(file.localFileLocation)).size();
}

FileUpload::~FileUpload()
{
    if (m_storage)
        m_storage->cancel(m_request);
}

bool FileUpload::isFor(const FileUploadDetails &file) const
{
    return m_details.localFileLocation == file.localFileLocation && m_details.cloudFileJobID == file.cloudFileJobID;
}

QString FileUpload::cloudName() const { return QFileInfo(toQt(m_details.localFileLocation)).fileName(); }

void FileUpload::start() { Q_EMIT signalKeyWanted(); }

void FileUpload::examine(const GrantError &error, const QByteArray &key)
{
    if (error.errorCode >= 300) {
        finishOrTryAgain(error, error.mayPass);
        return;
    }
    m_source = std::make_shared<Source>(toQt(m_details.localFileLocation));
    m_work.start([source = m_source, key](const auto &) { source->examine(key); },
                 [this] {
                     const QString problem = m_source->problem();
                     if (problem.isEmpty())
                         Q_EMIT signalAddressWanted();
                     else
                         finish({400, Titles::UploadFailed, problem.toStdString()});
                 });
}

void FileUpload::send(const GrantError &error, const Grant &grant)
{
    if (error.errorCode >= 300) {
        finishOrTryAgain(error, error.mayPass);
        return;
    }
    m_grant = grant;
    const QJsonObject &address = grant.address;
    const QString name = cloudName();
    AddressRequest target = addressRequest(address, name, m_source->cipherSize());
    if (!target.problem.isEmpty()) {
        finish({400, Titles::UploadFailed, target.problem.toStdString()});
        return;
    }
    StorageRequest &request = target.request;
    request.verb = "POST";
    request.body = m_source;
    request.validFor = std::max(grant.left(), qint64{0});
    request.hasWaited = m_hasWaited;
    const QJsonObject fields = address.value(QLatin1String("formFields")).toObject();
    const bool multipart = !fields.isEmpty();
    if (multipart) {
        const MultipartForm form = multipartForm(fields, name);
        request.setHeader("Content-Type", form.contentType);
        m_source->frame(form.head, form.tail);
    } else {
        if (address.value(QLatin1String("method")).toString() == QLatin1String("PUT"))
            request.verb = "PUT";
        if (!request.hasHeader("Content-Type"))
            request.setHeader("Content-Type", "application/octet-stream");
    }
    Q_EMIT signalSend(request, multipart);
}

void FileUpload::follow(StorageClient &storage, const StorageRequest &request, std::shared_ptr<void> counted)
{
    m_storage = &storage;
    m_counted = std::move(counted);
    m_request = storage.start(request, {[this](qint64 sent) { reportProgress(sent); },
                                        [this](const StorageAnswer &answer) { onAnswered(answer); }});
}

void FileUpload::reportProgress(qint64 bytesSent)
{
    if (bytesSent <= m_reported)
        return;
    m_reported = bytesSent;
    callLater(this, m_onProgress, m_details, static_cast<std::int64_t>(bytesSent));
}

void FileUpload::onAnswered(const StorageAnswer &answer)
{
    m_storage.clear();
    m_counted.reset();
    m_hasWaited = answer.isOutdated;
    if (answer.isOutdated) {
        Q_EMIT signalAddressSpent(m_grant.address);
        Q_EMIT signalAddressWanted();
        return;
    }
    if (isAddressRefused(answer))
        Q_EMIT signalAddressSpent(m_grant.address);
    finishOrTryAgain(transferError({answer.status, answer.body, answer.problem}, Titles::UploadFailed),
                     canBeTriedAgain(answer));
}

void FileUpload::finishOrTryAgain(const ApiError &error, bool mayPass)
{
    if (error.errorCode < 300 || !mayPass || !m_retry.start([this] { start(); }))
        finish(error);
}

void FileUpload::finish(const ApiError &error)
{
    m_finished = true;
    later(this, [this, error] { Q_EMIT signalUploadComplete(error); });
}

} // namespace Velmora
