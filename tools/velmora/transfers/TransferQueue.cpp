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

} // namespace

TransferQueue::TransferQueue(Session &session, TransferView &view, Batch &batch, Done onDone)
    : m_session(session)
    , m_view(view)
    , m_batch(batch)
    , m_onDone(std::move(onDone))
    , m_order(batch.transfers.size())
    , m_isSent(batch.transfers.size())
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
    if (m_onDone && transfer.direction == Transfer::Direction::Up) {
        transfer.local = LocalFile::at(transfer.localPath);
        m_hashing.start([this, index, path = transfer.localPath] {
            const QByteArray hash = hashOf(path, m_stopHashing);
            QMetaObject::invokeMethod(
                this, [this, index, hash] { onHashed(index, hash); }, Qt::QueuedConnection);
        });
    }
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

void TransferQueue::onComplete(size_t index, const ApiError &error)
{
    Transfer &transfer = m_batch.transfers[index];
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
    for (Transfer &transfer : m_batch.transfers) {
        if (transfer.phase == Phase::Sending || transfer.phase == Phase::Receiving)
            transfer.meter.note(now(), transfer.moved);
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
