#include "portal/control/Journal.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

constexpr std::size_t maxRequests = 10000;
constexpr std::size_t maxBytes = 64 * 1024 * 1024;
constexpr std::size_t maxSockets = 1000;
constexpr std::size_t maxTexts = 1000;
constexpr std::size_t maxTextBytes = 1024;

} // namespace

std::string SeenRequest::header(const std::string &name) const
{
    const std::string *value = findHeader(headers, name);
    return value ? *value : std::string();
}

bool SeenRequest::hasHeader(const std::string &name) const { return findHeader(headers, name) != nullptr; }

void note(std::vector<std::string> &list, std::string text)
{
    if (list.size() >= maxTexts)
        list.erase(list.begin());
    text.resize(std::min(text.size(), maxTextBytes));
    list.push_back(std::move(text));
}

void Journal::add(SeenRequest request)
{
    m_bytes += request.body.size();
    m_requests.push_back(std::move(request));
    while (m_requests.size() > maxRequests || (m_bytes > maxBytes && m_requests.size() > 1)) {
        m_bytes -= m_requests.front().body.size();
        m_requests.pop_front();
    }
}

void Journal::clearRequests()
{
    m_requests.clear();
    m_bytes = 0;
}

SeenSocket &Journal::addSocket(SeenSocket socket)
{
    for (auto it = m_sockets.begin(); it != m_sockets.end() && m_sockets.size() >= maxSockets;)
        it = it->second.open ? std::next(it) : m_sockets.erase(it);
    const std::uint64_t id = socket.id;
    return m_sockets[id] = std::move(socket);
}

SeenSocket *Journal::socket(std::uint64_t id)
{
    const auto found = m_sockets.find(id);
    return found == m_sockets.end() ? nullptr : &found->second;
}

} // namespace VelmoraPortal
