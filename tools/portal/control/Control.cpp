#include "portal/control/Control.h"

#include "portal/http/Text.h"
#include "portal/json/Body.h"
#include "portal/service/Records.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

const std::vector<std::pair<std::string, FaultKind>> faultKinds = {
    {"status", FaultKind::Status},
    {"delay", FaultKind::Delay},
    {"cutHead", FaultKind::CutHead},
    {"cutBody", FaultKind::CutBody},
    {"resetBefore", FaultKind::ResetBefore},
    {"resetAfter", FaultKind::ResetAfter},
    {"hangUp", FaultKind::HangUp},
    {"silence", FaultKind::Silence},
    {"socketDrop", FaultKind::SocketDrop},
    {"socketSilence", FaultKind::SocketSilence},
    {"socketClose", FaultKind::SocketClose},
    {"socketRaw", FaultKind::SocketRaw},
    {"slowRead", FaultKind::SlowRead},
    {"slowWrite", FaultKind::SlowWrite},
    {"cutUpload", FaultKind::CutUpload},
    {"gzip", FaultKind::Gzip},
    {"noLength", FaultKind::NoLength},
    {"raw", FaultKind::Raw},
    {"drip", FaultKind::Drip},
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
    const auto number = [&](const char *key, long long least, long long most, long long otherwise) {
        return body.has(key) ? body.integer(key, least, most) : otherwise;
    };
    const bool anyPath = fault.kind == FaultKind::ResetBefore || name.compare(0, 6, "socket") == 0;
    if (body.has("path") || !anyPath)
        fault.path = body.text("path");
    fault.times = static_cast<int>(number("times", -1, 1000000, 1));
    fault.status = static_cast<int>(number("status", 200, 599, 500));
    if (body.has("body"))
        fault.body = body.text("body", true, std::string::npos); // what a request may hold
    if (body.has("contentType"))
        fault.contentType = body.text("contentType");
    fault.delay = std::chrono::milliseconds(number("delay", 0, 3600000, 0));
    fault.bytes = number("bytes", 0, 1LL << 40, 0);
    fault.rate = number("rate", 1, 1LL << 40, 65536);
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

const std::pair<const char *, StorageOptions::Upload> uploadKinds[] = {{"form", StorageOptions::Upload::Form},
                                                                       {"put", StorageOptions::Upload::RawPut},
                                                                       {"post", StorageOptions::Upload::RawPost}};
const std::pair<const char *, StorageOptions::Download> downloadKinds[] = {{"get", StorageOptions::Download::Get},
                                                                           {"post", StorageOptions::Download::Post},
                                                                           {"mixed", StorageOptions::Download::Mixed}};

Json toJson(const StorageOptions &options)
{
    Json json = {{"pieceSize", options.pieceSize},
                 {"shuffle", options.shuffle ? 1 : 0},
                 {"addressLifetime", options.addressLifetime.count()}};
    for (const auto &[name, kind] : uploadKinds)
        if (kind == options.upload)
            json["upload"] = name;
    for (const auto &[name, kind] : downloadKinds)
        if (kind == options.download)
            json["download"] = name;
    return json;
}

Json setStorage(const HttpRequest &request, Controlled &portal)
{
    const Json object = parseObject(request.body);
    Body body(object);
    StorageOptions options = portal.storageOptions();
    if (body.has("upload")) {
        const std::string wanted = body.text("upload", {"form", "put", "post"});
        for (const auto &[name, kind] : uploadKinds)
            if (wanted == name)
                options.upload = kind;
    }
    if (body.has("download")) {
        const std::string wanted = body.text("download", {"get", "post", "mixed"});
        for (const auto &[name, kind] : downloadKinds)
            if (wanted == name)
                options.download = kind;
    }
    if (body.has("pieceSize"))
        options.pieceSize = body.integer("pieceSize", 1, 1LL << 40);
    if (body.has("shuffle"))
        options.shuffle = body.integer("shuffle", 0, 1) != 0;
    if (body.has("addressLifetime"))
        options.addressLifetime = std::chrono::seconds(body.integer("addressLifetime", 0, 0x7fffffff));
    body.end();
    portal.changeStorage(options);
    return toJson(options);
}

std::string queryMember(const std::map<std::string, std::string> &query, const char *name)
{
    const auto found = query.find(name);
    if (found == query.end() || found->second.empty())
        throw Refusal(400, "The query must name \"" + std::string(name) + '"');
    return found->second;
}

/// A file as it is stored or decrypted, or the list of a job's files.
HttpResponse file(const HttpRequest &request, Controlled &portal)
{
    const auto query = queryOf(request.target);
    const std::string jobId = queryMember(query, "job");
    HttpResponse response;
    if (query.count("name") == 0) {
        Json list = Json::array();
        for (const auto &item : portal.fileStore().files(jobId)) {
            list.push_back(toJson(jobId, item.second));
            list.back()["plainSize"] = item.second.plainSize;
        }
        response.body = dump(list);
        return response;
    }
    const std::string name = queryMember(query, "name");
    const StoredFile *found = portal.fileStore().find(jobId, name);
    if (!found)
        throw Refusal(404, "The job \"" + jobId + "\" has no file \"" + name + '"');
    const auto plain = query.find("plain");
    response.contentType = "application/octet-stream";
    if (plain == query.end() || plain->second != "1") {
        response.source = storedBytes(found->path);
        return response;
    }
    if (found->plainSize < 0)
        throw Refusal(409, "The file \"" + name + "\" is not encrypted with the job's key");
    response.source = plainBytes(found->path, portal.fileStore().key(jobId), 0, found->plainSize);
    return response;
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
    {"GET", "storage", [](const HttpRequest &, Controlled &portal) { return toJson(portal.storageOptions()); }},
    {"POST", "storage", setStorage},
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
  GET    /control/storage        how addresses are handed out
  POST   /control/storage        {"upload": "form", "put" or "post", "download": "get", "post" or "mixed",
                                 "pieceSize": BYTES, "shuffle": 0 or 1, "addressLifetime": SECONDS}, any of them
  GET    /control/files?job=ID   the job's files; with &name=NAME the file as it is stored, with &plain=1
                                 decrypted
  GET    /control/sockets        sockets with handshake headers, pings, texts
  POST   /control/sockets        {"action": "send", "jobId": ID, "text": T}, {"action": "close", "code": N,
                                 "reason": R}, {"action": "drop"}, {"action": "silence"}; no jobId: all

A fault strikes the next "times" requests (default 1; 0 or less: until cleared) whose path behind /api/
begins with "path" ("job/submit"; "storage", "storage/raw", "storage/form" and "storage/piece" for the
storage, "socket" for sockets, "*" for any). "kind" is one of
  status         answers "status", "body", "contentType"; refuses a socket's handshake ("keepOpen": 0
                 closes the connection after it). The service does not process the request.
  delay          processed; the answer is held back for "delay" milliseconds
  cutHead        processed; closed in the middle of the answer's head
  cutBody        processed; closed after "bytes" bytes of the answer's body
  resetAfter     processed; connection reset without an answer
  resetBefore    not read, not processed: the next connection or request is reset, whatever its path
  hangUp         read, not processed; connection closed without an answer
  silence        read, not processed, never answered; connection kept
  slowRead       processed; an upload's body is read at "rate" bytes a second
  slowWrite      processed; the answer's body is sent at "rate" bytes a second
  cutUpload      not processed; connection reset after "bytes" bytes of an upload's body
  gzip           processed; the answer's body is gzip'd, closed after "bytes" bytes of that if not 0
  noLength       processed; no content length, closed after the body, or "bytes" bytes of it if not 0
  raw            not processed; "body" is sent as it stands, head and all; closed after it if "keepOpen" is 0
  drip           processed; the answer is sent one byte at a time, "rate" of them a second
  socketDrop, socketSilence, socketClose ("closeCode", "reason")
                 strike an accepted socket after "messages" texts
"delay" also holds back the other kinds that end an answer.)";

Json toJson(const Fault &fault)
{
    const auto kind = std::find_if(faultKinds.begin(), faultKinds.end(),
                                   [&](const auto &candidate) { return candidate.second == fault.kind; });
    return {{"kind", kind->first},          {"path", fault.path},
            {"times", fault.times},         {"status", fault.status},
            {"body", fault.body},           {"contentType", fault.contentType},
            {"delay", fault.delay.count()}, {"bytes", fault.bytes},
            {"rate", fault.rate},           {"keepOpen", fault.keepOpen ? 1 : 0},
            {"messages", fault.messages},   {"closeCode", fault.closeCode},
            {"reason", fault.reason}};
}

Json toJson(const SeenRequest &request)
{
    return {
        {"method", request.method},       {"target", request.target},        {"headers", headersJson(request.headers)},
        {"body", request.body},           {"bodySize", request.bodySize},    {"status", request.status},
        {"processed", request.processed}, {"connection", request.connection}};
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
    const std::string path = pathOf(request.target).substr(std::string("/control/").size());
    bool known = false;
    try {
        if (path == "files" && request.method == "GET")
            return file(request, portal);
        known = path == "files";
        for (const ControlRoute &route : controlRoutes) {
            known = known || path == route.path;
            if (path == route.path && request.method == route.verb)
                return {200, "application/json", dump(route.answer(request, portal)), {}, nullptr};
        }
    } catch (const Refusal &refusal) {
        return messageResponse(refusal.status, refusal.what());
    } catch (const std::exception &error) {
        return messageResponse(500, error.what());
    }
    if (known)
        return messageResponse(405, "Not with " + request.method);
    return messageResponse(404, "There is no control path \"" + path + "\"");
}

} // namespace VelmoraPortal
