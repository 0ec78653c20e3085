#include "storage/StorageClient.h"

#include "crypto/Cipher.h"
#include "storage/Sink.h"
#include "storage/Source.h"
#include "storage/StorageEntry.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace Velmora {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds newsTime{10}; // between two notices of progress; each wakes the owner's thread
constexpr long connectionsKept = 32;
constexpr int poolThreads = 4; // that read and encrypt, decrypt and write

// Once for the process. The library is never ended: others in the process may use it.
bool initialiseLibrary()
{
    static const bool done = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return done;
}

} // namespace

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

void StorageClient::setOptions(const ClientOptions &options)
{
    m_options = options;
    const auto positive = [](auto number) { return std::max<decltype(number)>(number, 0); };
    const std::lock_guard lock(m_mutex);
    m_wantedLimits = {positive(options.uploadBytesPerSecond), positive(options.downloadBytesPerSecond),
                      positive(options.connectionsPerHost)};
    if (m_awake)
        curl_multi_wakeup(m_awake);
}

StorageClient::Id StorageClient::start(const StorageRequest &request, Handlers handlers)
{
    const Target target = targetOf(request.address).value_or(Target());
    const Trust trust = m_trust.read(QString::fromStdString(m_options.caFile));
    const std::chrono::seconds longestStall(std::max(m_options.stallTimeout, 0));
    const auto entry = std::make_shared<Entry>(++m_lastId, std::move(handlers), request, target, proxyTo(target.server),
                                               trust, longestStall);
    m_entries.emplace(entry->id, entry);
    if (trust.problem.isEmpty())
        send({Command::Start, entry});
    else
        report(entry, {0, {}, trust.problem});
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

bool StorageClient::isRunning()
{
    const std::lock_guard lock(m_mutex);
    return m_running;
}

// The mutex is held.
void StorageClient::report(const EntryPointer &entry)
{
    if (!std::exchange(entry->reported, true))
        m_reports.push_back(entry);
    notify(entry->answer.has_value());
}

void StorageClient::report(const EntryPointer &entry, StorageAnswer answer)
{
    const std::lock_guard lock(m_mutex);
    entry->answer = std::move(answer);
    report(entry);
}

// The mutex is held. @return whether there is news that has to wait
bool StorageClient::notify(bool now)
{
    if (m_reports.empty() || m_isNotified)
        return false;
    const auto time = Exchange::Clock::now();
    if (!now && time - m_notifiedAt < newsTime)
        return true;
    m_isNotified = true;
    m_notifiedAt = time;
    QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    return false;
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
        for (const EntryPointer &entry : std::exchange(m_reports, {})) {
            entry->reported = false;
            reports.push_back({entry, entry->sent, std::move(entry->answer)});
            entry->answer.reset();
        }
        m_isNotified = false;
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
        for (const auto &waiting : lane.waiting) {
            for (const EntryPointer &entry : waiting)
                entry->exchange.close();
        }
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
        m_limits = m_wantedLimits;
        if (m_stop) {
            m_awake = nullptr;
            return false;
        }
    }
    for (const Command &command : commands)
        handle(command);
    m_toStorage.setRate(m_limits.toStorage);
    m_fromStorage.setRate(m_limits.fromStorage);
    giveTurns();
    shareOut(m_toStorage, false);
    shareOut(m_fromStorage, true);
    int running = 0;
    curl_multi_perform(m_multi, &running);
    collectAnswers();
    endStalled();
    takeBackTurns();
    giveTurns();
    const bool idle = m_underWay.empty();
    const auto since = Exchange::Clock::now();
    milliseconds time = idle ? m_idleTime : timeToWait();
    {
        const std::lock_guard lock(m_mutex);
        if (notify(false))
            time = std::min(time, newsTime);
    }
    curl_multi_poll(m_multi, nullptr, 0, static_cast<int>(time.count()), nullptr);
    if (!idle || (m_multi && Exchange::Clock::now() - since < m_idleTime))
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
    Lane &lane = m_lanes[(exchange.sink() ? "from " : "to ") + exchange.server()];
    auto &waiting = lane.waiting[entry->size];
    if (command.kind == Command::Start) {
        waiting.insert(entry->hasWaited ? waiting.begin() : waiting.end(), entry);
    } else if (underWay != m_underWay.end()) {
        end(*entry);
        m_underWay.erase(underWay);
    } else {
        waiting.erase(std::remove(waiting.begin(), waiting.end(), entry), waiting.end());
        exchange.close();
    }
}

void StorageClient::begin(const EntryPointer &entry, Lane &lane)
{
    const std::weak_ptr<Entry> weak = entry; // the exchange is the entry's
    CURL *const handle = m_multi ? entry->exchange.open(entry.get(),
                                                        [this, weak](qint64 sent) {
                                                            if (const EntryPointer held = weak.lock()) {
                                                                const std::lock_guard lock(m_mutex);
                                                                held->sent = sent;
                                                                report(held);
                                                            }
                                                        })
                                 : nullptr;
    if (!handle || curl_multi_add_handle(m_multi, handle) != CURLM_OK) {
        entry->exchange.close();
        report(entry, {0, {}, QStringLiteral("No connection could be set up: memory is short.")});
        return;
    }
    ++lane.turns[entry->size];
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
void StorageClient::finish(EntryPointer entry, CURLcode result, const QString &problem)
{
    m_underWay.remove(entry);
    StorageAnswer answer = entry->exchange.answer(result);
    if (!problem.isEmpty())
        answer.problem = problem;
    end(*entry);
    report(entry, std::move(answer));
}

// Takes an exchange that is under way off the connection.
void StorageClient::end(Entry &entry)
{
    curl_multi_remove_handle(m_multi, entry.exchange.handle());
    entry.exchange.close();
    (entry.exchange.sink() ? m_fromStorage : m_toStorage)
        .give(-entry.exchange.share()); // what is left, or was too much
    if (entry.lane)
        --entry.lane->turns[entry.size];
    entry.lane = nullptr;
}

} // namespace Velmora
