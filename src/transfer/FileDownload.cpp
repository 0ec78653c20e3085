#include "transfer/FileDownload.h"

#include "base/Later.h"
#include "storage/Sink.h"
#include "transfer/Address.h"
#include "transfer/PieceName.h"
#include "transfer/Titles.h"
#include "transport/Outcome.h"

#include <QJsonArray>

#include <algorithm>

namespace Velmora {

FileDownload::FileDownload(const QJsonObject &chunk, const Grant &grant, QThreadPool *pool, const RetryPolicy &policy)
    : m_chunk(chunk)
    , m_grant(grant)
    , m_fileName(chunk.value(QLatin1String("fileName")).toString())
    , m_number(pieceNumber(m_fileName))
    , m_retry(policy)
    , m_work(pool)
{
}

FileDownload::~FileDownload() { release(); }

void FileDownload::start(std::shared_ptr<WorkingFile> file, const QByteArray &key, qint64 expected)
{
    m_file = std::move(file);
    m_sink = std::make_shared<Sink>(m_file, key);
    m_expected = expected;
    fetch();
}

void FileDownload::fetch()
{
    if (m_isSpent || m_grant.left() < 0)
        Q_EMIT signalAddressWanted();
    else
        send();
}

void FileDownload::renew(const GrantError &error, const Grant &grant)
{
    if (m_ended)
        return;
    if (error.errorCode >= 300) {
        if (!error.mayPass || !tryAgain())
            finish(error);
        return;
    }
    const QJsonArray chunks = grant.address.value(QLatin1String("chunks")).toArray();
    const auto same = std::find_if(chunks.begin(), chunks.end(), [this](const QJsonValue &each) {
        return each[QLatin1String("fileName")].toString() == m_fileName;
    });
    // Pieces of two files that had the same name would make up neither.
    const auto version = [](const Grant &each) { return each.address.value(QLatin1String("version")); };
    if (same == chunks.end() || version(grant) != version(m_grant)) {
        finish({400, Titles::DownloadFailed, "The file was changed in the cloud while it was being downloaded."});
        return;
    }
    m_chunk = (*same).toObject();
    m_grant = grant;
    m_isSpent = false;
    send();
}

void FileDownload::send()
{
    AddressRequest target = addressRequest(m_chunk);
    if (!target.problem.isEmpty()) {
        finish({400, Titles::DownloadFailed, target.problem.toStdString()});
        return;
    }
    StorageRequest &request = target.request;
    if (!request.hasHeader("Accept-Encoding"))
        request.setHeader("Accept-Encoding", "identity"); // what is stored is what must arrive
    const bool isPost = m_chunk.value(QLatin1String("method")).toString() == QLatin1String("POST");
    if (isPost) {
        const MultipartForm form = multipartForm(m_chunk.value(QLatin1String("formFields")).toObject());
        request.verb = "POST";
        request.form = form.head + form.tail;
        request.setHeader("Content-Type", form.contentType);
    }
    if (isPost || m_etag.isEmpty() || request.hasHeader("Range") || request.hasHeader("If-Range"))
        m_sink->restart();
    request.sink = m_sink;
    request.expected = m_expected;
    request.offset = m_sink->received();
    request.etag = m_etag;
    request.validFor = std::max(m_grant.left(), qint64{0});
    request.hasWaited = m_hasWaited;
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
    m_hasWaited = answer.isOutdated;
    m_isSpent = answer.isOutdated || isAddressRefused(answer);
    if (m_isSpent)
        Q_EMIT signalAddressSpent(m_grant.address);
    if (answer.isOutdated) {
        fetch();
        return;
    }
    m_etag = answer.isRangeWrong ? QByteArray() : answer.etag;
    const ApiError error = transferError({answer.status, answer.body, answer.problem}, Titles::DownloadFailed);
    if (!m_sink->problem().isEmpty())
        failBySink();
    else if (error.errorCode < 300)
        m_work.start([sink = m_sink](const auto &) { sink->finish(); }, [this] { onWritten(); });
    else if (!canBeTriedAgain(answer) || !tryAgain())
        finish(error);
}

bool FileDownload::tryAgain()
{
    return m_retry.start([this] { fetch(); });
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
    m_retry.stop();
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
