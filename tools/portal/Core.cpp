#include "portal/Core.h"

#include "portal/control/FaultEffect.h"
#include "portal/http/Text.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

const std::string controlPath = "/control/";
constexpr std::size_t maxNotedBody = 64 * 1024;

std::chrono::milliseconds tickOf(std::chrono::milliseconds jobDuration)
{
    return std::clamp(jobDuration / 50, std::chrono::milliseconds(5), std::chrono::milliseconds(200));
}

bool reachesClient(Answer::Ending ending)
{
    return ending == Answer::Ending::Whole || ending == Answer::Ending::CutHead || ending == Answer::Ending::CutBody;
}

} // namespace

Core::Core(Options wanted)
    : options(std::move(wanted))
    , directory(options.directory)
    , certificates(makeCertificates())
    , caFile(directory.write("ca.pem", certificates.caPem))
    , store(directory.path())
    , service(options, store, addresses,
              {[this](const std::string &jobId, const std::string &text) { notify(jobId, text); },
               [this](const std::string &jobId, const std::string &reason) { finish(jobId, reason); }})
    , storage(store, addresses, Service::now)
    , server(options.port, certificates, *this)
{
    certificates.keyPem.clear();
    server.start(tickOf(options.jobDuration));
}

Core::~Core() { server.stop(); }

bool Core::resetsConnection() { return faults.take(OnConnection, {}).has_value(); }

Answer Core::answer(const HttpRequest &request)
{
    Answer answer;
    if (request.target.compare(0, controlPath.size(), controlPath) == 0) {
        answer.response = control(request, *this);
        return answer;
    }
    bool processed = true;
    if (const auto fault = faults.take(OnRequest, faultPath(request.target))) {
        processed = rowOf(fault->kind).processed;
        answer.response = processed ? service.handle(request) : HttpResponse();
        answer = faulty(*fault, std::move(answer));
    } else {
        answer.response = service.handle(request);
    }
    note(request, reachesClient(answer.ending) ? answer.response.status : 0, processed, request.body.size());
    return answer;
}

/// A request to the storage, with its fault if there is one. It is noted when it is answered or given up.
class Core::StorageSink : public BodySink {
public:
    StorageSink(Core &core, const HttpRequest &head, std::unique_ptr<BodySink> inner, std::optional<Fault> fault)
        : m_core(core)
        , m_request(head)
        , m_inner(std::move(inner))
        , m_fault(std::move(fault))
    {
    }

    ~StorageSink() override
    {
        if (!m_noted)
            m_core.note(m_request, 0, false, m_size);
    }

    void take(const char *data, std::size_t size) override
    {
        m_size += size;
        m_request.body.append(data, std::min(size, maxNotedBody - std::min(m_request.body.size(), maxNotedBody)));
        m_inner->take(data, size);
    }

    Answer finish() override
    {
        Answer answer = m_inner->finish();
        if (m_fault)
            answer = faulty(*m_fault, std::move(answer));
        m_core.note(m_request, reachesClient(answer.ending) ? answer.response.status : 0,
                    !m_fault || rowOf(m_fault->kind).processed, m_size);
        m_noted = true;
        return answer;
    }

    // A fault is injected after the whole body, so the request must not be refused before it.
    bool isRefused() const override { return !m_fault && m_inner->isRefused(); }
    long long rate() const override { return m_fault && m_fault->kind == FaultKind::SlowRead ? m_fault->rate : 0; }
    long long endsAfter() const override { return m_fault ? uploadLimit(*m_fault) : -1; }

private:
    Core &m_core;
    HttpRequest m_request;
    std::unique_ptr<BodySink> m_inner;
    std::optional<Fault> m_fault;
    std::uint64_t m_size = 0;
    bool m_noted = false;
};

std::unique_ptr<BodySink> Core::sink(const HttpRequest &head)
{
    if (!isStoragePath(head.target))
        return nullptr;
    auto fault = faults.take(OnRequest, faultPath(head.target));
    auto inner =
        fault && !rowOf(fault->kind).processed ? discarding({}) : storage.open(fault ? altered(*fault, head) : head);
    return std::make_unique<StorageSink>(*this, head, std::move(inner), std::move(fault));
}

std::optional<Answer> Core::refusal(const HttpRequest &request, std::uint64_t id, std::chrono::milliseconds &delay)
{
    Answer answer;
    if (const auto fault = faults.take(OnHandshake, faultPath(request.target))) {
        if (!rowOf(fault->kind).processed) {
            answer = faulty(*fault, Answer());
            note(request, reachesClient(answer.ending) ? answer.response.status : 0, false, 0);
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
        note(request, 101, true, 0);
        return {};
    } catch (const Refusal &refusal) {
        answer.response = messageResponse(refusal.status, refusal.what());
        answer.delay = delay;
        note(request, refusal.status, true, 0);
        return answer;
    }
}

void Core::socketOpened(std::uint64_t id)
{
    SeenSocket *socket = journal.socket(id);
    if (!socket)
        return server.drop(id);
    socket->open = true;
    if (const auto fault = faults.take(OnSocket, "socket/job/progress/" + socket->jobId)) {
        socketFaults[id] = *fault;
        injectSocketFault(id);
    }
    service.advance();
    for (const std::string &text : service.snapshot(socket->jobId))
        send(*socket, text);
    if (const std::string reason = service.endReason(socket->jobId); !reason.empty() && !socket->silent)
        server.close(id, 1000, reason);
}

void Core::socketPinged(std::uint64_t id, std::string payload)
{
    if (SeenSocket *socket = journal.socket(id))
        VelmoraPortal::note(socket->pings, std::move(payload));
}

void Core::socketTexted(std::uint64_t id, std::string text)
{
    if (SeenSocket *socket = journal.socket(id))
        VelmoraPortal::note(socket->texts, std::move(text));
}

void Core::socketClosed(std::uint64_t id, int code, std::string reason)
{
    socketFaults.erase(id);
    if (SeenSocket *socket = journal.socket(id)) {
        socket->open = false;
        socket->closeCode = code;
        socket->closeReason = std::move(reason);
    }
}

Json Core::faultsJson() const
{
    Json list = Json::array();
    for (const Fault &fault : faults.all())
        list.push_back(toJson(fault));
    return list;
}

Json Core::requestsJson() const
{
    Json list = Json::array();
    for (const SeenRequest &request : journal.requests())
        list.push_back(toJson(request));
    return list;
}

Json Core::socketsJson() const
{
    Json list = Json::array();
    for (const auto &item : journal.sockets())
        list.push_back(toJson(item.second));
    return list;
}

std::size_t Core::touchSockets(const std::string &action, const std::string &jobId, const std::string &text, int code)
{
    std::size_t count = 0;
    for (SeenSocket *socket : openSockets(jobId)) {
        ++count;
        if (action == "send") {
            ++socket->sent;
            server.send(socket->id, text);
            injectSocketFault(socket->id);
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

std::vector<SeenSocket *> Core::openSockets(const std::string &jobId)
{
    std::vector<SeenSocket *> list;
    for (const auto &item : journal.sockets())
        if (item.second.open && (jobId.empty() || item.second.jobId == jobId))
            list.push_back(journal.socket(item.first));
    return list;
}

void Core::addFile(const std::string &jobId, const std::string &name,
                   const std::function<void(CipherWriter &writer)> &write)
{
    Key key;
    server.call([&] { key = store.key(jobId); });
    const std::string path = store.freshPath();
    CipherWriter writer(path, key);
    write(writer);
    writer.commit();
    server.call([&] { store.keep(jobId, name, path, Service::now()); });
}

void Core::note(const HttpRequest &request, int status, bool processed, std::uint64_t bodySize)
{
    if (options.log)
        options.log(request.method + ' ' + pathOf(request.target) + ' ' + std::to_string(status) +
                    (processed ? "" : " (fault)"));
    journal.add({request.method, request.target, request.headers, request.body, bodySize, request.connection, status,
                 processed});
}

void Core::notify(const std::string &jobId, const std::string &text)
{
    for (SeenSocket *socket : openSockets(jobId))
        send(*socket, text);
}

void Core::finish(const std::string &jobId, const std::string &reason)
{
    for (const SeenSocket *socket : openSockets(jobId))
        if (!socket->silent)
            server.close(socket->id, 1000, reason);
}

void Core::send(SeenSocket &socket, const std::string &text)
{
    if (socket.silent)
        return;
    ++socket.sent;
    server.send(socket.id, text);
    injectSocketFault(socket.id);
}

void Core::injectSocketFault(std::uint64_t id)
{
    const auto found = socketFaults.find(id);
    SeenSocket *socket = journal.socket(id);
    if (found == socketFaults.end() || socket->sent < static_cast<std::uint64_t>(std::max(found->second.messages, 0)))
        return;
    const Fault fault = found->second;
    socketFaults.erase(found);
    socket->silent = true;
    if (fault.kind == FaultKind::SocketDrop)
        server.drop(id);
    else if (fault.kind == FaultKind::SocketClose)
        server.close(id, fault.closeCode, fault.reason);
    else if (fault.kind == FaultKind::SocketRaw)
        server.sendRaw(id, fault.body);
}

} // namespace VelmoraPortal
