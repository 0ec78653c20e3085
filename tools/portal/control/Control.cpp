#include "portal/control/Control.h"

#include "portal/control/FaultTable.h"
#include "portal/http/Text.h"
#include "portal/json/Body.h"
#include "portal/service/Records.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

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

Json toJson(const StorageOptions &options)
{
    Json json = {{"pieceSize", options.pieceSize},
                 {"shuffle", options.shuffle ? 1 : 0},
                 {"addressLifetime", options.addressLifetime.count()},
                 {"addressUses", options.addressUses},
                 {"expiredStatus", options.expiredStatus}};
    for (const auto &[name, kind] : uploadNames)
        if (kind == options.upload)
            json["upload"] = name;
    for (const auto &[name, kind] : downloadNames)
        if (kind == options.download)
            json["download"] = name;
    return json;
}

Json setStorage(const HttpRequest &request, Controlled &portal)
{
    const Json object = parseObject(request.body);
    Body body(object);
    StorageOptions options = portal.storageOptions();
    if (body.has("upload"))
        options.upload = body.choice("upload", uploadNames);
    if (body.has("download"))
        options.download = body.choice("download", downloadNames);
    if (body.has("pieceSize"))
        options.pieceSize = body.integer("pieceSize", 1, 1LL << 40);
    if (body.has("shuffle"))
        options.shuffle = body.integer("shuffle", 0, 1) != 0;
    if (body.has("addressLifetime"))
        options.addressLifetime = std::chrono::seconds(body.integer("addressLifetime", 0, 0x7fffffff));
    if (body.has("addressUses"))
        options.addressUses = static_cast<int>(body.integer("addressUses", 0, 1000000));
    if (body.has("expiredStatus"))
        options.expiredStatus = static_cast<int>(body.integer("expiredStatus", 400, 499));
    if (expiredStatuses.count(options.expiredStatus) == 0)
        throw Refusal(400, "\"expiredStatus\" must be 401, 403, 404 or 410");
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

std::string controlHelp()
{
    return R"(Control paths (no token, no content type needed; JSON both ways):
  GET    /control/state          users, accounts, jobs, reservations, events
  GET    /control/requests       every request as it was received; DELETE clears them
  GET    /control/faults         faults that are not used up; DELETE clears them
  POST   /control/faults         one fault or an array of faults
  POST   /control/tokens/expire  every id token is invalid from now on
  POST   /control/tokens         {"lifetime": SECONDS} of the id tokens that follow
  POST   /control/jobs           {"duration": MILLISECONDS} of the jobs that follow
  GET    /control/storage        the options of the storage addresses
  POST   /control/storage        {"upload": "form", "put" or "post", "download": "get", "post" or "mixed",
                                 "pieceSize": BYTES, "shuffle": 0 or 1, "addressLifetime": SECONDS,
                                 "addressUses": N (0: any number), "expiredStatus": 401, 403, 404 or 410}, any of them
  GET    /control/files?job=ID   the job's files; with &name=NAME the file as it is stored, with &plain=1
                                 decrypted
  GET    /control/sockets        sockets with handshake headers, pings, texts
  POST   /control/sockets        {"action": "send", "jobId": ID, "text": T}, {"action": "close", "code": N,
                                 "reason": R}, {"action": "drop"}, {"action": "silence"}; no jobId: all

A fault is injected into the next "times" requests (default 1; 0 or less: until cleared) whose path behind
/api/ begins with "path" ("job/submit"; "storage", "storage/raw", "storage/form" and "storage/piece" for the
storage, "socket" for sockets, "*" for any). "kind" is one of these, with the fields in parentheses:
)" + faultHelp() +
           R"("delay" in milliseconds also holds back the other kinds that send an answer; "rate" is in bytes a second;
"keepOpen": 0 closes the connection after the answer. "informational": [100, 103] are sent before the answer of every
kind, or before its absence. "closing" says what follows an answer: "notify" closes in order with a TLS close_notify,
"end" without it, "reset" resets, "hold" keeps the connection and reads and sends nothing more, "skip" ignores the rest
of an upload's body and serves the next request; "usual" is HTTP's way, without a close_notify after a cut answer.)";
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
