#include "transfers/TransferQueue.h"

#include "common/Terminal.h"

#include <QPointer>

#include <algorithm>
#include <numeric>
#include <utility>

namespace Velmora::Cli {

namespace {

using Phase = Transfer::Phase;

// The library gives the turns to move bytes. A file that only waits for an answer should not hold up the next one, but
// of large files only a few begin, so that an interruption leaves little half sent.
constexpr int LargeAtOnce = 6;
constexpr int AtOnce = 64;
constexpr qint64 BytesAtOnce = 4000000;
constexpr int TickMs = 200;
constexpr int SilenceMs = 2000;

/// Whether the storage does not take the address, or the file is not there.
bool isRefusal(const ApiError &error)
{
    const bool isStorage = error.errorTitle == "File Failed to Upload" || error.errorTitle == "Unable to download file";
    return isStorage &&
           (error.errorCode == 401 || error.errorCode == 403 || error.errorCode == 404 || error.errorCode == 410);
}

/// Whether the same may go better in a while. Without an answer the status is 400.
bool mayPass(const ApiError &error)
{
    return (error.errorCode <= 400 || error.errorCode == 408 || error.errorCode == 429 || error.errorCode >= 500) &&
           error.errorTitle != "Unable to write to target file";
}

} // namespace

TransferQueue::TransferQueue(Session &session, TransferView &view, Batch &batch, Done onDone)
    : m_session(session)
    , m_view(view)
    , m_batch(batch)
    , m_onDone(std::move(onDone))
    , m_order(batch.transfers.size())
    , m_isSent(batch.transfers.size())
    , m_isTried(batch.transfers.size())
    , m_isProbed(batch.transfers.size())
{
    std::iota(m_order.begin(), m_order.end(), size_t(0));
    std::stable_sort(m_order.begin(), m_order.end(),
                     [&](size_t a, size_t b) { return batch.transfers[a].total < batch.transfers[b].total; });
    m_pumpTimer.setSingleShot(true);
    connect(&m_pumpTimer, &QTimer::timeout, this, &TransferQueue::pump);
    connect(&Interrupt::instance(), &Interrupt::raised, this, &TransferQueue::stop);
}

TransferQueue::~TransferQueue() { m_stopHashing = true; }

void TransferQueue::run()
{
    m_clock.start();
    m_ended = size_t(m_batch.countEnded());
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, this, &TransferQueue::tick);
    ticker.start(TickMs);
    m_view.update(m_batch, now());
    if (Interrupt::instance().isRaised())
        stop();
    m_pumpTimer.start(0);
    m_loop.exec();
    m_batch.ended = std::max<qint64>(1, now());
    m_view.update(m_batch, now());
}

void TransferQueue::pump()
{
    if (m_ended == m_batch.transfers.size()) {
        m_loop.quit();
        return;
    }
    while (!m_stopped && m_next < m_order.size()) {
        const Transfer &next = m_batch.transfers[m_order[m_next]];
        const bool hasRoom = m_active < LargeAtOnce || (m_active < AtOnce && m_activeBytes + next.total <= BytesAtOnce);
        if (!next.hasEnded() && !hasRoom)
            return;
        if (!next.hasEnded())
            begin(m_order[m_next]);
        ++m_next;
    }
}

void TransferQueue::begin(size_t index)
{
    Transfer &transfer = m_batch.transfers[index];
    transfer.begin(now());
    ++m_active;
    m_activeBytes += transfer.total;
    const bool isUp = transfer.direction == Transfer::Direction::Up;
    if (isUp)
        transfer.local = LocalFile::at(transfer.localPath);
    if (isUp && m_onDone) {
        m_hashing.start([this, index, path = transfer.localPath] {
            const QByteArray hash = hashOf(path, m_stopHashing);
            QMetaObject::invokeMethod(
                this, [this, index, hash] { onHashed(index, hash); }, Qt::QueuedConnection);
        });
    }
    // An upload, or a small file, starts from its beginning in each try, so that nothing is lost when the first one is
    // made without the library's. A large download goes on where it broke.
    m_isTried[index] = !isUp && !transfer.isSmall();
    start(index, m_isTried[index] ? ClientOptions::robust().transferRetries : 0);
}

void TransferQueue::start(size_t index, int retries)
{
    Transfer &transfer = m_batch.transfers[index];
    m_session.setTransferRetries(retries);
    QPointer<TransferQueue> self(this);
    const auto onMoved = [self, index](const auto &, std::int64_t bytes) {
        if (self)
            self->onProgress(index, bytes);
    };
    const auto onEnd = [self, index](const ApiError &error, const auto &) {
        if (self)
            self->onComplete(index, error);
    };
    if (transfer.direction == Transfer::Direction::Up)
        m_session.api().uploadFile(transfer.uploadDetails(), onMoved, onEnd);
    else
        m_session.api().downloadFile(transfer.downloadDetails(), onMoved, onEnd);
}

void TransferQueue::onProgress(size_t index, qint64 bytes) { m_batch.transfers[index].progress(bytes); }

int TransferQueue::retriesAfter(size_t index, const ApiError &error) const
{
    const Transfer &transfer = m_batch.transfers[index];
    const bool hasChanged =
        transfer.direction == Transfer::Direction::Up && !transfer.local.looksLike(LocalFile::at(transfer.localPath));
    if (m_stopped || m_isTried[index] || hasChanged)
        return -1;
    return isRefusal(error) ? 0 : mayPass(error) ? ClientOptions::robust().transferRetries : -1;
}

/// Finds out whether the storage refuses a download of which nothing has come: by another one of the same file, which
/// ends at its first bytes or at the second refusal.
void TransferQueue::probe(size_t index)
{
    m_isProbed[index] = 1;
    if (!m_probes)
        m_probes = std::make_unique<QTemporaryDir>();
    const FileDownloadDetails details{m_probes->filePath(QString::number(index)).toStdString(),
                                      m_batch.transfers[index].file};
    QPointer<TransferQueue> self(this);
    m_session.setTransferRetries(1);
    m_session.api().downloadFile(
        details,
        [self](const FileDownloadDetails &same, std::int64_t) {
            if (self)
                self->m_session.api().cancelDownload(same);
        },
        [self, index](const ApiError &error, const auto &) {
            if (self)
                self->onProbed(index, error);
        });
}

void TransferQueue::onProbed(size_t index, const ApiError &error)
{
    const Transfer &transfer = m_batch.transfers[index];
    if (m_stopped || !isRefusal(error) || !transfer.isActive() || transfer.moved > 0)
        return;
    m_refusal = error;
    m_session.api().cancelDownload(transfer.downloadDetails()); // completes it
    m_refusal = {};
}

void TransferQueue::onComplete(size_t index, const ApiError &given)
{
    Transfer &transfer = m_batch.transfers[index];
    const ApiError &error = m_refusal.errorCode > 0 ? m_refusal : given;
    if (const int retries = succeeded(error) ? -1 : retriesAfter(index, error); retries >= 0) {
        m_isTried[index] = 1;
        start(index, retries);
        return;
    }
    const bool waitsForHash =
        m_onDone && !m_stopped && transfer.direction == Transfer::Direction::Up && transfer.local.hash.isNull();
    if (succeeded(error) && waitsForHash)
        m_isSent[index] = 1;
    else
        finish(index, error);
}

void TransferQueue::onHashed(size_t index, const QByteArray &hash)
{
    m_batch.transfers[index].local.hash = hash.isNull() ? QByteArray("") : hash;
    if (m_isSent[index])
        finish(index, {200, {}, {}});
}

void TransferQueue::finish(size_t index, const ApiError &error)
{
    Transfer &transfer = m_batch.transfers[index];
    const bool isUp = transfer.direction == Transfer::Direction::Up;
    if (!succeeded(error)) {
        transfer.end(m_stopped ? Phase::Undone : Phase::Failed, error, now());
    } else if (m_onDone && isUp && !transfer.local.looksLike(LocalFile::at(transfer.localPath))) {
        transfer.end(Phase::Failed, {400, "File Failed to Upload", "it changed while it was sent"}, now());
    } else {
        transfer.end(Phase::Done, {}, now());
        if (m_onDone) {
            if (!isUp)
                transfer.local = LocalFile::at(transfer.localPath);
            m_onDone(transfer);
        }
    }
    m_isSent[index] = 0;
    ++m_ended;
    --m_active;
    m_activeBytes -= transfer.total;
    m_pumpTimer.start(0);
}

void TransferQueue::tick()
{
    for (size_t index = 0; index < m_batch.transfers.size(); ++index) {
        Transfer &transfer = m_batch.transfers[index];
        if (transfer.phase != Phase::Sending && transfer.phase != Phase::Receiving)
            continue;
        transfer.meter.note(now(), transfer.moved);
        const bool isSilent = transfer.moved == 0 && now() - transfer.begun >= SilenceMs;
        if (isSilent && transfer.direction == Transfer::Direction::Down && !transfer.isSmall() && !m_isProbed[index] &&
            !m_stopped)
            probe(index);
    }
    m_batch.note(now());
    m_view.update(m_batch, now());
}

void TransferQueue::stop()
{
    if (m_stopped)
        return;
    m_stopped = true;
    for (size_t index = 0; index < m_batch.transfers.size(); ++index) {
        Transfer &transfer = m_batch.transfers[index];
        if (transfer.phase == Phase::Waiting) {
            transfer.end(Phase::Undone, {}, now());
            ++m_ended;
        } else if (m_isSent[index] && transfer.isActive()) {
            finish(index, {200, {}, {}});
        } else if (transfer.isActive()) {
            // A finished transfer completes by itself.
            if (transfer.direction == Transfer::Direction::Up)
                m_session.api().cancelUpload(transfer.uploadDetails());
            else
                m_session.api().cancelDownload(transfer.downloadDetails());
        }
    }
    m_pumpTimer.start(0);
}

} // namespace Velmora::Cli
