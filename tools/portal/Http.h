#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace VelmoraPortal {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// The value of the first header of that name (any letter case), or nullptr.
const std::string *findHeader(const Headers &headers, std::string_view name);

/// A request as it arrived; for a socket's handshake the body is empty.
struct HttpRequest {
    std::string method;
    std::string target;
    Headers headers;
    std::string body;
    std::uint64_t connection = 0; ///< counts the connections from 1
};

struct HttpResponse {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    Headers headers;
};

/// A response and how it goes out.
struct Answer {
    enum class Ending {
        Whole,   ///< sent in full, connection kept as HTTP says
        CutHead, ///< closed in the middle of the head
        CutBody, ///< closed after `bytes` bytes of the body
        Reset,   ///< connection reset, nothing sent
        HangUp,  ///< connection closed, nothing sent
        Silence, ///< nothing sent, connection kept
    };
    HttpResponse response;
    Ending ending = Ending::Whole;
    std::chrono::milliseconds delay{0};
    long bytes = 0;
    bool keepOpen = true; ///< false closes after a whole response
};

} // namespace VelmoraPortal
