#include "transfer/FileDownload.h"

#include "base/DiskFile.h"
#include "base/Later.h"
#include "crypto/FileCipher.h"
#include "model/Json.h"
#include "transfer/Address.h"
#include "transfer/PieceName.h"
#include "transfer/Titles.h"
#include "transport/Outcome.h"
#include "transport/RequestBody.h"

#include <QDir>
#include <QNetworkReply>

#include <algorithm>

namespace Velmora {

namespace {

constexpr qint64 readBuffer = 4 * 1024 * 1024; // what the network layer may hold for us
constexpr int batch = 1024 * 1024;             // what is taken from it in one go, where there is as much
constexpr int patience = 4;                    // milliseconds that less than a batch waits for more
constexpr int slice = 128 * 1024;              // what is written in one turn of the loop
constexpr int longestRefusal = 64 * 1024;

} // namespace

struct FileDownload::Progress {
    QString path; // of the piece's file; empty while there is none
    FileCipherResult decryption;
    QString renameProblem;

    bool moveTo(const QString &next, const std::atomic<bool> &stop)
    {
        renameProblem = replaceFile(path, next, stop);
        if (renameProblem.isEmpty())
            path = next;
        return renameProblem.isEmpty();
    }
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
    m_drain.setSingleShot(true);
    connect(&m_drain, &QTimer::timeout, this, &FileDownload::drain);
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
    const AddressRequest target = addressRequest(m_chunk);
    if (!target.problem.isEmpty()) {
        fail(target.problem);
        return;
    }
    QNetworkRequest request(QUrl(QString::fromUtf8(target.request.address)));
    for (const auto &[name, value] : target.request.headers)
        request.setRawHeader(name, value);
    if (!request.hasRawHeader("Accept-Encoding"))
        request.setRawHeader("Accept-Encoding", "identity"); // what is stored is what must arrive
    RequestBody *form = nullptr;
    if (m_chunk.value(QLatin1String("method")).toString() == QLatin1String("POST")) {
        const MultipartForm parts = multipartForm(m_chunk.value(QLatin1String("formFields")).toObject());
        request.setRawHeader("Content-Type", parts.contentType);
        form = new RequestBody(parts.head + parts.tail);
    }
    Q_EMIT signalFetch(request, form);
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
    // Not before: a request with a body of its own starts later, and forgets a limit set until then.
    connect(reply, &QNetworkReply::metaDataChanged, reply, [reply] { reply->setReadBufferSize(readBuffer); });
    connect(reply, &QNetworkReply::readyRead, this, &FileDownload::scheduleDrain);
    connect(reply, &QNetworkReply::downloadProgress, this, &FileDownload::scheduleDrain);
    const auto onFinished = [this] {
        m_replyFinished = true;
        m_drain.start(0);
    };
    connect(reply, &QNetworkReply::finished, this, onFinished);
    if (reply->isFinished())
        onFinished();
}

// Every read of a limited reply wakes the network's thread: a few bytes are not worth that.
void FileDownload::scheduleDrain()
{
    if (!m_drain.isActive())
        m_drain.start(m_reply->bytesAvailable() >= batch || m_replyFinished ? 0 : patience);
}

void FileDownload::drain()
{
    if (!m_reply || m_ended)
        return;
    if (m_taken == m_filled) {
        m_batch.resize(batch);
        m_filled = std::max(0, static_cast<int>(m_reply->read(m_batch.data(), batch)));
        m_taken = 0;
    }
    const int size = std::min(slice, m_filled - m_taken);
    if (size > 0) {
        const char *part = m_batch.constData() + m_taken;
        m_taken += size;
        if (httpStatus(m_reply) >= 300)
            m_refusal.append(part, std::min(size, longestRefusal - m_refusal.size()));
        else if (!store(part, size))
            return;
    }
    if (m_taken < m_filled)
        m_drain.start(0);
    else if (m_reply->bytesAvailable() > 0)
        scheduleDrain();
    else if (m_replyFinished)
        onReceived();
}

bool FileDownload::store(const char *part, int received)
{
    if (!m_file.isOpen()) {
        m_file.setFileName(temporaryPath("DOWNLOAD"));
        if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
            failWriting(m_file.errorString());
            return false;
        }
        m_progress->path = m_file.fileName();
    }
    if (m_file.write(part, received) != received) {
        failWriting(m_file.errorString());
        return false;
    }
    m_received += received;
    Q_EMIT downloadProgress();
    return true;
}

void FileDownload::onReceived()
{
    const ApiError outcome = transferError(outcomeOf(m_reply, m_refusal), Titles::DownloadFailed);
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
    m_work.start(
        [progress = m_progress, key = m_key, encrypted = temporaryPath("DECRYPT"),
         ready = path()](const std::atomic<bool> &stop) {
            if (!progress->moveTo(encrypted, stop))
                return;
            progress->decryption = decryptFileInPlace(key, encrypted, stop);
            if (progress->decryption.ok())
                progress->moveTo(ready, stop);
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
    m_work.stopAndWait();
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
    m_batch.clear(); // of many pieces few are received at a time
}

void FileDownload::finish(const ApiError &error)
{
    m_ended = true;
    releaseReply();
    m_file.close();
    later(this, [this, error] {
        m_reported = true;
        Q_EMIT downloadComplete(error);
    });
}

void FileDownload::fail(const QString &reason) { finish({400, Titles::DownloadFailed, reason.toStdString()}); }

void FileDownload::failWriting(const QString &reason)
{
    finish({400, Titles::DownloadNotWritten, reason.toStdString()});
}

} // namespace Velmora
