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

/// A request as it arrived; for a socket's handshake and a body that goes to a sink the body is empty.
struct HttpRequest {
    std::string method;
    std::string target;
    Headers headers;
    std::string body;
    std::uint64_t connection = 0; ///< counts the connections from 1
};

/// A body that is made while it is sent.
class BodySource {
public:
    virtual ~BodySource() = default;
    virtual std::uint64_t size() const = 0; ///< of the whole body
    /// The next bytes, at most `room` (which is 1024 or more); 0 at the end, or when the rest is not to be had.
    virtual std::size_t give(char *to, std::size_t room) = 0;
};

std::shared_ptr<BodySource> textBytes(std::string text);
/// The same body as gzip (without compression, for speed and a length known at the start).
std::shared_ptr<BodySource> gzipped(std::shared_ptr<BodySource> source);

struct HttpResponse {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    Headers headers;
    std::shared_ptr<BodySource> source; ///< sent in place of `body`
};

/// A request that the service turns down, with the status and the message of its answer.
struct Refusal : std::runtime_error {
    Refusal(int code, const std::string &message)
        : std::runtime_error(message)
        , status(code)
    {
    }
    int status;
};

/// A response and how it goes out.
struct Answer {
    enum class Ending {
        Whole,   ///< sent in full, connection kept as HTTP says
        CutHead, ///< closed in the middle of the head
        CutBody, ///< closed after `bytes` bytes of the body
        Raw,     ///< the response's body is all that is sent
        Reset,   ///< connection reset, nothing sent
        HangUp,  ///< connection closed, nothing sent
        Silence, ///< nothing sent, connection kept
    };
    HttpResponse response;
    Ending ending = Ending::Whole;
    std::chrono::milliseconds delay{0};
    long long bytes = 0;
    bool keepOpen = true;    ///< false closes after a whole response
    bool lengthKnown = true; ///< false leaves the content length out: the body ends with the connection
    long long rate = 0;      ///< bytes of the body sent in a second; 0: as fast as can be
    bool drip = false;       ///< one byte at a time, the head too
};

/// Takes a request's body while it arrives.
class BodySink {
public:
    virtual ~BodySink() = default;
    virtual void take(const char *data, std::size_t size) = 0;
    /// All of the body was taken, or none of it when `isRefused`.
    virtual Answer finish() = 0;
    /// True when the body does not matter any more: a client that waits for leave to send it gets none.
    virtual bool isRefused() const = 0;
    virtual long long rate() const { return 0; } ///< bytes read in a second; 0: as fast as can be
    /// The connection is reset after so many bytes of the body; below 0: never.
    virtual long long resetAfter() const { return -1; }
};

/// Takes a body and forgets it, then gives that answer.
std::unique_ptr<BodySink> discarding(Answer answer);

} // namespace VelmoraPortal
