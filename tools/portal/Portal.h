#pragma once

#include "Http.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// A user that every portal knows from its start.
struct SeededUser {
    std::string email;
    std::string password;
    std::string mfaCode; ///< empty when the user signs in without one
};
const std::vector<SeededUser> &seededUsers();

struct Options {
    std::uint16_t port = 0;                           ///< 0: a free one
    std::string directory;                            ///< private directory; empty: a temporary one, removed at the end
    std::chrono::milliseconds jobDuration{20000};     ///< from submission to finish
    std::chrono::seconds tokenLifetime{3600};         ///< of an id token
    std::function<void(const std::string &line)> log; ///< one line per request, without bodies or tokens; called on
                                                      ///< the portal's thread and must not call the portal
};

enum class FaultKind {
    Status,      ///< answers `status`, `body`, `contentType`. NOT processed. Refuses a socket's handshake.
    Delay,       ///< holds the answer back for `delay`. PROCESSED before the wait. A handshake is held back, too.
    CutHead,     ///< PROCESSED, then closed in the middle of the answer's head.
    CutBody,     ///< PROCESSED, then closed after `bytes` bytes of the body; content-length names the whole.
    ResetBefore, ///< NOT processed, not read: the next connection is reset after its TLS handshake, or the next request
                 ///< on an open connection when its head arrives, whatever its path.
    ResetAfter,  ///< PROCESSED, then the connection is reset without an answer.
    HangUp,      ///< read in full, NOT processed, connection closed without an answer.
    Silence,     ///< read in full, NOT processed, never answered, connection kept. Also for a handshake.
    SocketDrop,  ///< the connection of an accepted socket is closed without a close frame
    SocketSilence, ///< an accepted socket sends no more texts; pings are still noted and ponged
    SocketClose,   ///< an accepted socket closes with `closeCode` and `reason`
};

/// A fault strikes the next `times` requests that match, then it is used up. The oldest match wins.
struct Fault {
    std::string path; ///< start of the path behind /api/ ("job/submit"), "socket" for sockets (also
                      ///< "socket/job/progress/ID"), "*" for any. The Socket… kinds read an empty path as "socket".
    FaultKind kind = FaultKind::Status;
    int times = 1; ///< 0 or less: until cleared
    int status = 500;
    std::string body;
    std::string contentType = "application/json";
    std::chrono::milliseconds delay{0}; ///< Delay; any other kind with an answer waits, too
    long bytes = 0;                     ///< CutBody
    bool keepOpen = true;               ///< Status: false closes the connection after the answer
    int messages = 0;                   ///< Socket… kinds: strikes after so many texts
    int closeCode = 1011;               ///< SocketClose
    std::string reason;                 ///< SocketClose
};

/// A request as it was received, in the order of arrival.
struct SeenRequest {
    std::string method;
    std::string target;
    Headers headers; ///< in order, names as sent
    std::string body;
    std::uint64_t connection = 0; ///< the same number means the same connection
    int status = 0;               ///< what was answered; 0: nothing
    bool processed = false;       ///< false when a fault kept the service from it

    /// The first value of that header (any letter case), or "".
    std::string header(const std::string &name) const;
    bool hasHeader(const std::string &name) const;
};

/// A socket that was accepted, open or not any more.
struct SeenSocket {
    std::uint64_t id = 0;
    std::string jobId;
    Headers headers;                ///< of the handshake
    std::vector<std::string> pings; ///< payloads, the latest thousand
    std::vector<std::string> texts; ///< received, the latest thousand
    std::uint64_t sent = 0;         ///< texts sent
    bool open = true;
    bool silent = false;
    int closeCode = 0; ///< of the client's close frame, 0 when there was none
    std::string closeReason;
};

/// The whole service in one process: HTTPS and secure WebSocket on one loopback port, on one thread of
/// its own. Every member may be called from any thread; none waits for a client.
class Portal {
public:
    /// Serves when it returns. Throws std::runtime_error when it cannot listen or has no private directory.
    explicit Portal(Options options = {});
    /// Drops all connections, ends the thread, removes what it wrote.
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

    std::vector<SeenRequest> requests() const; ///< the latest 10,000 (64 MiB of bodies at most), control paths aside
    void clearRequests();
    /// Requests seen with exactly that path behind /api/ ("job/submit"), processed or not.
    std::size_t requestCount(const std::string &path) const;

    std::string stateJson() const; ///< users (no secrets), accounts, jobs, tags, events as JSON text
    std::size_t jobCount() const;  ///< submitted jobs, the seeded ones included
    std::size_t jobCount(const std::string &status) const; ///< "RUNNING", …
    std::string jobStatus(const std::string &jobId) const; ///< "" for an unknown job

    /// Every id token is invalid from now on; refresh tokens stay.
    void expireTokens();
    void setTokenLifetime(std::chrono::seconds lifetime); ///< of tokens still to be handed out

    void setJobDuration(std::chrono::milliseconds duration); ///< of jobs still to be submitted

    /// Sockets of that job, or of all jobs when it is empty; each returns how many were open.
    std::size_t sendToSockets(const std::string &jobId, const std::string &text);
    std::size_t closeSockets(const std::string &jobId, int code, const std::string &reason);
    std::size_t dropSockets(const std::string &jobId);
    std::size_t silenceSockets(const std::string &jobId); ///< for good; later sockets of the job speak
    std::size_t openSocketCount(const std::string &jobId = {}) const;
    std::vector<SeenSocket> sockets() const; ///< the latest thousand, closed ones included

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace VelmoraPortal
