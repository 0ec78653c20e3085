#include "transfer/FileUpload.h"

#include "base/DiskFile.h"
#include "base/Later.h"
#include "crypto/FileCipher.h"
#include "model/Json.h"
#include "transfer/Address.h"
#include "transfer/Titles.h"
#include "transport/Outcome.h"
#include "transport/RequestBody.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkReply>

namespace Velmora {

namespace {

constexpr qint64 longestAnswer = 64 * 1024; // enough for the message of a refusal

QString fileNameOf(const FileUploadDetails &details) { return QFileInfo(toQt(details.localFileLocation)).fileName(); }

ApiError localFailure(const FileUploadDetails &details, const QString &reason)
{
    return {400, Titles::UploadFailed,
            QStringLiteral("%1 could not be encrypted for upload: %2")
                .arg(toQt(details.localFileLocation), reason)
                .toStdString()};
}

} // namespace

FileUpload::FileUpload(const FileUploadDetails &file, const UploadProgress &onProgress,
                       const ResultDone<FileUploadDetails> &onComplete)
    : m_details(file)
    , m_onProgress(onProgress)
    , m_onComplete(onComplete)
{
    m_details.totalFileSize = QFileInfo(toQt(file.localFileLocation)).size();
}

FileUpload::~FileUpload()
{
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->abort();
        m_reply->deleteLater();
    }
    if (m_body)
        m_body->close(); // an open file cannot be removed everywhere
}

bool FileUpload::isFor(const FileUploadDetails &file) const
{
    return m_details.localFileLocation == file.localFileLocation && m_details.cloudFileJobID == file.cloudFileJobID;
}

QString FileUpload::temporaryPath() const { return m_folder->filePath(fileNameOf(m_details)); }

void FileUpload::encrypt()
{
    m_started = true;
    m_folder = std::make_unique<QTemporaryDir>();
    if (!m_folder->isValid()) {
        fail(localFailure(m_details, m_folder->errorString()));
        return;
    }
    const auto result = std::make_shared<FileCipherResult>();
    m_work.start([result, key = m_key, source = toQt(m_details.localFileLocation),
                  target = temporaryPath()](const auto &stop) { *result = encryptFile(key, source, target, stop); },
                 [this, result] {
                     if (result->ok())
                         Q_EMIT signalEncryptionDone();
                     else
                         fail(localFailure(m_details, result->reason));
                 });
}

void FileUpload::send(const QJsonObject &address)
{
    auto file = std::make_unique<QFile>(temporaryPath());
    if (!file->open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        fail(localFailure(m_details, file->errorString()));
        return;
    }
    const QString name = fileNameOf(m_details);
    AddressRequest target =
        addressRequest(address, [&](const QString &text) { return fillTemplate(text, name, file->size()); });
    if (!target.problem.isEmpty()) {
        fail({400, Titles::UploadFailed, target.problem.toStdString()});
        return;
    }
    const QJsonObject fields = address.value(QLatin1String("formFields")).toObject();
    const bool multipart = !fields.isEmpty();
    QByteArray verb = "POST";
    MultipartForm form;
    if (multipart) {
        form = multipartForm(fields, name);
        target.request.setRawHeader("Content-Type", form.contentType);
    } else {
        if (address.value(QLatin1String("method")).toString() == QLatin1String("PUT"))
            verb = "PUT";
        if (!target.request.hasRawHeader("Content-Type"))
            target.request.setRawHeader("Content-Type", "application/octet-stream");
    }
    m_body = new RequestBody(form.head, std::move(file), multipart ? form.tail : QByteArray());
    Q_EMIT signalSend(target.request, verb, m_body, multipart);
}

void FileUpload::follow(QNetworkReply *reply)
{
    m_reply = reply;
    reply->setReadBufferSize(longestAnswer);
    connect(reply, &QNetworkReply::uploadProgress, this, [this](qint64 bytesSent) { reportProgress(bytesSent); });
    connect(reply, &QNetworkReply::readyRead, this, [this, reply] {
        const QByteArray part = reply->readAll();
        m_answer += part.left(static_cast<int>(longestAnswer - m_answer.size()));
    });
    connect(reply, &QNetworkReply::finished, this, &FileUpload::onReplyFinished);
    if (reply->isFinished())
        later(this, [this] { onReplyFinished(); });
}

void FileUpload::reportProgress(qint64 bytesSent)
{
    if (bytesSent <= m_bytesSent) // the closing report says 0
        return;
    m_bytesSent = bytesSent;
    callLater(this, m_onProgress, m_details, static_cast<std::int64_t>(bytesSent));
}

void FileUpload::onReplyFinished()
{
    if (!m_reply)
        return;
    m_answer += m_reply->read(longestAnswer - m_answer.size());
    const ApiError outcome = transferError(outcomeOf(m_reply, m_answer), Titles::UploadFailed);
    m_reply->disconnect(this);
    m_reply->deleteLater();
    m_reply.clear();
    if (m_body)
        m_body->close();
    finish(outcome);
}

void FileUpload::fail(const ApiError &error) { finish(error); }

void FileUpload::finish(const ApiError &error)
{
    m_finished = true;
    const auto complete = [this, error] { Q_EMIT signalUploadComplete(error); };
    if (!m_folder) {
        later(this, complete);
        return;
    }
    // Giving back the blocks of a large file takes its time.
    m_work.start([folder = std::shared_ptr<QTemporaryDir>(std::move(m_folder))](
                     const auto &stop) { persistently(stop, [&] { return folder->remove(); }); },
                 complete);
}

} // namespace Velmora
