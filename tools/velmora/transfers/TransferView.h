/// @file TransferView.h
/// Transfers on standard error: one bar each that redraws in place, or plain lines.
#ifndef VELMORA_CLI_TRANSFERVIEW_H
#define VELMORA_CLI_TRANSFERVIEW_H

#include "common/Progress.h"
#include "transfers/Transfer.h"

#include <vector>

namespace Velmora::Cli {

/// The lines that show transfers: a bar each, and one for all where there are several; at most `size.rows`
/// in all. Where that is not enough, there are some active and the failed ones, and a line that sums up the rest.
QStringList transferFrame(const Batch &batch, Terminal::Size size, BarStyle style);

/// Shows a batch while it runs.
class TransferView {
public:
    explicit TransferView(ProgressMode mode);
    ~TransferView();
    TransferView(const TransferView &) = delete;
    TransferView &operator=(const TransferView &) = delete;

    void update(const Batch &batch, qint64 now);

private:
    void writeChanges(const Batch &batch, qint64 now);
    void writeEvents(const Batch &batch, qint64 now);
    /// At the end, and after each interval before it.
    bool isTotalDue(const Batch &batch, qint64 now, qint64 interval);

    struct Written {
        Transfer::Phase phase = Transfer::Phase::Waiting;
        qint64 at = 0; ///< the time of the last line
    };
    /// What was written of each transfer. One that ended before it began has nothing to say.
    std::vector<Written> &written(const Batch &batch);

    ProgressMode m_mode;
    LiveBlock m_block;
    std::vector<Written> m_written;
    qint64 m_summedAt = 0;
    bool m_summed = false; ///< for the last time
};

} // namespace Velmora::Cli

#endif
