/// @file TransferQueue.h
/// Transfers several files, a few at a time.
#ifndef VELMORA_CLI_TRANSFERQUEUE_H
#define VELMORA_CLI_TRANSFERQUEUE_H

#include "Session.h"
#include "Transfer.h"
#include "TransferView.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QObject>
#include <QTimer>

namespace Velmora::Cli {

/// Transfers a batch of files. A failed transfer does not stop the others. Ctrl-C cancels the active
/// transfers and starts no more. So does the user's time limit when no transfer moves for that long:
/// by itself the library would wait without limit.
class TransferQueue : public QObject {
    Q_OBJECT
public:
    /// All must outlive the queue.
    TransferQueue(Session &session, TransferView &view, const Options &options, Batch &batch);

    /// Runs the event loop until every transfer has ended.
    void run();

private:
    enum class Stop { None, Interrupted, Stalled };

    void pump();
    void begin(size_t index);
    void onProgress(size_t index, qint64 bytes);
    void onComplete(size_t index, const ApiError &error);
    void tick();
    bool hasStalled() const;
    void stop(Stop reason);
    qint64 now() const { return m_clock.elapsed(); }

    Session &m_session;
    TransferView &m_view;
    Batch &m_batch;
    const qint64 m_limitMs; ///< 0 for none
    QEventLoop m_loop;
    QTimer m_pumpTimer;
    QElapsedTimer m_clock;
    QElapsedTimer m_stillSince;
    size_t m_next = 0;
    size_t m_ended = 0;
    int m_active = 0;
    int m_renewalWaits = 0;
    Stop m_stop = Stop::None;
};

} // namespace Velmora::Cli

#endif
