#pragma once

#include <chrono>
#include <string>

namespace VelmoraPortal {

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

} // namespace VelmoraPortal
