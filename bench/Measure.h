#pragma once

#include <QElapsedTimer>
#include <QTimer>

#include <string>
#include <vector>

namespace Bench {

/// Times between two turns of the event loop that has a timer of 1 ms.
class Pauses {
public:
    Pauses();
    double longest(); ///< milliseconds; stops
    std::string text();

private:
    void stop();

    QTimer m_timer;
    QElapsedTimer m_clock;
    std::vector<double> m_times;
};

/// KiB, from the kernel's books of this process.
long memory(const char *what);
/// What "VmHWM:" tells starts anew.
void forgetPeak();

/// Lets the event loop turn.
void turnFor(int milliseconds);

} // namespace Bench
