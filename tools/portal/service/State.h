#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace VelmoraPortal {

using Milliseconds = std::int64_t; ///< since the epoch

struct User {
    std::string id;
    std::string email;
    std::string password;
    std::string mfaCode;
    std::string lastName;
    std::string firstName;
    std::string companyName;
};

/// One user's rights in an account.
struct Access {
    int maxCoreHourRequest = 0;
    bool admin = false;
};

struct Transaction {
    std::string id;
    std::string jobId;
    std::string type;
    std::string description;
    std::string email;
    double amount = 0;
    Milliseconds date = 0;
};

struct Account {
    std::string id;
    std::string name;
    std::string planCode;
    std::int32_t created = 0; ///< seconds since the epoch
    bool overageEnabled = false;
    bool billingEnabled = false;
    double coreHours = 0;
    std::map<std::string, Access> access; ///< by e-mail address
    std::vector<std::string> preferredClusters;
    std::deque<Transaction> transactions; ///< newest first
};

struct Cluster {
    std::string id;
    bool active = true;
    std::string cloud;
    std::string name;
    std::string description;
    std::string region;
};

struct StatusEntry {
    std::string status;
    Milliseconds date = 0;
};

struct Simulation {
    std::string id;
    std::string consoleParameters;
    std::vector<StatusEntry> history;
    int progress = 0;
    Milliseconds start = 0; ///< planned
    Milliseconds end = 0;   ///< planned
    bool asked = true;      ///< the solver has this simulation
    bool solved = true;     ///< the results or the problem are known
    Milliseconds solvedAt = 0;
    std::string problem; ///< not empty: the solver failed
};

struct Tag {
    std::string tag;
    std::string type;
    bool operator==(const Tag &other) const { return tag == other.tag && type == other.type; }
    bool operator<(const Tag &other) const { return std::tie(tag, type) < std::tie(other.tag, other.type); }
};

struct Job {
    std::string id;
    std::string email; ///< of the owner
    std::string accountId;
    std::string name;
    std::string dockerTag;
    int cores = 0;
    double coreHourEstimate = 0; ///< per simulation
    int ram = 0;
    std::string mainFile;
    std::string precision;
    int parts = 0;
    std::vector<std::string> dependencies;
    std::vector<std::string> aliases;
    std::string operation;
    std::string type;
    std::string application;
    std::vector<Simulation> simulations;
    std::vector<StatusEntry> history;
    std::vector<Tag> tags;
    Milliseconds queued = 0;  ///< planned
    Milliseconds running = 0; ///< planned

    const std::string &status() const { return history.back().status; }
};

/// A job id whose job was not submitted yet.
struct Reservation {
    std::string email;
    std::string accountId;
    std::string clusterId;
};

struct UserEvent {
    std::string email;
    std::string type;
    std::string source;
    std::string value;
    Milliseconds date = 0;
};

struct State {
    std::vector<User> users;
    std::map<std::string, Account> accounts;
    std::vector<Cluster> clusters;
    std::map<std::string, Reservation> reservations;
    std::vector<Job> jobs; ///< in the order of submission
    std::deque<UserEvent> events;
};

class Store;

/// The state of a portal at its start. Puts the files of the past jobs into the store.
State seededState(Milliseconds now, Store &store);

} // namespace VelmoraPortal
