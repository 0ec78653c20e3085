#pragma once

#include "storage/RateLimit.h"
#include "storage/Request.h"
#include "storage/Route.h"

#include <velmora/ClientOptions.h>

#include <QObject>
#include <QThreadPool>

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace Velmora {

class Exchange;

/// Sends requests to the storage and receives its answers, on a thread of its own, so that the bytes pass no event
/// loop.
///
///     start() ─▶ waiting for its turn ─▶ under way ─ progressed() … ─ answered() ─▶ finished
///
/// Everything public is used on the owner's thread, where the handlers run from a clean stack; they may destroy this
/// object. Cancelling and destroying wait for no network; destroying waits for what sources read and sinks write.
///
/// Turns: to each server, a few large and a few small bodies are sent at a time, and as many received, so that a small
/// one never waits for a large one. An exchange that only waits, for its answer or for a server that does not read,
/// gives its turn away; so does one that was thought small and is not.
///
/// Limits: what all bodies of one direction may move together is given out in portions, to the one first that has
/// waited longest.
///
/// The thread starts with the first request. It ends, and closes the connections that it has kept, when there was none
/// for a while.
class StorageClient : public QObject {
public:
    using Id = std::uint64_t;
    struct Handlers {
        /// Bytes of the body that have gone out so far; with a sink, bytes that have come in for it.
        std::function<void(qint64 bytes)> progressed;
        std::function<void(const StorageAnswer &)> answered;
    };

    StorageClient();
    ~StorageClient() override;

    /// The limits hold at once, the rest for the requests that follow.
    void setOptions(const ClientOptions &options);
    /// @param request  with an address that `targetOf` takes
    Id start(const StorageRequest &request, Handlers handlers);
    /// Neither handler is called any more. Does nothing for a request that was answered.
    void cancel(Id id);

    /// How long the thread waits for another request before it ends, closing its connections. Tests lower it, before
    /// the first request.
    void setIdleTime(std::chrono::milliseconds time) { m_idleTime = time; }
    bool isRunning(); ///< whether the thread has not ended

    /// For work on sources and sinks: nobody else's work keeps them waiting.
    QThreadPool *pool() { return &m_pool; }

protected:
    void customEvent(QEvent *event) override;

private:
    /// A request on its way through both threads.
    struct Entry;
    using EntryPointer = std::shared_ptr<Entry>;
    /// Bodies that go to one server, or come from it, by size class: small, large.
    struct Lane {
        std::deque<EntryPointer> waiting[2];
        int turns[2] = {}; ///< taken
    };
    /// What holds for all requests, whenever they were made.
    struct Limits {
        qint64 toStorage = 0;   ///< bytes per second; 0: none
        qint64 fromStorage = 0; ///< as above
        int perHost = 0;        ///< turns; 0: as many as usual
    };
    struct Command {
        enum Kind { Start, Cancel, Resume } kind;
        EntryPointer entry;
    };

    // On any thread.
    void send(Command command);
    void report(const EntryPointer &entry);
    bool notify(bool now);

    // On the storage thread.
    void run();
    bool serve();
    void handle(const Command &command);
    void giveTurns();
    void begin(const EntryPointer &entry, Lane &lane);
    void takeBackTurns();
    void endStalled();
    void shareOut(RateLimit &limit, bool fromStorage);
    std::chrono::milliseconds timeToWait() const;
    void collectAnswers();
    void finish(EntryPointer entry, CURLcode result, const QString &problem = {});
    void report(const EntryPointer &entry, StorageAnswer answer);
    void end(Entry &entry);

    ClientOptions m_options;
    TrustReader m_trust;
    std::chrono::milliseconds m_idleTime{20000};
    Id m_lastId = 0;
    std::map<Id, EntryPointer> m_entries;
    QThreadPool m_pool;
    std::thread m_thread;

    std::mutex m_mutex; // guards what follows
    std::vector<Command> m_commands;
    std::vector<EntryPointer> m_reports; ///< entries with news for the owner
    bool m_isNotified = false;           ///< the owner knows that there is news
    std::chrono::steady_clock::time_point m_notifiedAt;
    CURLM *m_awake = nullptr; ///< can be woken
    bool m_running = false;
    bool m_stop = false;
    Limits m_wantedLimits;

    // Of the storage thread.
    CURLM *m_multi = nullptr;
    std::map<QByteArray, Lane> m_lanes;
    std::list<EntryPointer> m_underWay;
    Limits m_limits;
    RateLimit m_toStorage;
    RateLimit m_fromStorage;
};

} // namespace Velmora
