#include "TransferQueue.h"

#include "Terminal.h"

#include <QPointer>

#include <algorithm>

namespace Velmora::Cli {

namespace {

using Phase = Transfer::Phase;

constexpr int AtOnce = 6; // as many connections as the network layer opens to one host
constexpr int TickMs = 200;
constexpr int RenewalWaitMs = 500;
constexpr int MostRenewalWaits = 40;
constexpr qint64 SlowDiskBytesPerMs = 4000;
constexpr qint64 SlowLinkBytesPerMs = 64;
constexpr qint64 SocketBufferBytes = 4000000;

} // namespace

TransferQueue::TransferQueue(Session &session, TransferView &view, const Options &options, Batch &batch)
    : m_session(session)
    , m_view(view)
    , m_batch(batch)
    , m_limitMs(qint64(options.timeoutSeconds) * 1000)
{
    m_pumpTimer.setSingleShot(true);
    connect(&m_pumpTimer, &QTimer::timeout, this, &TransferQueue::pump);
    connect(&Interrupt::instance(), &Interrupt::raised, this, [this] { stop(Stop::Interrupted); });
}

void TransferQueue::run()
{
    m_clock.start();
    m_stillSince.start();
    for (const Transfer &transfer : m_batch.transfers)
        m_ended += transfer.hasEnded() ? 1 : 0;
    QTimer ticker;
    connect(&ticker, &QTimer::timeout, this, &TransferQueue::tick);
    ticker.start(TickMs);
    m_view.update(m_batch, now());
    if (Interrupt::instance().isRaised())
        stop(Stop::Interrupted);
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
    // While the session renews its token, a request would be sent without one.
    if (m_stop == Stop::None && !m_session.api().isUserLoggedIn() && m_renewalWaits < MostRenewalWaits) {
        ++m_renewalWaits;
        m_pumpTimer.start(RenewalWaitMs);
        return;
    }
    m_renewalWaits = 0;
    for (; m_stop == Stop::None && m_active < AtOnce && m_next < m_batch.transfers.size(); ++m_next)
        if (m_batch.transfers[m_next].phase == Phase::Waiting)
            begin(m_next);
}

void TransferQueue::begin(size_t index)
{
    Transfer &transfer = m_batch.transfers[index];
    transfer.begin(now());
    ++m_active;
    m_stillSince.start();
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

void TransferQueue::onProgress(size_t index, qint64 bytes)
{
    m_stillSince.start();
    m_batch.transfers[index].progress(bytes);
}

void TransferQueue::onComplete(size_t index, const ApiError &error)
{
    Transfer &transfer = m_batch.transfers[index];
    if (succeeded(error))
        transfer.end(Phase::Done, {}, now());
    else if (m_stop == Stop::Interrupted)
        transfer.end(Phase::Undone, error, now());
    else if (m_stop == Stop::Stalled)
        transfer.end(Phase::Failed,
                     {0, "No Connection", "nothing moved for " + std::to_string(m_limitMs / 1000) + " seconds"}, now());
    else
        transfer.end(Phase::Failed, error, now());
    m_stillSince.start();
    ++m_ended;
    --m_active;
    m_pumpTimer.start(0);
}

void TransferQueue::tick()
{
    for (Transfer &transfer : m_batch.transfers) {
        if (transfer.phase == Phase::Sending || transfer.phase == Phase::Receiving)
            transfer.meter.note(now(), transfer.moved);
    }
    m_batch.meter.note(now(), m_batch.moved());
    m_view.update(m_batch, now());
    if (m_stop == Stop::None && hasStalled())
        stop(Stop::Stalled);
}

bool TransferQueue::hasStalled() const
{
    if (m_limitMs == 0 || m_active == 0)
        return false;
    // Work on this machine reports no progress, and bytes that count as sent may wait in the socket's buffer.
    qint64 silentMs = 0;
    for (const Transfer &transfer : m_batch.transfers) {
        if (transfer.isLocal())
            silentMs += transfer.total / SlowDiskBytesPerMs;
        else if (transfer.phase == Phase::Confirming)
            silentMs += std::min(transfer.total, SocketBufferBytes) / SlowLinkBytesPerMs;
    }
    return m_stillSince.elapsed() > m_limitMs + silentMs;
}

void TransferQueue::stop(Stop reason)
{
    if (m_stop != Stop::None)
        return;
    m_stop = reason;
    for (Transfer &transfer : m_batch.transfers) {
        if (transfer.phase == Phase::Waiting) {
            transfer.end(Phase::Undone, {}, now());
            ++m_ended;
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
