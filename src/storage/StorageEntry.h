#pragma once

#include "storage/Exchange.h"
#include "storage/StorageClient.h"

#include <utility>

namespace Velmora {

struct StorageClient::Entry {
    static constexpr qint64 smallBody = 1024 * 1024; // bytes, at most

    Entry(Id number, Handlers both, const StorageRequest &request, const Target &target, const Proxy &proxy,
          const Trust &trust, std::chrono::seconds longestStall)
        : id(number)
        , handlers(std::move(both))
        , exchange(request, target, proxy, trust)
        , size(exchange.isLarger(smallBody) ? 1 : 0)
        , hasWaited(request.hasWaited)
        , stallTime(longestStall)
    {
        if (request.validFor > 0)
            validUntil = Exchange::Clock::now() + std::chrono::milliseconds(request.validFor);
    }

    // The owner's.
    const Id id;
    const Handlers handlers;
    qint64 progressed = 0;

    // Guarded by the client's mutex.
    qint64 sent = 0;
    std::optional<StorageAnswer> answer;
    bool reported = false; ///< is among the reports

    // The storage thread's.
    Exchange exchange;
    Lane *lane = nullptr; ///< whose turn it has
    const int size;       ///< class, as was known at first
    const bool hasWaited;
    const std::chrono::seconds stallTime; ///< 0: no end
    Exchange::Clock::time_point validUntil = Exchange::Clock::time_point::max();
};

} // namespace Velmora
