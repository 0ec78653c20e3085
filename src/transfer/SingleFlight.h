#pragma once

#include <QMap>
#include <QObject>

#include <functional>
#include <iterator>
#include <list>
#include <utility>

namespace Velmora {

/// Requests that waiters share: the first waiter for a key starts one, those that come while it is under way join it.
/// When the last of them has gone (its context was destroyed) the request is aborted, so that the next waiter asks
/// anew.
///
/// A `Waiter` has a member `context`.
template <class Key, class Waiter> class SingleFlight {
public:
    using Abort = std::function<void()>;

    /// Adds a waiter. `start` sends the request and returns how to abort it.
    template <class Start> void join(const Key &key, Waiter waiter, Start start)
    {
        const bool underWay = m_flights.contains(key);
        QObject::connect(waiter.context, &QObject::destroyed, &m_guard,
                         [this] { takeIf([](const Waiter &each) { return !each.context; }); });
        m_flights[key].waiters.push_back(std::move(waiter));
        if (!underWay)
            m_flights[key].abort = start();
    }

    /// Ends the sharing of a key's request, which has been answered: returns those who waited.
    std::list<Waiter> finish(const Key &key) { return m_flights.take(key).waiters; }

    /// Removes the waiters of all keys that `wanted` picks, and returns them.
    template <class Wanted> std::list<Waiter> takeIf(Wanted wanted)
    {
        std::list<Waiter> taken;
        for (auto flight = m_flights.begin(); flight != m_flights.end();) {
            std::list<Waiter> &waiters = flight->waiters;
            for (auto waiter = waiters.begin(); waiter != waiters.end();) {
                const auto next = std::next(waiter);
                if (wanted(*waiter))
                    taken.splice(taken.end(), waiters, waiter);
                waiter = next;
            }
            if (!waiters.empty()) {
                ++flight;
                continue;
            }
            const Abort abort = std::move(flight->abort);
            flight = m_flights.erase(flight);
            abort();
        }
        return taken;
    }

private:
    struct Flight {
        std::list<Waiter> waiters;
        Abort abort;
    };

    QMap<Key, Flight> m_flights;
    QObject m_guard; ///< ends the connections to contexts
};

} // namespace Velmora
