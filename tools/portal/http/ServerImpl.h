#pragma once

#include "portal/http/Server.h"

#include <map>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>

// Internals of the server. Only the sources in this folder include it, so that no other source needs Boost.

namespace VelmoraPortal {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using beast::error_code;
using Stream = beast::ssl_stream<beast::tcp_stream>;

constexpr auto handshakeTime = std::chrono::seconds(30);

/// Counts a connection while it exists. It shares the count, as it may outlive the server.
class Place {
public:
    explicit Place(std::shared_ptr<std::size_t> count)
        : m_count(std::move(count))
    {
        ++*m_count;
    }
    ~Place() { --*m_count; }
    Place(const Place &) = delete;
    Place &operator=(const Place &) = delete;

private:
    std::shared_ptr<std::size_t> m_count;
};

/// An accepted socket, as the server controls it.
class OpenSocket {
public:
    virtual ~OpenSocket() = default;
    virtual void send(std::string text) = 0;
    virtual void close(int code, std::string reason) = 0;
    virtual void drop() = 0;
    virtual void sendRaw(std::string bytes) = 0;
};

struct Server::Impl {
    Impl(ServerHandler &owner, const Certificates &certificates);

    void accept();
    void tickLater();
    std::shared_ptr<OpenSocket> open(std::uint64_t socket);

    ServerHandler &handler;
    net::io_context io{1};
    net::ssl::context tls{net::ssl::context::tls_server};
    tcp::acceptor acceptor{io};
    net::steady_timer pause{io};
    net::steady_timer ticker{io};
    std::chrono::milliseconds tick{0};
    std::map<std::uint64_t, std::weak_ptr<OpenSocket>> sockets;
    std::shared_ptr<std::size_t> connections = std::make_shared<std::size_t>(0);
    std::uint64_t connectionNumber = 0;
    std::uint64_t socketNumber = 0;
    std::thread thread;
    std::uint16_t port = 0;
};

/// Serves HTTP on an accepted connection until it ends.
void serve(tcp::socket &&socket, Server::Impl &server);
/// Serves a connection whose upgrade to a socket was accepted.
void serveSocket(Stream &&stream, Server::Impl &server, std::shared_ptr<Place> place, std::uint64_t number,
                 http::request<http::string_body> request);

inline void hangUp(beast::tcp_stream &stream)
{
    error_code ignored;
    stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
    stream.close();
}

inline void reset(tcp::socket &socket)
{
    error_code ignored;
    socket.set_option(net::socket_base::linger(true, 0), ignored);
    socket.close(ignored);
}

} // namespace VelmoraPortal
