#pragma once

#include "portal/http/Http.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
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

/// How the storage hands out its addresses. Those handed out before a change stay valid.
struct StorageOptions {
    enum class Upload {
        Form,    ///< form fields and the file in one multipart body
        RawPut,  ///< the file as the whole body, with PUT
        RawPost, ///< the same with POST
    };
    enum class Download { Get, Post, Mixed }; ///< Mixed: every second piece with POST
    Upload upload = Upload::Form;
    Download download = Download::Get;
    std::int64_t pieceSize = 64 * 1024 * 1024; ///< plain bytes of every piece but the last
    bool shuffle = false;                      ///< lists the pieces out of order
    std::chrono::seconds addressLifetime{3600};
};

struct Options {
    std::uint16_t port = 0;                       ///< 0: a free one
    std::string directory;                        ///< private directory; empty: a temporary one, removed at the end
    std::chrono::milliseconds jobDuration{20000}; ///< from submission to finish
    std::chrono::seconds tokenLifetime{3600};     ///< of an id token
    StorageOptions storage;
    bool requireInputs = false; ///< a job fails when an input that its submission names was not uploaded
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
    SlowRead,    ///< PROCESSED; the body is read at `rate` bytes a second. Storage paths only.
    SlowWrite,   ///< PROCESSED; the answer's body is sent at `rate` bytes a second.
    CutUpload,   ///< NOT processed; reset after `bytes` bytes of the request's body were read. Storage paths only.
    Gzip,        ///< PROCESSED; the answer's body is gzip'd, and closed after `bytes` bytes of that if not 0.
    NoLength,    ///< PROCESSED; no content length, closed after the body, or `bytes` bytes of it if not 0.
    Raw,  ///< NOT processed; `body` goes on the wire as it stands, head and all; closed after it unless `keepOpen`.
    Drip, ///< PROCESSED; the answer is sent one byte at a time, `rate` of them a second.
    SocketDrop,    ///< the connection of an accepted socket is closed without a close frame
    SocketSilence, ///< an accepted socket sends no more texts; pings are still noted and ponged
    SocketClose,   ///< an accepted socket closes with `closeCode` and `reason`
    SocketRaw,     ///< `body` goes on an accepted socket's wire as it stands, frame heads and all; nothing follows
};

/// A fault strikes the next `times` requests that match, then it is used up. The oldest match wins.
struct Fault {
    std::string path; ///< start of the path behind /api/ ("job/submit"), "storage" for the storage (also
                      ///< "storage/piece", "storage/form", "storage/raw"), "socket" for sockets (also
                      ///< "socket/job/progress/ID"), "*" for any. The Socket… kinds read an empty path as "socket".
    FaultKind kind = FaultKind::Status;
    int times = 1; ///< 0 or less: until cleared
    int status = 500;
    std::string body; ///< Status, Raw, SocketRaw
    std::string contentType = "application/json";
    std::chrono::milliseconds delay{0}; ///< Delay; any other kind with an answer waits, too
    long long bytes = 0;                ///< CutBody, CutUpload, Gzip, NoLength
    long long rate = 65536;             ///< SlowRead, SlowWrite, Drip
    bool keepOpen = true;               ///< Status, Raw: false closes the connection after the answer
    int messages = 0;                   ///< Socket… kinds: strikes after so many texts
    int closeCode = 1011;               ///< SocketClose
    std::string reason;                 ///< SocketClose
};

/// A request as it was received, in the order of arrival.
struct SeenRequest {
    std::string method;
    std::string target;
    Headers headers;              ///< in order, names as sent
    std::string body;             ///< of what goes to the storage only the first 64 KiB
    std::uint64_t bodySize = 0;   ///< all of it that was read
    std::uint64_t connection = 0; ///< the same number means the same connection
    int status = 0;               ///< what was answered; 0: nothing
    bool processed = false;       ///< false when a fault kept the service from it

    /// The first value of that header (any letter case), or "".
    std::string header(const std::string &name) const;
    bool hasHeader(const std::string &name) const;
};

/// A file of a job in the storage.
struct SeenFile {
    std::string name;
    std::int64_t size = 0;       ///< of the cipher text
    std::int64_t plainSize = -1; ///< -1: it is no cipher text of the job's key
    std::string hash;
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

class Core;

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

    std::vector<SeenFile> files(const std::string &jobId) const; ///< by name, hidden and result files included
    std::string jobKey(const std::string &jobId) const;          ///< 32 bytes
    /// The decrypted file; no value when there is none, or it is no cipher text of the job's key. The caller's
    /// thread decrypts.
    std::optional<std::string> plainFile(const std::string &jobId, const std::string &name) const;
    /// The same into a file; false likewise.
    bool savePlainFile(const std::string &jobId, const std::string &name, const std::string &path) const;
    /// Puts a file into the storage; any name will do. Throws std::system_error when it cannot be written.
    void addFile(const std::string &jobId, const std::string &name, const std::string &plain);
    void addFileFrom(const std::string &jobId, const std::string &name, const std::string &plainPath);
    bool removeFile(const std::string &jobId, const std::string &name);
    StorageOptions storage() const;
    void setStorage(const StorageOptions &options); ///< for addresses still to be handed out

private:
    std::unique_ptr<Core> m_core;
};

} // namespace VelmoraPortal
