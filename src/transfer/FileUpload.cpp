#include "transfer/FileUpload.h"

#include "base/Later.h"
#include "model/Json.h"
#include "storage/Source.h"
#include "transfer/Address.h"
#include "transfer/Titles.h"
#include "transport/Outcome.h"

#include <QFileInfo>

namespace Velmora {

FileUpload::FileUpload(const FileUploadDetails &file, const UploadProgress &onProgress,
                       const ResultDone<FileUploadDetails> &onComplete, QThreadPool *pool)
    : m_details(file)
    , m_onProgress(onProgress)
    , m_onComplete(onComplete)
    , m_source(std::make_shared<Source>(toQt(file.localFileLocation)))
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

void FileUpload::examine(const QByteArray &key)
{
    m_work.start([source = m_source, key](const auto &) { source->examine(key); },
                 [this] {
                     const QString problem = m_source->problem();
                     if (problem.isEmpty())
                         Q_EMIT signalExamined();
                     else
                         fail({400, Titles::UploadFailed, problem.toStdString()});
                 });
}

void FileUpload::send(const QJsonObject &address)
{
    const QString name = QFileInfo(toQt(m_details.localFileLocation)).fileName();
    AddressRequest target = addressRequest(address, name, m_source->cipherSize());
    if (!target.problem.isEmpty()) {
        fail({400, Titles::UploadFailed, target.problem.toStdString()});
        return;
    }
    StorageRequest &request = target.request;
    request.verb = "POST";
    request.body = m_source;
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
    callLater(this, m_onProgress, m_details, static_cast<std::int64_t>(bytesSent));
}

void FileUpload::onAnswered(const StorageAnswer &answer)
{
    m_storage.clear();
    m_counted.reset();
    finish(transferError({answer.status, answer.body, answer.problem}, Titles::UploadFailed));
}

void FileUpload::fail(const ApiError &error) { finish(error); }

void FileUpload::finish(const ApiError &error)
{
    m_finished = true;
    later(this, [this, error] { Q_EMIT signalUploadComplete(error); });
}

} // namespace Velmora
