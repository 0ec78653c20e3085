#include "Portal.h"

#include "Control.h"
#include "Directory.h"
#include "FaultList.h"
#include "Journal.h"
#include "Records.h"
#include "Server.h"
#include "Service.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

const std::string controlPath = "/control/";

std::chrono::milliseconds tickOf(std::chrono::milliseconds jobDuration)
{
    return std::clamp(jobDuration / 50, std::chrono::milliseconds(5), std::chrono::milliseconds(200));
}

/// What a fault makes of an answer that the service gave, or would have given.
Answer faulty(const Fault &fault, HttpResponse response)
{
    Answer answer;
    answer.response = std::move(response);
    answer.delay = fault.delay;
    answer.bytes = fault.bytes;
    switch (fault.kind) {
    case FaultKind::CutHead:
        answer.ending = Answer::Ending::CutHead;
        break;
    case FaultKind::CutBody:
        answer.ending = Answer::Ending::CutBody;
        break;
    case FaultKind::ResetAfter:
        answer.ending = Answer::Ending::Reset;
        break;
    case FaultKind::HangUp:
        answer.ending = Answer::Ending::HangUp;
        break;
    case FaultKind::Silence:
        answer.ending = Answer::Ending::Silence;
        break;
    case FaultKind::Status:
        answer.response = {fault.status, fault.contentType, fault.body, {}};
        answer.keepOpen = fault.keepOpen;
        break;
    case FaultKind::Delay:
    case FaultKind::ResetBefore:
    case FaultKind::SocketDrop:
    case FaultKind::SocketSilence:
    case FaultKind::SocketClose:
        break;
    }
    return answer;
}

bool isProcessed(FaultKind kind)
{
    return kind != FaultKind::Status && kind != FaultKind::HangUp && kind != FaultKind::Silence;
}

bool reachesClient(Answer::Ending ending)
{
    return ending == Answer::Ending::Whole || ending == Answer::Ending::CutHead || ending == Answer::Ending::CutBody;
}

} // namespace

// All state lives on the server's thread: the public members go there through `Server::call`.
class Portal::Impl : public ServerHandler, public Controlled {
public:
    explicit Impl(Options wanted)
        : options(std::move(wanted))
        , directory(options.directory)
        , certificates(makeCertificates())
        , caFile(directory.write("ca.pem", certificates.caPem))
        , service(options.jobDuration, options.tokenLifetime,
                  {[this](const std::string &jobId, const std::string &text) { tell(jobId, text); },
                   [this](const std::string &jobId, const std::string &reason) { end(jobId, reason); }})
        , server(options.port, certificates, *this)
    {
        certificates.keyPem.clear();
        server.start(tickOf(options.jobDuration));
    }

    ~Impl() override { server.stop(); }

    bool resetsConnection() override { return faults.take(FaultList::Moment::Connection, {}).has_value(); }

    Answer answer(const HttpRequest &request) override
    {
        Answer answer;
        if (request.target.compare(0, controlPath.size(), controlPath) == 0) {
            answer.response = control(request, *this);
            return answer;
        }
        bool processed = true;
        if (const auto fault = faults.take(FaultList::Moment::Request, faultPath(request.target))) {
            processed = isProcessed(fault->kind);
            answer = faulty(*fault, processed ? service.handle(request) : HttpResponse());
        } else {
            answer.response = service.handle(request);
        }
        note(request, reachesClient(answer.ending) ? answer.response.status : 0, processed);
        return answer;
    }

    std::optional<Answer> refusal(const HttpRequest &request, std::uint64_t id,
                                  std::chrono::milliseconds &delay) override
    {
        Answer answer;
        if (const auto fault = faults.take(FaultList::Moment::Handshake, faultPath(request.target))) {
            if (fault->kind != FaultKind::Delay) {
                answer = faulty(*fault, {});
                note(request, reachesClient(answer.ending) ? answer.response.status : 0, false);
                return answer;
            }
            delay = fault->delay;
        }
        try {
            SeenSocket socket;
            socket.jobId = service.socketJob(request);
            socket.id = id;
            socket.headers = request.headers;
            socket.open = false;
            journal.addSocket(std::move(socket));
            note(request, 101, true);
            return {};
        } catch (const Refusal &refusal) {
            answer.response = {refusal.status, "application/json", dump({{"message", refusal.what()}}), {}};
            answer.delay = delay;
            note(request, refusal.status, true);
            return answer;
        }
    }

    void socketOpened(std::uint64_t id) override
    {
        SeenSocket *socket = journal.socket(id);
        if (!socket)
            return server.drop(id);
        socket->open = true;
        if (const auto fault = faults.take(FaultList::Moment::Socket, "socket/job/progress/" + socket->jobId)) {
            socketFaults[id] = *fault;
            strike(id);
        }
        service.advance();
        for (const std::string &text : service.snapshot(socket->jobId))
            send(*socket, text);
        if (const std::string reason = service.endReason(socket->jobId); !reason.empty() && !socket->silent)
            server.close(id, 1000, reason);
    }

    void socketPinged(std::uint64_t id, std::string payload) override
    {
        if (SeenSocket *socket = journal.socket(id))
            VelmoraPortal::note(socket->pings, std::move(payload));
    }

    void socketTexted(std::uint64_t id, std::string text) override
    {
        if (SeenSocket *socket = journal.socket(id))
            VelmoraPortal::note(socket->texts, std::move(text));
    }

    void socketClosed(std::uint64_t id, int code, std::string reason) override
    {
        socketFaults.erase(id);
        if (SeenSocket *socket = journal.socket(id)) {
            socket->open = false;
            socket->closeCode = code;
            socket->closeReason = std::move(reason);
        }
    }

    void tick() override { service.advance(); }

    void addFault(const Fault &fault) override { faults.add(fault); }
    void dropFaults() override { faults.clear(); }
    void dropRequests() override { journal.clearRequests(); }
    void invalidateTokens() override { service.expireTokens(); }
    void changeTokenLifetime(std::chrono::seconds lifetime) override { service.setTokenLifetime(lifetime); }
    void changeJobDuration(std::chrono::milliseconds duration) override { service.setJobDuration(duration); }
    Json stateOf() const override { return toJson(service.state()); }

    Json faultsJson() const override
    {
        Json list = Json::array();
        for (const Fault &fault : faults.all())
            list.push_back(toJson(fault));
        return list;
    }

    Json requestsJson() const override
    {
        Json list = Json::array();
        for (const SeenRequest &request : journal.requests())
            list.push_back(toJson(request));
        return list;
    }

    Json socketsJson() const override
    {
        Json list = Json::array();
        for (const auto &item : journal.sockets())
            list.push_back(toJson(item.second));
        return list;
    }

    std::size_t touchSockets(const std::string &action, const std::string &jobId, const std::string &text,
                             int code) override
    {
        std::size_t count = 0;
        for (SeenSocket *socket : openSockets(jobId)) {
            ++count;
            if (action == "send") {
                ++socket->sent;
                server.send(socket->id, text);
            } else if (action == "close") {
                server.close(socket->id, code, text);
            } else if (action == "drop") {
                server.drop(socket->id);
            } else {
                socket->silent = true;
            }
        }
        return count;
    }

    std::vector<SeenSocket *> openSockets(const std::string &jobId)
    {
        std::vector<SeenSocket *> list;
        for (const auto &item : journal.sockets())
            if (item.second.open && (jobId.empty() || item.second.jobId == jobId))
                list.push_back(journal.socket(item.first));
        return list;
    }

    Options options;
    Directory directory;
    Certificates certificates;
    std::string caFile;
    FaultList faults;
    Journal journal;
    std::map<std::uint64_t, Fault> socketFaults;
    Service service;
    Server server;

private:
    void note(const HttpRequest &request, int status, bool processed)
    {
        if (options.log)
            options.log(request.method + ' ' + request.target + ' ' + std::to_string(status) +
                        (processed ? "" : " (fault)"));
        journal.add(
            {request.method, request.target, request.headers, request.body, request.connection, status, processed});
    }

    void tell(const std::string &jobId, const std::string &text)
    {
        for (SeenSocket *socket : openSockets(jobId))
            send(*socket, text);
    }

    void end(const std::string &jobId, const std::string &reason)
    {
        for (const SeenSocket *socket : openSockets(jobId))
            if (!socket->silent)
                server.close(socket->id, 1000, reason);
    }

    void send(SeenSocket &socket, const std::string &text)
    {
        if (socket.silent)
            return;
        ++socket.sent;
        server.send(socket.id, text);
        strike(socket.id);
    }

    /// Lets the fault of a socket happen once enough texts have gone out.
    void strike(std::uint64_t id)
    {
        const auto found = socketFaults.find(id);
        SeenSocket *socket = journal.socket(id);
        if (found == socketFaults.end() ||
            socket->sent < static_cast<std::uint64_t>(std::max(found->second.messages, 0)))
            return;
        const Fault fault = found->second;
        socketFaults.erase(found);
        socket->silent = true;
        if (fault.kind == FaultKind::SocketDrop)
            server.drop(id);
        else if (fault.kind == FaultKind::SocketClose)
            server.close(id, fault.closeCode, fault.reason);
    }
};

Portal::Portal(Options options)
    : m_impl(std::make_unique<Impl>(std::move(options)))
{
}
Portal::~Portal() = default;

std::uint16_t Portal::port() const { return m_impl->server.port(); }
std::string Portal::host() const { return "127.0.0.1:" + std::to_string(port()); }
std::string Portal::caFile() const { return m_impl->caFile; }
std::string Portal::caPem() const { return m_impl->certificates.caPem; }

namespace {

/// Runs `work` on the portal's thread and hands back what it returns.
template <typename Work> auto on(Server &server, Work work)
{
    decltype(work()) result{};
    server.call([&] { result = work(); });
    return result;
}

} // namespace

void Portal::inject(const Fault &fault)
{
    m_impl->server.call([&] { m_impl->addFault(fault); });
}

void Portal::clearFaults()
{
    m_impl->server.call([&] { m_impl->dropFaults(); });
}

std::size_t Portal::faultCount() const
{
    return on(m_impl->server, [&] { return m_impl->faults.all().size(); });
}

std::vector<SeenRequest> Portal::requests() const
{
    return on(m_impl->server, [&] {
        const auto &seen = m_impl->journal.requests();
        return std::vector<SeenRequest>(seen.begin(), seen.end());
    });
}

void Portal::clearRequests()
{
    m_impl->server.call([&] { m_impl->dropRequests(); });
}

std::size_t Portal::requestCount(const std::string &path) const
{
    return on(m_impl->server, [&] {
        const auto &seen = m_impl->journal.requests();
        return static_cast<std::size_t>(std::count_if(
            seen.begin(), seen.end(), [&](const SeenRequest &request) { return faultPath(request.target) == path; }));
    });
}

std::string Portal::stateJson() const
{
    return on(m_impl->server, [&] {
        m_impl->service.advance();
        return dump(m_impl->stateOf());
    });
}

std::size_t Portal::jobCount() const
{
    return on(m_impl->server, [&] { return m_impl->service.state().jobs.size(); });
}

std::size_t Portal::jobCount(const std::string &status) const
{
    return on(m_impl->server, [&] {
        m_impl->service.advance();
        const auto &jobs = m_impl->service.state().jobs;
        return static_cast<std::size_t>(
            std::count_if(jobs.begin(), jobs.end(), [&](const Job &job) { return job.status() == status; }));
    });
}

std::string Portal::jobStatus(const std::string &jobId) const
{
    return on(m_impl->server, [&]() -> std::string {
        m_impl->service.advance();
        for (const Job &job : m_impl->service.state().jobs)
            if (job.id == jobId)
                return job.status();
        return {};
    });
}

void Portal::expireTokens()
{
    m_impl->server.call([&] { m_impl->invalidateTokens(); });
}

void Portal::setTokenLifetime(std::chrono::seconds lifetime)
{
    m_impl->server.call([&] { m_impl->changeTokenLifetime(lifetime); });
}

void Portal::setJobDuration(std::chrono::milliseconds duration)
{
    m_impl->server.call([&] { m_impl->changeJobDuration(duration); });
}

std::size_t Portal::sendToSockets(const std::string &jobId, const std::string &text)
{
    return on(m_impl->server, [&] { return m_impl->touchSockets("send", jobId, text, 0); });
}

std::size_t Portal::closeSockets(const std::string &jobId, int code, const std::string &reason)
{
    return on(m_impl->server, [&] { return m_impl->touchSockets("close", jobId, reason, code); });
}

std::size_t Portal::dropSockets(const std::string &jobId)
{
    return on(m_impl->server, [&] { return m_impl->touchSockets("drop", jobId, {}, 0); });
}

std::size_t Portal::silenceSockets(const std::string &jobId)
{
    return on(m_impl->server, [&] { return m_impl->touchSockets("silence", jobId, {}, 0); });
}

std::size_t Portal::openSocketCount(const std::string &jobId) const
{
    return on(m_impl->server, [&] { return m_impl->openSockets(jobId).size(); });
}

std::vector<SeenSocket> Portal::sockets() const
{
    return on(m_impl->server, [&] {
        std::vector<SeenSocket> list;
        for (const auto &item : m_impl->journal.sockets())
            list.push_back(item.second);
        return list;
    });
}

} // namespace VelmoraPortal
