#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace VelmoraPortal {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// The value of the first header of that name (any letter case), or nullptr.
const std::string *findHeader(const Headers &headers, std::string_view name);

/// A request as it arrived. The body is empty for a socket's handshake and when a sink takes it.
struct HttpRequest {
    std::string method;
    std::string target;
    Headers headers;
    std::string body;
    std::uint64_t connection = 0; ///< number of the connection, from 1
};

/// A body that is produced while it is sent.
class BodySource {
public:
    virtual ~BodySource() = default;
    virtual std::uint64_t size() const = 0; ///< of the whole body
    /// The next bytes, at most `room` (which is 1024 or more); 0 at the end, or when the rest cannot be read.
    virtual std::size_t give(char *to, std::size_t room) = 0;
    /// Leaves out the next bytes where that needs no reading; returns how many. Called before the first `give`.
    virtual std::uint64_t skip(std::uint64_t) { return 0; }
};

std::shared_ptr<BodySource> textBytes(std::string text);
/// The same body as gzip (without compression, for speed and a length known at the start).
std::shared_ptr<BodySource> gzipped(std::shared_ptr<BodySource> source);

struct HttpResponse {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    Headers headers;
    std::shared_ptr<BodySource> source; ///< sent instead of `body`
};

/// Thrown for a request that is refused, with the status and the message of the answer.
struct Refusal : std::runtime_error {
    Refusal(int code, const std::string &message)
        : std::runtime_error(message)
        , status(code)
    {
    }
    int status;
};

/// What becomes of the connection after an answer, whole or cut.
enum class Closing {
    Usual,  ///< as HTTP has it; closed without a TLS close_notify after a cut answer
    Notify, ///< closed in order: close_notify, then the end of TCP
    End,    ///< TCP ends without close_notify
    Reset,  ///< TCP is reset
    Hold,   ///< kept, but nothing more is read or sent
    Skip,   ///< the rest of the request's body is read and ignored, then the next request is served
};

/// A response and how it is sent.
struct Answer {
    enum class Ending {
        Whole,   ///< sent in full; HTTP decides whether the connection is kept
        CutHead, ///< closed in the middle of the head
        CutBody, ///< closed after `bytes` bytes of the body
        Raw,     ///< the response's body is all that is sent
        Reset,   ///< connection reset, nothing sent
        HangUp,  ///< connection closed, nothing sent
        Silence, ///< nothing sent, connection kept
        Stall,   ///< the same, and nothing more is read
    };
    HttpResponse response;
    Ending ending = Ending::Whole;
    std::chrono::milliseconds delay{0};
    long long bytes = 0;
    bool keepOpen = true;    ///< false closes after a whole response
    bool lengthKnown = true; ///< false: no Content-Length; the body ends with the connection
    long long rate = 0;      ///< bytes of the body sent in a second; 0: no limit
    bool drip = false;       ///< byte by byte, the head too
    Closing closing = Closing::Usual;
    std::vector<int> informational; ///< statuses of answers that are sent at once, before the delay
};

/// Takes a request's body while it arrives.
class BodySink {
public:
    virtual ~BodySink() = default;
    virtual void take(const char *data, std::size_t size) = 0;
    /// Called after the whole body, or before it when `isRefused`, or after `endsAfter` bytes of it.
    virtual Answer finish() = 0;
    /// True when the body is not needed any more: a client that waits for "100 Continue" does not get it.
    virtual bool isRefused() const = 0;
    virtual long long rate() const { return 0; } ///< bytes read in a second; 0: no limit
    /// The rest of the body is not taken: `finish` is called after so many bytes. Negative: never.
    virtual long long endsAfter() const { return -1; }
};

/// Ignores the body, then returns that answer.
std::unique_ptr<BodySink> discarding(Answer answer);

} // namespace VelmoraPortal
