#pragma once

#include "portal/http/Http.h"

#include <chrono>
#include <string>
#include <vector>

namespace VelmoraPortal {

/// What goes wrong. FaultTable.cpp says what each kind does, when, and with which fields; so does
/// `velmora-portal --help`.
enum class FaultKind {
    Status,
    Delay,
    HangUp,
    Silence,
    CutHead,
    CutBody,
    ResetAfter,
    SlowRead,
    SlowWrite,
    CutUpload,
    RefuseEarly,
    StopReading,
    Informational,
    Gzip,
    NoLength,
    IgnoreRange,
    OtherRange,
    OtherEtag,
    Raw,
    Drip,
    ResetBefore,
    SocketDrop,
    SocketSilence,
    SocketClose,
    SocketRaw,
};

/// A fault is injected into the next `times` requests that match, then it is used up. The oldest match wins.
struct Fault {
    std::string path; ///< start of the path behind /api/ ("job/submit"), "storage" for the storage (also
                      ///< "storage/piece", "storage/form", "storage/raw"), "socket" for sockets (also
                      ///< "socket/job/progress/ID"), "*" for any. The Socket… kinds read an empty path as "socket".
    FaultKind kind = FaultKind::Status;
    int times = 1; ///< 0 or less: until cleared
    int status = 500;
    std::string body;
    std::string contentType = "application/json";
    std::chrono::milliseconds delay{0}; ///< every kind that sends an answer waits
    long long bytes = 0;
    long long rate = 65536; ///< bytes a second
    bool keepOpen = true;   ///< false closes the connection after the answer
    int messages = 0;       ///< the Socket… kinds are injected after so many texts
    int closeCode = 1011;
    std::string reason;
    Closing closing = Closing::Usual; ///< of every kind that sends an answer
    std::vector<int> informational;   ///< statuses sent before the answer of any kind, or before its absence
};

} // namespace VelmoraPortal
