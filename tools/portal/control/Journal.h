#pragma once

#include "portal/http/Http.h"

#include <deque>
#include <map>

namespace VelmoraPortal {

/// A request as it was received, in the order of arrival.
struct SeenRequest {
    std::string method;
    std::string target;
    Headers headers;              ///< in order, names as sent
    std::string body;             ///< for the storage only the first 64 KiB
    std::uint64_t bodySize = 0;   ///< bytes that were read
    std::uint64_t connection = 0; ///< the same number means the same connection
    int status = 0;               ///< of the answer; 0: no answer
    bool processed = false;       ///< false when the service did not see it, because of a fault

    /// The first value of that header (any letter case), or "".
    std::string header(const std::string &name) const;
    bool hasHeader(const std::string &name) const;
};

/// An accepted socket, open or closed.
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

/// Requests and sockets that the portal has seen. The oldest are removed when there are too many.
class Journal {
public:
    void add(SeenRequest request);
    void clearRequests();
    const std::deque<SeenRequest> &requests() const { return m_requests; }

    SeenSocket &addSocket(SeenSocket socket);
    SeenSocket *socket(std::uint64_t id);
    const std::map<std::uint64_t, SeenSocket> &sockets() const { return m_sockets; }

private:
    std::deque<SeenRequest> m_requests;
    std::size_t m_bytes = 0;
    std::map<std::uint64_t, SeenSocket> m_sockets;
};

/// Appends the first KiB of the text, keeping the latest thousand texts.
void note(std::vector<std::string> &list, std::string text);

} // namespace VelmoraPortal
