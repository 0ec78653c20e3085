#pragma once

#include "storage/Request.h"

#include <QTimer>

#include <functional>

namespace Velmora {

/// How often something is tried again, and after which pauses.
struct RetryPolicy {
    int tries = 0;         ///< besides the first one
    int firstPause = 1000; ///< milliseconds; each pause is twice the one before, up to thirty times the first
};

/// The tries of one transfer, or of one piece.
class Retry {
public:
    explicit Retry(const RetryPolicy &policy);

    /// Calls `again` after a pause, from the event loop. @return false: no try is left
    bool start(std::function<void()> again);
    /// Ends the pause, if there is one.
    void stop() { m_timer.stop(); }

private:
    const RetryPolicy m_policy;
    int m_made = 0;
    std::function<void()> m_again;
    QTimer m_timer;
};

/// Whether a server that answers with this status may answer differently in a while.
bool isPassing(int status);
/// Whether the storage does not, or no longer, accept the address.
bool isAddressRefused(const StorageAnswer &answer);
/// Whether another try may go better, with another address where this one was refused.
bool canBeTriedAgain(const StorageAnswer &answer);

} // namespace Velmora
