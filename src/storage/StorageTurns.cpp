// Which requests may move bytes now, and how many.

#include "storage/StorageClient.h"
#include "storage/StorageEntry.h"

#include <algorithm>

namespace Velmora {

namespace {

using std::chrono::milliseconds;

constexpr int turnsOf[] = {10, 6};         // small, large; to a server; connections are kept and used again
constexpr std::size_t mostUnderWay = 128;  // also of those that only wait: each is a connection
constexpr milliseconds patience{200};      // with an answer, before the turn is given away
constexpr milliseconds longPatience{2000}; // with a body that does not go on
constexpr milliseconds shareTime{10};      // before more may be given out of what a limit allows

} // namespace

void StorageClient::giveTurns()
{
    for (auto &[name, lane] : m_lanes) {
        for (const int size : {0, 1}) { // where a few turns are all there are, small bodies go first
            auto &waiting = lane.waiting[size];
            const auto hasTurn = [&, &turns = lane.turns] {
                return m_limits.perHost > 0 ? turns[0] + turns[1] < m_limits.perHost : turns[size] < turnsOf[size];
            };
            while (!waiting.empty() && hasTurn() && m_underWay.size() < mostUnderWay) {
                const EntryPointer next = waiting.front();
                waiting.pop_front();
                if (next->validUntil >= Exchange::Clock::now()) {
                    begin(next, lane);
                    continue;
                }
                next->exchange.close();
                StorageAnswer answer;
                answer.isOutdated = true;
                report(next, answer);
            }
        }
    }
}

void StorageClient::takeBackTurns()
{
    const auto now = Exchange::Clock::now();
    for (const EntryPointer &entry : m_underWay) {
        const Exchange &exchange = entry->exchange;
        const bool isIdle = now - exchange.movedAt() >= (exchange.isSent() ? patience : longPatience);
        if (entry->lane && (isIdle || (entry->size == 0 && exchange.isLarger(Entry::smallBody)))) {
            --entry->lane->turns[entry->size];
            entry->lane = nullptr;
        }
    }
}

void StorageClient::endStalled()
{
    const auto now = Exchange::Clock::now();
    std::vector<EntryPointer> stalled;
    for (const EntryPointer &entry : m_underWay) {
        if (entry->stallTime.count() > 0 && now - entry->exchange.activeAt() >= entry->stallTime)
            stalled.push_back(entry);
    }
    for (const EntryPointer &entry : stalled)
        finish(entry, CURLE_OPERATION_TIMEDOUT, entry->exchange.stalledText(entry->stallTime));
}

// Gives those that wait for it what a limit allows by now.
void StorageClient::shareOut(RateLimit &limit, bool fromStorage)
{
    std::vector<EntryPointer> waiting;
    for (const EntryPointer &entry : m_underWay) {
        Exchange &exchange = entry->exchange;
        if ((exchange.sink() != nullptr) != fromStorage)
            continue;
        exchange.setLimited(limit.isOn());
        if (exchange.waitsForShare())
            waiting.push_back(entry);
    }
    std::sort(waiting.begin(), waiting.end(), [](const EntryPointer &left, const EntryPointer &right) {
        return left->exchange.waitsSince() < right->exchange.waitsSince();
    });
    qint64 left = limit.available(Exchange::Clock::now());
    for (std::size_t i = 0; i < waiting.size(); ++i) {
        if (limit.isOn() && left < limit.portion())
            break;
        const qint64 share = std::max(limit.portion(), left / static_cast<qint64>(waiting.size() - i));
        left -= share;
        limit.give(share);
        Exchange &exchange = waiting[i]->exchange;
        if (!(limit.isOn() ? exchange.giveShare(share) : exchange.resume()))
            finish(waiting[i], CURLE_WRITE_ERROR);
    }
}

milliseconds StorageClient::timeToWait() const
{
    const bool isSharing = std::any_of(m_underWay.begin(), m_underWay.end(),
                                       [](const EntryPointer &each) { return each->exchange.waitsForShare(); });
    return isSharing ? shareTime : patience;
}

} // namespace Velmora
