#pragma once

#include "portal/control/Fault.h"
#include "portal/control/Journal.h"
#include "portal/json/Json.h"
#include "portal/storage/StorageOptions.h"
#include "portal/storage/Store.h"

namespace VelmoraPortal {

/// The operations of the control paths; called on the portal's thread.
class Controlled {
public:
    virtual ~Controlled() = default;
    virtual void addFault(const Fault &fault) = 0;
    virtual void dropFaults() = 0;
    virtual Json faultsJson() const = 0;
    virtual Json stateOf() const = 0;
    virtual Json requestsJson() const = 0;
    virtual void dropRequests() = 0;
    virtual Json socketsJson() const = 0;
    virtual void invalidateTokens() = 0;
    virtual void changeTokenLifetime(std::chrono::seconds lifetime) = 0;
    virtual void changeJobDuration(std::chrono::milliseconds duration) = 0;
    virtual StorageOptions storageOptions() const = 0;
    virtual void changeStorage(const StorageOptions &options) = 0;
    virtual Store &fileStore() = 0;
    /// "send", "close", "drop" or "silence"; returns how many sockets were open.
    virtual std::size_t touchSockets(const std::string &action, const std::string &jobId, const std::string &text,
                                     int code) = 0;
};

/// Answers a request under /control/; a bad one with 4xx and a message.
HttpResponse control(const HttpRequest &request, Controlled &portal);

Json toJson(const SeenRequest &request);
Json toJson(const SeenSocket &socket);

/// The control paths and the kinds of fault, for the help text.
std::string controlHelp();

} // namespace VelmoraPortal
