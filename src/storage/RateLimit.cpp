#include "storage/RateLimit.h"

#include <algorithm>
#include <utility>

namespace Velmora {

namespace {

constexpr qint64 smallestPortion = 1024; // bytes
constexpr qint64 largestPortion = 64 * 1024;
constexpr int portionsPerSecond = 20;
constexpr double longestSaved = 0.1; // seconds

} // namespace

qint64 RateLimit::portion() const { return std::clamp(m_rate / portionsPerSecond, smallestPortion, largestPortion); }

qint64 RateLimit::available(Clock::time_point now)
{
    const double passed = std::chrono::duration<double>(now - std::exchange(m_counted, now)).count();
    const auto rate = static_cast<double>(m_rate);
    const double most = std::max(rate * longestSaved, static_cast<double>(portion()));
    m_saved = std::min(m_saved + rate * passed, most);
    return static_cast<qint64>(m_saved);
}

} // namespace Velmora
