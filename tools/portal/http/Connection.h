#pragma once

#include "portal/http/ServerImpl.h"

#include <algorithm>
#include <optional>

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>

namespace VelmoraPortal {

constexpr std::size_t chunkSize = 256 * 1024;
constexpr auto idleTime = std::chrono::minutes(10);

/// The bytes of one read or write: with a rate, a twentieth of a second's.
inline std::size_t slice(long long rate, std::size_t most)
{
    return rate > 0 ? std::min(most, static_cast<std::size_t>(std::max(rate / 20, 1LL))) : most;
}

inline std::chrono::microseconds duration(std::size_t bytes, long long rate)
{
    return std::chrono::microseconds(rate > 0 ? static_cast<long long>(bytes) * 1000000 / rate : 0);
}

/*
 * One connection. It keeps itself until it ends, by the handlers of its reads and writes.
 *
 *   start -> readHead -> headRead -> takeBody (sink) or readBody -> answer -> finish -> write -> written
 *               ^                                                                                  |
 *               +------------------------------- kept open ---------------------------------------+
 */
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(tcp::socket &&socket, Server::Impl &server, std::uint64_t number);

    void start();

private:
    beast::tcp_stream &lowest() { return beast::get_lowest_layer(m_stream); }

    template <typename Work> void after(std::chrono::microseconds delay, Work work)
    {
        if (delay.count() <= 0)
            return work();
        lowest().expires_never();
        m_timer.expires_after(delay);
        m_timer.async_wait([work = std::move(work)](error_code error) {
            if (!error)
                work();
        });
    }

    // Connection.cpp: requests
    void readHead();
    void headRead();
    void takeBody();
    bool sink(const char *data, std::size_t size);
    void streamBody();
    void endBody();
    void acknowledge();
    void readBody();
    void readFailed(error_code error);
    void refuse(int status, const std::string &message);
    void upgrade();

    // ConnectionWrite.cpp: answers and the end
    void answer(Answer answer);
    void finish();
    void write();
    void writeHead(std::size_t from);
    void writeBody();
    void written();
    void shutDown();
    void drain();
    void drainMore();
    void discard();
    void skipBody();
    void hold();

    Stream m_stream;
    Server::Impl &m_server;
    std::shared_ptr<Place> m_place;
    std::uint64_t m_number;
    net::steady_timer m_timer;
    beast::flat_buffer m_buffer;
    std::optional<http::request_parser<http::string_body>> m_parser;
    Answer m_answer;
    std::string m_out;
    std::string m_rest;
    std::unique_ptr<BodySink> m_sink;
    std::uint64_t m_bodyLeft = 0; ///< of the request's body, not read yet
    long long m_received = 0;
    std::string m_chunk;
    std::size_t m_chunkSent = 0;
    std::uint64_t m_left = 0; ///< of the answer's body, not sent yet
    bool m_used = false;
    bool m_keepAlive = false;
    bool m_head = false;
    bool m_drain = false;
};

} // namespace VelmoraPortal
