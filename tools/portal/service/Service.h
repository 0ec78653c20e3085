#pragma once

#include "portal/json/Json.h"
#include "portal/service/Lifecycle.h"
#include "portal/service/Options.h"
#include "portal/service/Solver.h"
#include "portal/service/State.h"
#include "portal/storage/Addresses.h"

#include <functional>

namespace VelmoraPortal {

/// The cloud service itself: users, accounts, jobs. Does not know connections and faults. Not thread-safe:
/// it belongs to the portal's thread.
class Service {
public:
    /// Receives what the sockets of a job must send.
    struct Listener {
        std::function<void(const std::string &jobId, const std::string &text)> notify;
        std::function<void(const std::string &jobId, const std::string &reason)> finish; ///< close with 1000
    };

    Service(const Options &options, Store &store, Addresses &addresses, Listener listener);

    /// Answers any request under /api/; a bad one with 4xx and a message.
    HttpResponse handle(const HttpRequest &request);
    /// Brings all jobs up to date and notifies the listener.
    void advance();

    /// The job id of a socket's handshake. Throws a refusal (401, 403, 404).
    std::string socketJob(const HttpRequest &request);
    /// The first texts of a new socket: the job's state.
    std::vector<std::string> snapshot(const std::string &jobId) const;
    /// "Job status is …" when the job has finished, else empty.
    std::string endReason(const std::string &jobId) const;

    void expireTokens() { m_idTokens.clear(); }
    void setTokenLifetime(std::chrono::seconds lifetime) { m_tokenLifetime = lifetime; }
    void setJobDuration(std::chrono::milliseconds duration) { m_jobDuration = duration; }
    void setStorage(const StorageOptions &options) { m_storage = options; }
    const StorageOptions &storage() const { return m_storage; }
    const State &state() const { return m_state; }
    static Milliseconds now();

private:
    struct Call {
        const HttpRequest &request;
        User *user;                    ///< null on the paths that need no token
        Json body;                     ///< null when the path takes none
        std::vector<std::string> tail; ///< decoded segments after the path
    };
    struct Route;
    static const std::vector<Route> &routes();
    static const Route &route(const std::string &path, const HttpRequest &request);

    Json respond(const HttpRequest &request);

    Json login(Call &call);
    Json refresh(Call &call);
    Json hasMfa(Call &call);
    Json userDetails(Call &call);
    Json userModify(Call &call);
    Json userEvent(Call &call);
    Json accountList(Call &call);
    Json accountBalance(Call &call);
    Json hpcList(Call &call);
    Json hpcPreference(Call &call);
    Json notOffered(Call &call);

    Json jobInit(Call &call);
    Json jobSubmit(Call &call);
    Json jobLoad(Call &call);
    Json jobList(Call &call);
    Json jobProgress(Call &call);
    Json jobStop(Call &call);
    Json simulationStop(Call &call);
    Json jobArchive(Call &call);
    Json jobKey(Call &call);
    Json uploadUrl(Call &call);
    Json filesList(Call &call);
    Json filesDelete(Call &call);
    Json tagAdd(Call &call);
    Json tagRemove(Call &call);
    Json tagList(Call &call);
    Json tagListAccount(Call &call);
    Json tagSearch(Call &call);

    User *userOf(const HttpRequest &request);
    User *findUser(const std::string &email);
    Account &account(const std::string &id, const User &user);
    Job *findJob(const std::string &id);
    Job &job(const std::string &id, const User &user);
    /// Throws a refusal unless the job, submitted or not, is the user's.
    void requireOwned(const std::string &id, const User &user);
    Job &onlyJob(Call &call, const char *key = "jobId");
    Json jobsOf(const User &user) const;
    Json tokens(User &user);
    void notify(const Job &job, const std::vector<JobEvent> &events);
    void charge(const Job &job);
    void solve(const Job &job, Simulation &simulation);
    void takeResults();

    struct IdToken {
        std::string email;
        std::chrono::steady_clock::time_point expiry;
    };

    Store &m_store;
    Addresses &m_addresses;
    State m_state;
    std::chrono::milliseconds m_jobDuration;
    std::chrono::seconds m_tokenLifetime;
    StorageOptions m_storage;
    bool m_requireInputs;
    Listener m_listener;
    std::map<std::string, IdToken> m_idTokens;
    std::map<std::string, std::string> m_refreshTokens; ///< to e-mail addresses
    std::deque<std::string> m_refreshOrder;
    Solver m_solver;
};

} // namespace VelmoraPortal
