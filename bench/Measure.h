#pragma once

#include <QElapsedTimer>
#include <QTimer>

#include <vector>

namespace Bench {

/// Measures the time between two turns of an event loop that has a timer of 1 ms.
class Pauses {
public:
    Pauses();
    double longest();   ///< milliseconds; stops measuring
    double within999(); ///< milliseconds, for 99.9 % of the turns; stops measuring

private:
    void stop();

    QTimer m_timer;
    QElapsedTimer m_clock;
    std::vector<double> m_times;
};

/// KiB, as the kernel counts for this process.
long memory(const char *what);
/// Resets the kernel's peak value "VmHWM:".
void forgetPeak();

/// Runs the event loop.
void turnFor(int milliseconds);

} // namespace Bench
