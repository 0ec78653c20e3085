/// @file TransferView.h
/// Transfers on standard error: one bar each that redraws in place, or plain lines.
#ifndef VELMORA_CLI_TRANSFERVIEW_H
#define VELMORA_CLI_TRANSFERVIEW_H

#include "ProgressView.h"
#include "Transfer.h"

#include <vector>

namespace Velmora::Cli {

/// The lines that show transfers: a bar each, and one for all where there are several; at most `size.rows`
/// in all. Where that is not enough, active transfers come first and one line sums up the rest.
QStringList transferFrame(const Batch &batch, Terminal::Size size, BarStyle style);

/// Shows a batch while it runs.
class TransferView {
public:
    explicit TransferView(ProgressMode mode);
    ~TransferView();
    TransferView(const TransferView &) = delete;
    TransferView &operator=(const TransferView &) = delete;

    /// Prints a line above the bars.
    void heading(const QString &text);
    void update(const Batch &batch, qint64 now);

private:
    void writeChanges(const Batch &batch, qint64 now);

    struct Written {
        Transfer::Phase phase = Transfer::Phase::Waiting;
        qint64 at = 0; ///< the time of the last line
    };

    ProgressMode m_mode;
    LiveBlock m_block;
    std::vector<Written> m_written;
    bool m_summed = false;
};

} // namespace Velmora::Cli

#endif
