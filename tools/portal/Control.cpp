#include "Control.h"

#include "Records.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

const std::vector<std::pair<std::string, FaultKind>> faultKinds = {
    {"status", FaultKind::Status},           {"delay", FaultKind::Delay},
    {"cutHead", FaultKind::CutHead},         {"cutBody", FaultKind::CutBody},
    {"resetBefore", FaultKind::ResetBefore}, {"resetAfter", FaultKind::ResetAfter},
    {"hangUp", FaultKind::HangUp},           {"silence", FaultKind::Silence},
    {"socketDrop", FaultKind::SocketDrop},   {"socketSilence", FaultKind::SocketSilence},
    {"socketClose", FaultKind::SocketClose},
};

Fault faultOf(const Json &object)
{
    Body body(object);
    Fault fault;
    std::set<std::string> names;
    for (const auto &kind : faultKinds)
        names.insert(kind.first);
    const std::string name = body.text("kind", names);
    fault.kind = std::find_if(faultKinds.begin(), faultKinds.end(), [&](const auto &kind) {
                     return kind.first == name;
                 })->second;
    const auto number = [&](const char *key, long least, long most, long otherwise) {
        return body.has(key) ? body.integer(key, least, most) : otherwise;
    };
    const bool anyPath = fault.kind == FaultKind::ResetBefore || name.compare(0, 6, "socket") == 0;
    if (body.has("path") || !anyPath)
        fault.path = body.text("path");
    fault.times = static_cast<int>(number("times", -1, 1000000, 1));
    fault.status = static_cast<int>(number("status", 200, 599, 500));
    if (body.has("body"))
        fault.body = body.text("body", true);
    if (body.has("contentType"))
        fault.contentType = body.text("contentType");
    fault.delay = std::chrono::milliseconds(number("delay", 0, 3600000, 0));
    fault.bytes = number("bytes", 0, 1L << 40, 0);
    fault.messages = static_cast<int>(number("messages", 0, 1000000, 0));
    fault.closeCode = static_cast<int>(number("closeCode", 1000, 4999, 1011));
    if (body.has("reason"))
        fault.reason = body.text("reason", true);
    fault.keepOpen = number("keepOpen", 0, 1, 1) != 0;
    body.end();
    return fault;
}

Json done() { return {{"message", "Done"}}; }

Json addFaults(const HttpRequest &request, Controlled &portal)
{
    Json value = Json::parse(request.body, nullptr, false);
    if (value.is_object())
        value = Json::array({value});
    if (!value.is_array())
        throw Refusal(400, "The body must be a fault or an array of faults");
    std::vector<Fault> faults;
    for (const Json &element : value)
        faults.push_back(faultOf(element));
    for (const Fault &fault : faults)
        portal.addFault(fault);
    return portal.faultsJson();
}

Json touchSockets(const HttpRequest &request, Controlled &portal)
{
    const Json object = parseObject(request.body);
    Body body(object);
    const std::string action = body.text("action", {"send", "close", "drop", "silence"});
    const std::string jobId = body.has("jobId") ? body.text("jobId", true) : "";
    std::string text;
    int code = 0;
    if (action == "send")
        text = body.text("text", true);
    if (action == "close") {
        code = static_cast<int>(body.integer("code", 1000, 4999));
        text = body.has("reason") ? body.text("reason", true) : "";
    }
    body.end();
    return {{"sockets", portal.touchSockets(action, jobId, text, code)}};
}

Json setTokens(const HttpRequest &request, Controlled &portal)
{
    const Json object = parseObject(request.body);
    Body body(object);
    const std::chrono::seconds lifetime(body.integer("lifetime", 0, 0x7fffffff));
    body.end();
    portal.changeTokenLifetime(lifetime);
    return done();
}

Json setJobs(const HttpRequest &request, Controlled &portal)
{
    const Json object = parseObject(request.body);
    Body body(object);
    const std::chrono::milliseconds duration(body.integer("duration", 1, 1000000000));
    body.end();
    portal.changeJobDuration(duration);
    return done();
}

struct ControlRoute {
    const char *verb;
    const char *path;
    Json (*answer)(const HttpRequest &request, Controlled &portal);
};

const ControlRoute controlRoutes[] = {
    {"GET", "state", [](const HttpRequest &, Controlled &portal) { return portal.stateOf(); }},
    {"GET", "faults", [](const HttpRequest &, Controlled &portal) { return portal.faultsJson(); }},
    {"POST", "faults", addFaults},
    {"DELETE", "faults",
     [](const HttpRequest &, Controlled &portal) {
         portal.dropFaults();
         return done();
     }},
    {"GET", "requests", [](const HttpRequest &, Controlled &portal) { return portal.requestsJson(); }},
    {"DELETE", "requests",
     [](const HttpRequest &, Controlled &portal) {
         portal.dropRequests();
         return done();
     }},
    {"POST", "tokens/expire",
     [](const HttpRequest &, Controlled &portal) {
         portal.invalidateTokens();
         return done();
     }},
    {"POST", "tokens", setTokens},
    {"POST", "jobs", setJobs},
    {"GET", "sockets", [](const HttpRequest &, Controlled &portal) { return portal.socketsJson(); }},
    {"POST", "sockets", touchSockets},
};

Json headersJson(const Headers &headers)
{
    Json list = Json::array();
    for (const auto &[name, value] : headers)
        list.push_back(Json::array({name, value}));
    return list;
}

} // namespace

const char *const controlHelp = R"(Control paths (no token, no content type needed; JSON both ways):
  GET    /control/state          users, accounts, jobs, reservations, events
  GET    /control/requests       every request as it was received; DELETE forgets them
  GET    /control/faults         faults not used up; DELETE clears them
  POST   /control/faults         one fault or an array of them
  POST   /control/tokens/expire  every id token is invalid from now on
  POST   /control/tokens         {"lifetime": SECONDS} of id tokens still to be handed out
  POST   /control/jobs           {"duration": MILLISECONDS} of jobs still to be submitted
  GET    /control/sockets        sockets with handshake headers, pings, texts
  POST   /control/sockets        {"action": "send", "jobId": ID, "text": T}, {"action": "close", "code": N,
                                 "reason": R}, {"action": "drop"}, {"action": "silence"}; no jobId: all

A fault strikes the next "times" requests (default 1; 0 or less: until cleared) whose path behind /api/
begins with "path" ("job/submit"; "socket" for sockets, "*" for any). "kind" is one of
  status         answers "status", "body", "contentType"; refuses a socket's handshake ("keepOpen": 0
                 closes the connection after it). The service does not process the request.
  delay          processed; the answer is held back for "delay" milliseconds
  cutHead        processed; closed in the middle of the answer's head
  cutBody        processed; closed after "bytes" bytes of the answer's body
  resetAfter     processed; connection reset without an answer
  resetBefore    not read, not processed: the next connection or request is reset, whatever its path
  hangUp         read, not processed; connection closed without an answer
  silence        read, not processed, never answered; connection kept
  socketDrop, socketSilence, socketClose ("closeCode", "reason")
                 strike an accepted socket after "messages" texts
"delay" also holds back the other kinds that end an answer.)";

Json toJson(const Fault &fault)
{
    const auto kind = std::find_if(faultKinds.begin(), faultKinds.end(),
                                   [&](const auto &candidate) { return candidate.second == fault.kind; });
    return {{"kind", kind->first},          {"path", fault.path},           {"times", fault.times},
            {"status", fault.status},       {"body", fault.body},           {"contentType", fault.contentType},
            {"delay", fault.delay.count()}, {"bytes", fault.bytes},         {"keepOpen", fault.keepOpen ? 1 : 0},
            {"messages", fault.messages},   {"closeCode", fault.closeCode}, {"reason", fault.reason}};
}

Json toJson(const SeenRequest &request)
{
    return {{"method", request.method},
            {"target", request.target},
            {"headers", headersJson(request.headers)},
            {"body", request.body},
            {"status", request.status},
            {"processed", request.processed},
            {"connection", request.connection}};
}

Json toJson(const SeenSocket &socket)
{
    return {{"id", socket.id},
            {"jobId", socket.jobId},
            {"headers", headersJson(socket.headers)},
            {"pings", socket.pings},
            {"texts", socket.texts},
            {"sent", socket.sent},
            {"open", socket.open},
            {"silent", socket.silent},
            {"closeCode", socket.closeCode},
            {"closeReason", socket.closeReason}};
}

HttpResponse control(const HttpRequest &request, Controlled &portal)
{
    const auto answer = [](int status, const Json &body) {
        return HttpResponse{status, "application/json", dump(body), {}};
    };
    const std::string path = request.target.substr(std::string("/control/").size());
    bool known = false;
    try {
        for (const ControlRoute &route : controlRoutes) {
            known = known || path == route.path;
            if (path == route.path && request.method == route.verb)
                return answer(200, route.answer(request, portal));
        }
    } catch (const Refusal &refusal) {
        return answer(refusal.status, {{"message", refusal.what()}});
    }
    if (known)
        return answer(405, {{"message", "Not with " + request.method}});
    return answer(404, {{"message", "There is no control path \"" + path + "\""}});
}

} // namespace VelmoraPortal
