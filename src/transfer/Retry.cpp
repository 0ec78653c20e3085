#include "transfer/Retry.h"

#include <algorithm>
#include <utility>

namespace Velmora {

namespace {

constexpr int longestPause = 30; // first pauses
constexpr int mostDoublings = 5; // enough to be longer

} // namespace

Retry::Retry(const RetryPolicy &policy)
    : m_policy(policy)
{
    m_timer.setSingleShot(true);
    QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] { std::exchange(m_again, nullptr)(); });
}

bool Retry::start(std::function<void()> again)
{
    if (m_made >= m_policy.tries)
        return false;
    m_again = std::move(again);
    m_timer.start(m_policy.firstPause * std::min(1 << std::min(m_made++, mostDoublings), longestPause));
    return true;
}

bool isPassing(int status) { return status == 408 || status == 429 || status >= 500; }

bool isAddressRefused(const StorageAnswer &answer)
{
    return answer.status == 401 || answer.status == 403 || answer.status == 404 || answer.status == 410;
}

bool canBeTriedAgain(const StorageAnswer &answer)
{
    if (answer.status >= 300)
        return isPassing(answer.status) || isAddressRefused(answer) || answer.isRangeWrong;
    return answer.isBroken || answer.isRangeWrong;
}

} // namespace Velmora
