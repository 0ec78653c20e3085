/// @file TransferQueue.h
/// Transfers several files, a few at a time.
#ifndef VELMORA_CLI_TRANSFERQUEUE_H
#define VELMORA_CLI_TRANSFERQUEUE_H

#include "session/Session.h"
#include "transfers/Transfer.h"
#include "transfers/TransferView.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QObject>
#include <QTemporaryDir>
#include <QThreadPool>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

namespace Velmora::Cli {

/// Transfers a batch of files, small ones first. A failed transfer does not stop the others. Ctrl-C cancels the active
/// transfers and starts no more. The library tries again what breaks or stalls. An address that the storage refuses is
/// replaced once; a second refusal is final, which the library alone would find out after half a minute only.
class TransferQueue : public QObject {
    Q_OBJECT
public:
    /// Receives each transfer that is done, with its local file as it was transferred.
    using Done = std::function<void(const Transfer &)>;

    /// All must outlive the queue.
    TransferQueue(Session &session, TransferView &view, Batch &batch, Done onDone = {});
    ~TransferQueue() override;

    /// Runs the event loop until every transfer has ended.
    void run();

private:
    void pump();
    void begin(size_t index);
    void start(size_t index, int retries);
    /// How the transfer is to be tried once more after this error; negative: not at all.
    int retriesAfter(size_t index, const ApiError &error) const;
    void probe(size_t index);
    void onProbed(size_t index, const ApiError &error);
    void onProgress(size_t index, qint64 bytes);
    void onComplete(size_t index, const ApiError &error);
    void onHashed(size_t index, const QByteArray &hash);
    void finish(size_t index, const ApiError &error);
    void tick();
    void stop();
    qint64 now() const { return m_clock.elapsed(); }

    Session &m_session;
    TransferView &m_view;
    Batch &m_batch;
    const Done m_onDone;
    std::vector<size_t> m_order; ///< in which they begin
    std::vector<char> m_isSent;  ///< uploads that wait for their hash only
    std::vector<char> m_isTried; ///< as often as the library can try, or for the second time
    std::vector<char> m_isProbed;
    std::unique_ptr<QTemporaryDir> m_probes;
    ApiError m_refusal; ///< why a download is being cancelled
    QEventLoop m_loop;
    QTimer m_pumpTimer;
    QElapsedTimer m_clock;
    size_t m_next = 0; ///< in the order
    size_t m_ended = 0;
    int m_active = 0;
    qint64 m_activeBytes = 0;
    bool m_stopped = false;
    std::atomic<bool> m_stopHashing{false};
    QThreadPool m_hashing; ///< destroyed first: it waits for its threads
};

} // namespace Velmora::Cli

#endif
