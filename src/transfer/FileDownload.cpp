#include "transfer/FileDownload.h"

#include "base/Later.h"
#include "storage/Sink.h"
#include "transfer/Address.h"
#include "transfer/PieceName.h"
#include "transfer/Titles.h"
#include "transport/Outcome.h"

namespace Velmora {

FileDownload::FileDownload(const QJsonObject &chunk, QThreadPool *pool)
    : m_chunk(chunk)
    , m_fileName(chunk.value(QLatin1String("fileName")).toString())
    , m_number(pieceNumber(m_fileName))
    , m_work(pool)
{
}

FileDownload::~FileDownload() { release(); }

void FileDownload::start(std::shared_ptr<WorkingFile> file, const QByteArray &key, qint64 expected)
{
    AddressRequest target = addressRequest(m_chunk);
    if (!target.problem.isEmpty()) {
        finish({400, Titles::DownloadFailed, target.problem.toStdString()});
        return;
    }
    StorageRequest &request = target.request;
    if (!request.hasHeader("Accept-Encoding"))
        request.setHeader("Accept-Encoding", "identity"); // what is stored is what must arrive
    if (m_chunk.value(QLatin1String("method")).toString() == QLatin1String("POST")) {
        const MultipartForm form = multipartForm(m_chunk.value(QLatin1String("formFields")).toObject());
        request.verb = "POST";
        request.form = form.head + form.tail;
        request.setHeader("Content-Type", form.contentType);
    }
    m_file = std::move(file);
    m_sink = std::make_shared<Sink>(m_file, key);
    request.sink = m_sink;
    request.expected = expected;
    Q_EMIT signalFetch(request);
}

void FileDownload::follow(StorageClient &storage, const StorageRequest &request, std::shared_ptr<void> counted)
{
    m_storage = &storage;
    m_counted = std::move(counted);
    m_request = storage.start(request, {[this](qint64 bytes) { onReceived(bytes); },
                                        [this](const StorageAnswer &answer) { onAnswered(answer); }});
}

void FileDownload::onReceived(qint64 bytes)
{
    m_received = bytes;
    Q_EMIT downloadProgress();
}

void FileDownload::onAnswered(const StorageAnswer &answer)
{
    m_storage.clear();
    m_counted.reset();
    Outcome outcome{answer.status, answer.body, answer.problem};
    if (outcome.isRefused() && outcome.problem.isEmpty())
        outcome.problem = QStringLiteral("The storage refused the piece with the status %1.").arg(outcome.status);
    const ApiError error = transferError(outcome, Titles::DownloadFailed);
    if (!m_sink->problem().isEmpty())
        failBySink();
    else if (error.errorCode >= 300)
        finish(error);
    else
        m_work.start([sink = m_sink](const auto &) { sink->finish(); }, [this] { onWritten(); });
}

void FileDownload::onWritten()
{
    if (!m_sink->problem().isEmpty()) {
        failBySink();
        return;
    }
    m_ready = true;
    finish({200, {}, {}});
}

void FileDownload::stop()
{
    if (!m_ended)
        finish({400, Titles::DownloadFailed, "Another piece of the file failed."});
}

void FileDownload::release()
{
    if (m_storage)
        m_storage->cancel(m_request);
    m_storage.clear();
    m_counted.reset();
    if (m_sink)
        m_sink->abandon();
    m_work.stopAndWait();
    m_sink.reset();
}

void FileDownload::failBySink()
{
    const char *const title = m_sink->isUnwritable() ? Titles::DownloadNotWritten : Titles::DownloadFailed;
    finish({400, title, m_sink->problem().toStdString()});
}

void FileDownload::finish(const ApiError &error)
{
    m_ended = true;
    release();
    later(this, [this, error] { Q_EMIT downloadComplete(error); });
}

} // namespace Velmora
