#pragma once

#include <QtGlobal>

#include <chrono>

namespace Velmora {

/// How many bytes some exchanges may move together: what is given out grows by the rate, and no more than a tenth of
/// a second's worth is saved. Of the storage thread.
class RateLimit {
public:
    using Clock = std::chrono::steady_clock;

    /// Bytes per second; 0: no limit.
    void setRate(qint64 rate) { m_rate = rate; }
    bool isOn() const { return m_rate > 0; }
    /// The least that one exchange is given at a time, so that no network packet is tiny.
    qint64 portion() const;
    /// Bytes that may be given out now.
    qint64 available(Clock::time_point now);
    void give(qint64 bytes) { m_saved -= static_cast<double>(bytes); }

private:
    qint64 m_rate = 0;
    double m_saved = 0; ///< bytes
    Clock::time_point m_counted;
};

} // namespace Velmora
