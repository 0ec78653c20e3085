#pragma once

#include "portal/control/Control.h"
#include "portal/control/FaultList.h"
#include "portal/control/Journal.h"
#include "portal/http/Server.h"
#include "portal/os/Directory.h"
#include "portal/service/Records.h"
#include "portal/service/Service.h"
#include "portal/storage/StorageService.h"

#include <map>

namespace VelmoraPortal {

/// Connects server, service, storage, faults and journal. All of it belongs to the server's thread; other
/// threads reach it through `Server::call`.
class Core final : public ServerHandler, public Controlled {
public:
    explicit Core(Options wanted);
    ~Core() override;

    bool resetsConnection() override;
    Answer answer(const HttpRequest &request) override;
    std::unique_ptr<BodySink> sink(const HttpRequest &head) override;
    std::optional<Answer> refusal(const HttpRequest &request, std::uint64_t id,
                                  std::chrono::milliseconds &delay) override;
    void socketOpened(std::uint64_t id) override;
    void socketPinged(std::uint64_t id, std::string payload) override;
    void socketTexted(std::uint64_t id, std::string text) override;
    void socketClosed(std::uint64_t id, int code, std::string reason) override;
    void tick() override { service.advance(); }

    void addFault(const Fault &fault) override { faults.add(fault); }
    void dropFaults() override { faults.clear(); }
    void dropRequests() override { journal.clearRequests(); }
    void invalidateTokens() override { service.expireTokens(); }
    void changeTokenLifetime(std::chrono::seconds lifetime) override { service.setTokenLifetime(lifetime); }
    void changeJobDuration(std::chrono::milliseconds duration) override { service.setJobDuration(duration); }
    Json stateOf() const override { return toJson(service.state(), store); }
    Json faultsJson() const override;
    Json requestsJson() const override;
    Json socketsJson() const override;
    std::size_t touchSockets(const std::string &action, const std::string &jobId, const std::string &text,
                             int code) override;
    StorageOptions storageOptions() const override { return service.storage(); }
    void changeStorage(const StorageOptions &changed) override { service.setStorage(changed); }
    Store &fileStore() override { return store; }

    std::vector<SeenSocket *> openSockets(const std::string &jobId);
    /// Encrypts on the caller's thread.
    void addFile(const std::string &jobId, const std::string &name,
                 const std::function<void(CipherWriter &writer)> &write);

    Options options;
    Directory directory;
    Certificates certificates;
    std::string caFile;
    FaultList faults;
    Journal journal;
    std::map<std::uint64_t, Fault> socketFaults;
    Store store;
    Addresses addresses;
    Service service;
    StorageService storage;
    Server server;

private:
    class StorageSink;

    void note(const HttpRequest &request, int status, bool processed, std::uint64_t bodySize);
    void notify(const std::string &jobId, const std::string &text);
    void finish(const std::string &jobId, const std::string &reason);
    void send(SeenSocket &socket, const std::string &text);
    /// Injects the fault of a socket once enough texts were sent.
    void injectSocketFault(std::uint64_t id);
};

} // namespace VelmoraPortal
