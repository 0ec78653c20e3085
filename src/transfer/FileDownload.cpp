#include "transfer/FileDownload.h"

#include "model/Json.h"
#include "model/Later.h"
#include "transfer/Address.h"
#include "transfer/FileCipher.h"
#include "transfer/PieceName.h"
#include "transfer/RequestBody.h"

#include <QDir>
#include <QNetworkReply>

#include <algorithm>

namespace Velmora {

namespace {

constexpr const char *failureTitle = "Unable to download file";
constexpr const char *writeFailureTitle = "Unable to write to target file";
constexpr qint64 readBuffer = 1024 * 1024; // what the network layer may hold for us
constexpr qint64 slice = 128 * 1024;       // what is written in one go
constexpr qint64 longestRefusal = 64 * 1024;

} // namespace

struct FileDownload::Progress {
    QString path; // of the piece's file; empty while there is none
    FileCipherResult decryption;
    QString renameProblem;
};

FileDownload::FileDownload(const QString &folder, const QString &target, const QJsonObject &chunk,
                           const QByteArray &key)
    : m_folder(folder)
    , m_target(target)
    , m_chunk(chunk)
    , m_fileName(chunk.value(QLatin1String("fileName")).toString())
    , m_key(key)
    , m_progress(std::make_shared<Progress>())
{
}

FileDownload::~FileDownload()
{
    m_work.stopAndWait();
    releaseReply();
    m_file.close();
    if (m_discard && !m_progress->path.isEmpty())
        QFile::remove(m_progress->path);
}

QString FileDownload::path() const { return m_folder + QLatin1Char('/') + baseName(m_fileName); }

QString FileDownload::temporaryPath(const char *phase) const
{
    return m_folder + QStringLiteral("/UNCONFIRMED_%1.%2.VELMORA").arg(QLatin1String(phase), baseName(m_fileName));
}

void FileDownload::start()
{
    QString problem;
    if (!prepareFolder(&problem)) {
        failWriting(problem);
        return;
    }
    AddressRequest target = addressRequest(m_chunk, [](const QString &text) { return text; });
    if (!target.problem.isEmpty()) {
        fail(target.problem);
        return;
    }
    if (!target.request.hasRawHeader("Accept-Encoding"))
        target.request.setRawHeader("Accept-Encoding", "identity"); // what is stored is what must arrive
    RequestBody *form = nullptr;
    if (m_chunk.value(QLatin1String("method")).toString() == QLatin1String("POST")) {
        const MultipartForm parts = multipartForm(m_chunk.value(QLatin1String("formFields")).toObject());
        target.request.setRawHeader("Content-Type", parts.contentType);
        form = new RequestBody(parts.head, nullptr, parts.tail);
    }
    Q_EMIT signalFetch(target.request, form);
}

bool FileDownload::prepareFolder(QString *problem)
{
    if (!isSafeFileName(baseName(m_fileName))) {
        *problem =
            QStringLiteral("The service gave a piece the name \"%1\", which is not a file name.").arg(m_fileName);
        return false;
    }
    if (path().compare(m_target, Qt::CaseInsensitive) == 0) {
        *problem = QStringLiteral("The service gave a piece the name of the whole file.");
        return false;
    }
    if (!QDir().mkpath(m_folder)) {
        *problem = QStringLiteral("The folder %1 could not be created.").arg(QDir::toNativeSeparators(m_folder));
        return false;
    }
    QFile::remove(temporaryPath("DOWNLOAD"));
    QFile::remove(path());
    return true;
}

void FileDownload::follow(QNetworkReply *reply)
{
    m_reply = reply;
    reply->setReadBufferSize(readBuffer);
    connect(reply, &QNetworkReply::readyRead, this, &FileDownload::scheduleDrain);
    connect(reply, &QNetworkReply::downloadProgress, this, &FileDownload::scheduleDrain);
    const auto onFinished = [this] {
        m_replyFinished = true;
        scheduleDrain();
    };
    connect(reply, &QNetworkReply::finished, this, onFinished);
    if (reply->isFinished())
        onFinished();
}

void FileDownload::scheduleDrain()
{
    if (m_drainScheduled)
        return;
    m_drainScheduled = true;
    later(this, [this] { drain(); });
}

void FileDownload::drain()
{
    m_drainScheduled = false;
    if (!m_reply || m_ended)
        return;
    const QByteArray part = m_reply->read(slice);
    if (!part.isEmpty()) {
        if (httpStatusOf(m_reply) >= 300)
            m_refusal += part.left(static_cast<int>(longestRefusal - m_refusal.size()));
        else if (!store(part))
            return;
    }
    if (m_reply->bytesAvailable() > 0)
        scheduleDrain();
    else if (m_replyFinished)
        onReceived();
}

bool FileDownload::store(const QByteArray &part)
{
    if (!m_file.isOpen()) {
        m_file.setFileName(temporaryPath("DOWNLOAD"));
        if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
            failWriting(m_file.errorString());
            return false;
        }
        m_progress->path = m_file.fileName();
    }
    if (m_file.write(part) != part.size()) {
        failWriting(m_file.errorString());
        return false;
    }
    m_received += part.size();
    Q_EMIT downloadProgress();
    return true;
}

void FileDownload::onReceived()
{
    const ApiError outcome = transferOutcome(m_reply, m_refusal, failureTitle);
    const QVariant announced = m_reply->header(QNetworkRequest::ContentLengthHeader);
    releaseReply();
    m_file.close();
    if (outcome.errorCode >= 300)
        finish(outcome);
    else if (announced.isValid() && announced.toLongLong() != m_received)
        fail(QStringLiteral("The connection ended after %1 of %2 bytes.").arg(m_received).arg(announced.toLongLong()));
    else if (m_progress->path.isEmpty())
        fail(QStringLiteral("The service sent an empty piece."));
    else
        decrypt();
}

void FileDownload::decrypt()
{
    const QString encrypted = temporaryPath("DECRYPT");
    QFile::remove(encrypted);
    if (!m_file.rename(encrypted)) {
        failWriting(m_file.errorString());
        return;
    }
    m_progress->path = encrypted;
    m_work.start(
        this,
        [progress = m_progress, key = m_key, ready = path()](const std::atomic<bool> &stop) {
            progress->decryption = decryptFileInPlace(key, progress->path, stop);
            if (!progress->decryption.ok())
                return;
            QFile file(progress->path);
            if (file.rename(ready))
                progress->path = ready;
            else
                progress->renameProblem = file.errorString();
        },
        [this] { onDecrypted(); });
}

void FileDownload::onDecrypted()
{
    const FileCipherResult &result = m_progress->decryption;
    if (!m_progress->renameProblem.isEmpty())
        failWriting(m_progress->renameProblem);
    else if (result.status == FileCipherStatus::OutputNotOpened || result.status == FileCipherStatus::WriteFailed)
        failWriting(result.reason);
    else if (!result.ok())
        fail(result.reason);
    else
        finish({200, {}, {}});
}

void FileDownload::stop()
{
    if (m_ended)
        return;
    if (m_work.isRunning()) {
        m_work.requestStop();
        return;
    }
    fail(QStringLiteral("Another piece of the file failed."));
}

void FileDownload::releaseReply()
{
    if (!m_reply)
        return;
    m_reply->disconnect(this);
    m_reply->abort();
    m_reply->deleteLater();
    m_reply.clear();
}

void FileDownload::finish(const ApiError &error)
{
    m_ended = true;
    releaseReply();
    m_file.close();
    later(this, [this, error] {
        m_atRest = true;
        Q_EMIT downloadComplete(error);
    });
}

void FileDownload::fail(const QString &reason) { finish({400, failureTitle, reason.toStdString()}); }

void FileDownload::failWriting(const QString &reason) { finish({400, writeFailureTitle, reason.toStdString()}); }

} // namespace Velmora
