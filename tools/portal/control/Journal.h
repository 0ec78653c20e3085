#pragma once

#include "portal/Portal.h"

#include <deque>
#include <map>

namespace VelmoraPortal {

/// What the portal has seen: requests and sockets, the oldest dropped once there are too many.
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
