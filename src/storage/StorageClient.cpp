#include "storage/StorageClient.h"

#include "crypto/Cipher.h"
#include "storage/Exchange.h"
#include "storage/Sink.h"
#include "storage/Source.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace Velmora {

namespace {

using std::chrono::milliseconds;

constexpr qint64 smallBody = 1024 * 1024; // bytes, at most
constexpr int turnsOfSmall = 10;          // to a server; connections are kept and used again
constexpr int turnsOfLarge = 6;
constexpr std::size_t mostUnderWay = 128;  // also of those that only wait: each is a connection
constexpr milliseconds patience{200};      // with an answer, before the turn is given away
constexpr milliseconds longPatience{2000}; // with a body that does not go on
constexpr milliseconds idleTime{20000};    // before the thread ends
constexpr long connectionsKept = 32;
constexpr int poolThreads = 4; // that read and encrypt, decrypt and write

// Once for the process. The library is never ended: others in the process may use it.
bool initialiseLibrary()
{
    static const bool done = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return done;
}

} // namespace

struct StorageClient::Entry {
    Entry(Id number, Handlers both, const StorageRequest &request, const Target &target, const Proxy &proxy,
          const Trust &trust)
        : id(number)
        , handlers(std::move(both))
        , exchange(request, target, proxy, trust)
        , isLarge(exchange.isLarger(smallBody))
    {
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
    const bool isLarge;   ///< as was known at first
};

StorageClient::StorageClient() { m_pool.setMaxThreadCount(poolThreads); }

StorageClient::~StorageClient()
{
    {
        const std::lock_guard lock(m_mutex);
        m_stop = true;
        if (m_awake)
            curl_multi_wakeup(m_awake);
    }
    if (m_thread.joinable())
        m_thread.join();
    m_pool.clear();
    m_pool.waitForDone();
    const std::lock_guard lock(m_mutex); // what the pool did here has been done
}

StorageClient::Id StorageClient::start(const StorageRequest &request, Handlers handlers)
{
    const Target target = targetOf(request.address).value_or(Target());
    const auto entry = std::make_shared<Entry>(++m_lastId, std::move(handlers), request, target, proxyTo(target.server),
                                               m_trust.read());
    m_entries.emplace(entry->id, entry);
    send({Command::Start, entry});
    return entry->id;
}

void StorageClient::cancel(Id id)
{
    const auto found = m_entries.find(id);
    if (found == m_entries.end())
        return;
    send({Command::Cancel, found->second});
    m_entries.erase(found);
}

void StorageClient::send(Command command)
{
    const std::lock_guard lock(m_mutex);
    m_commands.push_back(std::move(command));
    if (m_awake)
        curl_multi_wakeup(m_awake);
    if (m_running || m_stop || m_commands.back().kind != Command::Start)
        return;
    if (m_thread.joinable()) // the last one, in its last lines
        m_thread.join();
    m_running = true;
    m_thread = std::thread(&StorageClient::run, this);
}

void StorageClient::report(const EntryPointer &entry)
{
    const std::lock_guard lock(m_mutex);
    if (std::exchange(entry->reported, true))
        return;
    m_reports.push_back(entry);
    if (m_reports.size() == 1)
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
}

void StorageClient::customEvent(QEvent *)
{
    struct Report {
        EntryPointer entry;
        qint64 sent;
        std::optional<StorageAnswer> answer;
    };
    std::vector<Report> reports;
    {
        const std::lock_guard lock(m_mutex);
        for (EntryPointer &entry : m_reports) {
            entry->reported = false;
            reports.push_back({entry, entry->sent, std::move(entry->answer)});
            entry->answer.reset();
        }
        m_reports.clear();
    }
    const QPointer<StorageClient> self(this);
    for (const auto &[entry, sent, answer] : reports) {
        const auto isHeld = [&, id = entry->id] { return self && m_entries.count(id) > 0; };
        const Handlers handlers = entry->handlers;
        if (isHeld() && sent > entry->progressed) {
            entry->progressed = sent;
            handlers.progressed(sent);
        }
        if (!isHeld() || !answer)
            continue;
        m_entries.erase(entry->id);
        handlers.answered(*answer);
    }
}

void StorageClient::run()
{
    const CipherThreadState state; // of the TLS connections
    m_multi = initialiseLibrary() ? curl_multi_init() : nullptr;
    curl_multi_setopt(m_multi, CURLMOPT_MAXCONNECTS, connectionsKept);
    curl_multi_setopt(m_multi, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_NOTHING));
    {
        const std::lock_guard lock(m_mutex);
        m_awake = m_multi;
    }
    while (serve()) {
    }
    for (const EntryPointer &entry : m_underWay)
        end(*entry);
    for (auto &[name, lane] : m_lanes) {
        for (const EntryPointer &entry : lane.waiting)
            entry->exchange.close();
    }
    m_underWay.clear();
    m_lanes.clear();
    curl_multi_cleanup(m_multi);
    m_multi = nullptr;
}

// One round. @return false: the thread's end
bool StorageClient::serve()
{
    std::vector<Command> commands;
    {
        const std::lock_guard lock(m_mutex);
        commands.swap(m_commands);
        if (m_stop) {
            m_awake = nullptr;
            return false;
        }
    }
    for (const Command &command : commands)
        handle(command);
    giveTurns();
    int running = 0;
    curl_multi_perform(m_multi, &running);
    collectAnswers();
    takeBackTurns();
    giveTurns();
    const bool idle = m_underWay.empty();
    const auto since = Exchange::Clock::now();
    curl_multi_poll(m_multi, nullptr, 0, static_cast<int>((idle ? idleTime : patience).count()), nullptr);
    if (!idle || (m_multi && Exchange::Clock::now() - since < idleTime))
        return true;
    const std::lock_guard lock(m_mutex);
    if (!m_commands.empty())
        return true;
    m_running = false;
    m_awake = nullptr;
    return false;
}

void StorageClient::handle(const Command &command)
{
    const EntryPointer &entry = command.entry;
    Exchange &exchange = entry->exchange;
    const auto underWay = std::find(m_underWay.begin(), m_underWay.end(), entry);
    if (command.kind == Command::Resume) {
        if (underWay != m_underWay.end() && !exchange.resume())
            finish(entry, CURLE_WRITE_ERROR);
        return;
    }
    Lane &lane = m_lanes[(entry->isLarge ? "large " : "small ") + QByteArray(exchange.sink() ? "from " : "to ") +
                         exchange.server()];
    if (command.kind == Command::Start) {
        lane.waiting.push_back(entry);
    } else if (underWay != m_underWay.end()) {
        end(*entry);
        m_underWay.erase(underWay);
    } else {
        lane.waiting.erase(std::remove(lane.waiting.begin(), lane.waiting.end(), entry), lane.waiting.end());
        exchange.close();
    }
}

void StorageClient::giveTurns()
{
    for (auto &[name, lane] : m_lanes) {
        const int most = name.startsWith("small ") ? turnsOfSmall : turnsOfLarge;
        while (!lane.waiting.empty() && lane.turns < most && m_underWay.size() < mostUnderWay) {
            const EntryPointer next = lane.waiting.front();
            lane.waiting.pop_front();
            begin(next, lane);
        }
    }
}

void StorageClient::begin(const EntryPointer &entry, Lane &lane)
{
    const std::weak_ptr<Entry> weak = entry; // the exchange is the entry's
    CURL *const handle = m_multi ? entry->exchange.open(entry.get(),
                                                        [this, weak](qint64 sent) {
                                                            if (const EntryPointer held = weak.lock()) {
                                                                {
                                                                    const std::lock_guard lock(m_mutex);
                                                                    held->sent = sent;
                                                                }
                                                                report(held);
                                                            }
                                                        })
                                 : nullptr;
    if (!handle || curl_multi_add_handle(m_multi, handle) != CURLM_OK) {
        entry->exchange.close();
        {
            const std::lock_guard lock(m_mutex);
            entry->answer = StorageAnswer{0, {}, QStringLiteral("No connection could be set up: memory is short.")};
        }
        report(entry);
        return;
    }
    ++lane.turns;
    entry->lane = &lane;
    m_underWay.push_back(entry);
    const auto resume = [this, weak] {
        if (EntryPointer held = weak.lock())
            send({Command::Resume, std::move(held)});
    };
    if (const auto &body = entry->exchange.body())
        body->begin(&m_pool, resume);
    if (const auto &sink = entry->exchange.sink())
        sink->begin(&m_pool, resume);
}

void StorageClient::takeBackTurns()
{
    const auto now = Exchange::Clock::now();
    for (const EntryPointer &entry : m_underWay) {
        const Exchange &exchange = entry->exchange;
        const bool isIdle = now - exchange.movedAt() >= (exchange.isSent() ? patience : longPatience);
        if (entry->lane && (isIdle || (!entry->isLarge && exchange.isLarger(smallBody)))) {
            --entry->lane->turns;
            entry->lane = nullptr;
        }
    }
}

void StorageClient::collectAnswers()
{
    int left = 0;
    while (const CURLMsg *message = curl_multi_info_read(m_multi, &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        const CURLcode result = message->data.result;
        void *owner = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &owner);
        finish(*std::find_if(m_underWay.begin(), m_underWay.end(),
                             [owner](const EntryPointer &each) { return each.get() == owner; }),
               result);
    }
}

// Ends an exchange that is under way with its answer. Takes a copy of the entry, which may stand in the list.
void StorageClient::finish(EntryPointer entry, CURLcode result)
{
    m_underWay.remove(entry);
    StorageAnswer answer = entry->exchange.answer(result);
    end(*entry);
    {
        const std::lock_guard lock(m_mutex);
        entry->answer = std::move(answer);
    }
    report(entry);
}

// Takes an exchange that is under way off the connection.
void StorageClient::end(Entry &entry)
{
    curl_multi_remove_handle(m_multi, entry.exchange.handle());
    entry.exchange.close();
    if (entry.lane)
        --entry.lane->turns;
    entry.lane = nullptr;
}

} // namespace Velmora
