#pragma once

#include "portal/control/Fault.h"
#include "portal/control/Journal.h"
#include "portal/service/Options.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// A file of a job in the storage.
struct SeenFile {
    std::string name;
    std::int64_t size = 0;       ///< of the encrypted file
    std::int64_t plainSize = -1; ///< -1: not encrypted with the job's key
    std::string hash;
};

class Core;

/// The whole service in one process: HTTPS and secure WebSocket on one loopback port, on one thread of
/// its own. Every member may be called from any thread. No member waits for a client.
class Portal {
public:
    /// Serves from its return on. Throws std::runtime_error when it cannot listen or has no private directory.
    explicit Portal(Options options = {});
    /// Closes all connections, ends the thread, removes the files it wrote.
    ~Portal();
    Portal(const Portal &) = delete;
    Portal &operator=(const Portal &) = delete;

    std::uint16_t port() const;
    std::string host() const;   ///< "127.0.0.1:PORT"
    std::string caFile() const; ///< path of the authority's certificate (PEM)
    std::string caPem() const;

    void inject(const Fault &fault);
    void clearFaults();
    std::size_t faultCount() const; ///< faults not used up

    std::vector<SeenRequest> requests() const; ///< the latest 10,000 (64 MiB of bodies at most), without control paths
    void clearRequests();
    /// Requests received with exactly that path behind /api/ ("job/submit"), processed or not.
    std::size_t requestCount(const std::string &path) const;

    std::string stateJson() const; ///< users (no secrets), accounts, jobs, tags, events as JSON text
    std::size_t jobCount() const;  ///< submitted jobs, the seeded ones included
    std::size_t jobCount(const std::string &status) const; ///< "RUNNING", …
    std::string jobStatus(const std::string &jobId) const; ///< "" for an unknown job

    /// Every id token is invalid from now on; refresh tokens stay.
    void expireTokens();
    void setTokenLifetime(std::chrono::seconds lifetime); ///< of the tokens that follow

    void setJobDuration(std::chrono::milliseconds duration); ///< of the jobs that follow

    /// On the sockets of that job, or of all jobs when `jobId` is empty. Each returns the number of open sockets.
    std::size_t sendToSockets(const std::string &jobId, const std::string &text);
    std::size_t closeSockets(const std::string &jobId, int code, const std::string &reason);
    std::size_t dropSockets(const std::string &jobId);
    std::size_t silenceSockets(const std::string &jobId); ///< permanently; later sockets of the job send
    std::size_t openSocketCount(const std::string &jobId = {}) const;
    std::vector<SeenSocket> sockets() const; ///< the latest thousand, closed ones included

    std::vector<SeenFile> files(const std::string &jobId) const; ///< by name, hidden and result files included
    std::string jobKey(const std::string &jobId) const;          ///< 32 bytes
    /// The decrypted file; no value when it does not exist or is not encrypted with the job's key. The caller's
    /// thread decrypts.
    std::optional<std::string> plainFile(const std::string &jobId, const std::string &name) const;
    /// The same into a file; false in the same cases.
    bool savePlainFile(const std::string &jobId, const std::string &name, const std::string &path) const;
    /// Puts a file of any name into the storage. Throws std::system_error when it cannot be written.
    void addFile(const std::string &jobId, const std::string &name, const std::string &plain);
    void addFileFrom(const std::string &jobId, const std::string &name, const std::string &plainPath);
    bool removeFile(const std::string &jobId, const std::string &name);
    StorageOptions storage() const;
    void setStorage(const StorageOptions &options); ///< for the addresses that follow

private:
    std::unique_ptr<Core> m_core;
};

} // namespace VelmoraPortal
