#include "portal/service/Service.h"

#include "portal/http/Text.h"
#include "portal/json/Body.h"
#include "portal/service/Records.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

constexpr std::size_t maxTokens = 10000;
constexpr std::size_t maxEvents = 1000;
const std::string socketPath = "/socket/job/progress/";

} // namespace

struct Service::Route {
    enum class Type { JsonText, None };
    enum class Takes { Object, Nothing };
    enum class Token { Needed, Unneeded };
    const char *verb;
    const char *path;
    Type type;
    Takes takes;
    Token token;
    Json (Service::*answer)(Call &call);
    std::size_t leastTail = 0;
    std::size_t mostTail = 0;
};

const std::vector<Service::Route> &Service::routes()
{
    using R = Route;
    constexpr auto json = R::Type::JsonText;
    constexpr auto none = R::Type::None;
    constexpr auto object = R::Takes::Object;
    constexpr auto nothing = R::Takes::Nothing;
    constexpr auto token = R::Token::Needed;
    constexpr auto open = R::Token::Unneeded;
    constexpr std::size_t any = 100;
    // The first match wins, so a path with a tail follows the longer paths that begin with it.
    static const std::vector<Route> table = {
        {"POST", "auth/login", json, object, open, &Service::login},
        {"POST", "auth/refresh", json, object, open, &Service::refresh},
        {"POST", "auth/hasMFA", json, object, open, &Service::hasMfa},
        {"POST", "user/details", json, nothing, token, &Service::userDetails},
        {"POST", "user/modify", json, object, token, &Service::userModify},
        {"POST", "user/event/add", json, object, token, &Service::userEvent},
        {"POST", "account/list", json, nothing, token, &Service::accountList},
        {"POST", "account/balance", json, object, token, &Service::accountBalance},
        {"POST", "account/hpc/list", json, object, token, &Service::hpcList},
        {"POST", "account/hpc/preference", json, object, token, &Service::hpcPreference},
        {"POST", "account/bucketInformation", json, object, token, &Service::notOffered},
        {"POST", "job/init", json, object, token, &Service::jobInit},
        {"POST", "job/submit", json, object, token, &Service::jobSubmit},
        {"POST", "job/load", json, object, token, &Service::jobLoad},
        {"POST", "job/list", json, nothing, token, &Service::jobList},
        {"POST", "job/progress", json, object, token, &Service::jobProgress},
        {"POST", "job/stop", json, object, token, &Service::jobStop},
        {"POST", "job/simulation/stop", json, object, token, &Service::simulationStop},
        {"POST", "job/archive", json, object, token, &Service::jobArchive},
        {"POST", "job/key", json, object, token, &Service::jobKey},
        {"POST", "job/files/credentials", json, object, token, &Service::notOffered},
        {"GET", "job/files/uploadUrl", none, nothing, token, &Service::uploadUrl, 1, 1},
        {"GET", "job/files/list", json, nothing, token, &Service::filesList, 0, 2},
        {"DELETE", "job/files", none, nothing, token, &Service::filesDelete, 2, any},
        {"POST", "tag/job", json, object, token, &Service::tagAdd},
        {"DELETE", "tag/job", json, object, token, &Service::tagRemove},
        {"POST", "tag/list", json, object, token, &Service::tagList},
        {"POST", "tag/list/account", json, object, token, &Service::tagListAccount},
        {"POST", "tag/search/job/user", json, object, token, &Service::tagSearch},
    };
    return table;
}

const Service::Route &Service::route(const std::string &path, const HttpRequest &request)
{
    std::string allowed;
    for (const Route &candidate : routes()) {
        const std::string name = candidate.path;
        const bool tail = candidate.mostTail > 0 && path.compare(0, name.size() + 1, name + '/') == 0;
        if (path != name && !tail)
            continue;
        if (request.method == candidate.verb) {
            const std::size_t count = tail ? segments(path.substr(name.size() + 1)).size() : 0;
            if (count < candidate.leastTail || count > candidate.mostTail)
                break;
            return candidate;
        }
        allowed += (allowed.empty() ? "" : ", ") + std::string(candidate.verb);
        if (tail)
            break;
    }
    if (allowed.empty())
        throw Refusal(404, "There is no path \"" + path + "\"");
    throw Refusal(405, "\"" + path + "\" takes " + allowed + ", not " + request.method);
}

Service::Service(const Options &options, Store &store, Addresses &addresses, Listener listener)
    : m_store(store)
    , m_addresses(addresses)
    , m_state(seededState(now(), store))
    , m_jobDuration(options.jobDuration)
    , m_tokenLifetime(options.tokenLifetime)
    , m_storage(options.storage)
    , m_requireInputs(options.requireInputs)
    , m_listener(std::move(listener))
    , m_solver([&store] { return store.freshPath(); })
{
}

HttpResponse Service::handle(const HttpRequest &request)
{
    try {
        advance();
        return {200, "application/json", dump(respond(request)), {}, nullptr};
    } catch (const Refusal &refusal) {
        return messageResponse(refusal.status, refusal.what());
    } catch (const std::exception &error) {
        return messageResponse(500, error.what());
    }
}

Json Service::respond(const HttpRequest &request)
{
    const std::string target = pathOf(request.target);
    if (target.compare(0, 5, "/api/") != 0)
        throw Refusal(404, "There is no path \"" + target + "\"");
    const std::string path = target.substr(5);
    const Route &found = route(path, request);
    if (target.size() < request.target.size())
        throw Refusal(400, "\"" + path + "\" takes no query");
    const std::string *type = findHeader(request.headers, "Content-Type");
    if (found.type == Route::Type::JsonText && (!type || *type != "application/json"))
        throw Refusal(415, "The content type must be \"application/json\", but is " +
                               (type ? "\"" + *type + "\"" : std::string("missing")));
    if (found.type == Route::Type::None && type)
        throw Refusal(415, "\"" + path + "\" takes no content type, but it is \"" + *type + "\"");
    Call call{request, nullptr, nullptr, {}};
    if (found.token == Route::Token::Needed)
        call.user = userOf(request);
    if (found.takes == Route::Takes::Object)
        call.body = parseObject(request.body);
    else if (!request.body.empty())
        throw Refusal(400, "The body must be empty");
    if (const std::size_t length = std::string(found.path).size(); path.size() > length)
        call.tail = segments(path.substr(length + 1));
    return (this->*found.answer)(call);
}

Milliseconds Service::now()
{
    // Steady since the start of the process: a job's history must stay in order when the clock is set back.
    using namespace std::chrono;
    static const auto epoch = system_clock::now().time_since_epoch() - steady_clock::now().time_since_epoch();
    return duration_cast<milliseconds>(epoch + steady_clock::now().time_since_epoch()).count();
}

User *Service::findUser(const std::string &email)
{
    for (User &user : m_state.users)
        if (user.email == email)
            return &user;
    return nullptr;
}

User *Service::userOf(const HttpRequest &request)
{
    const std::string *token = findHeader(request.headers, "Authorization");
    if (!token || token->empty())
        throw Refusal(401, "The Authorization header is missing");
    const auto found = m_idTokens.find(*token);
    if (found == m_idTokens.end()) {
        if (token->find(' ') != std::string::npos)
            throw Refusal(401, "The Authorization header must hold the bare token, without a scheme");
        throw Refusal(401, "The token is not valid or has expired");
    }
    if (found->second.expiry <= std::chrono::steady_clock::now()) {
        m_idTokens.erase(found);
        throw Refusal(401, "The token is not valid or has expired");
    }
    return findUser(found->second.email);
}

Account &Service::account(const std::string &id, const User &user)
{
    const auto found = m_state.accounts.find(id);
    if (found == m_state.accounts.end())
        throw Refusal(404, "There is no account \"" + id + "\"");
    if (found->second.access.count(user.email) == 0)
        throw Refusal(403, "You have no access to the account \"" + id + "\"");
    return found->second;
}

Json Service::tokens(User &user)
{
    const auto time = std::chrono::steady_clock::now();
    for (auto it = m_idTokens.begin(); it != m_idTokens.end();)
        it = it->second.expiry <= time || m_idTokens.size() >= maxTokens ? m_idTokens.erase(it) : std::next(it);
    const std::string token = "id." + randomHex(32);
    m_idTokens[token] = {user.email, time + m_tokenLifetime};
    return {{"idToken", token}, {"expiresIn", m_tokenLifetime.count()}};
}

Json Service::login(Call &call)
{
    Body body(call.body);
    User *user = findUser(body.text("emailAddress", true));
    const std::string password = body.text("password", true);
    const std::string code = body.has("mfaToken") ? std::to_string(body.integer("mfaToken", 0, 0x7fffffff)) : "";
    body.end();
    if (!user || user->password != password)
        throw Refusal(401, "The e-mail address or the password is wrong");
    if (!user->mfaCode.empty() && code.empty())
        throw Refusal(401, "This user signs in with a multi-factor authentication code");
    if (!user->mfaCode.empty() && std::stol(user->mfaCode) != std::stol(code))
        throw Refusal(401, "The multi-factor authentication code is wrong");
    Json reply = tokens(*user);
    const std::string refreshToken = "refresh." + randomHex(32);
    m_refreshTokens[refreshToken] = user->email;
    m_refreshOrder.push_back(refreshToken);
    if (m_refreshOrder.size() > maxTokens) {
        m_refreshTokens.erase(m_refreshOrder.front());
        m_refreshOrder.pop_front();
    }
    reply["refreshToken"] = refreshToken;
    return reply;
}

Json Service::refresh(Call &call)
{
    const auto found = m_refreshTokens.find(onlyText(call.body, "refreshToken"));
    if (found == m_refreshTokens.end())
        throw Refusal(401, "The refresh token is not valid");
    return tokens(*findUser(found->second));
}

Json Service::hasMfa(Call &call)
{
    const std::string email = onlyText(call.body, "emailAddress");
    const User *user = findUser(email);
    if (!user)
        throw Refusal(404, "There is no user \"" + email + "\"");
    return !user->mfaCode.empty();
}

Json Service::userDetails(Call &call) { return toJson(*call.user); }

Json Service::userModify(Call &call)
{
    Body body(call.body);
    User changed = *call.user;
    changed.lastName = body.text("lastName", true);
    changed.firstName = body.text("firstName", true);
    changed.companyName = body.text("companyName", true);
    body.end();
    *call.user = changed;
    return toJson(*call.user);
}

Json Service::userEvent(Call &call)
{
    Body body(call.body);
    UserEvent event{call.user->email, body.text("eventType", true), body.text("eventSource", true), "", now()};
    if (body.has("eventValue"))
        event.value = body.text("eventValue");
    body.end();
    m_state.events.push_back(event);
    if (m_state.events.size() > maxEvents)
        m_state.events.pop_front();
    return Json::object();
}

Json Service::accountList(Call &call)
{
    Json list = Json::array();
    for (const auto &[id, candidate] : m_state.accounts)
        if (candidate.access.count(call.user->email) != 0)
            list.push_back(toJson(candidate, *call.user));
    return list;
}

Json Service::accountBalance(Call &call)
{
    return balanceJson(account(onlyText(call.body, "accountId"), *call.user), m_state.users);
}

Json Service::hpcList(Call &call)
{
    const Account &owner = account(onlyText(call.body, "accountId"), *call.user);
    Json list = Json::array();
    for (const Cluster &cluster : m_state.clusters)
        list.push_back(toJson(cluster, owner));
    return list;
}

Json Service::hpcPreference(Call &call)
{
    const Account &owner = account(onlyText(call.body, "accountId"), *call.user);
    Json list = Json::array();
    for (const std::string &preferred : owner.preferredClusters)
        for (const Cluster &cluster : m_state.clusters)
            if (cluster.id == preferred)
                list.push_back(toJson(cluster, owner));
    return list;
}

Json Service::notOffered(Call &call) { throw Refusal(501, "The local portal does not offer " + call.request.target); }

std::string Service::socketJob(const HttpRequest &request)
{
    const std::string target = pathOf(request.target);
    if (target.compare(0, socketPath.size(), socketPath) != 0)
        throw Refusal(404, "There is no socket \"" + target + "\"");
    const User *user = userOf(request);
    const std::string id = decoded(target.substr(socketPath.size()));
    requireOwned(id, *user);
    return id;
}

} // namespace VelmoraPortal
