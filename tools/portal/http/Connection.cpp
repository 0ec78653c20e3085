#include "portal/http/Connection.h"

#include <cstdlib>
#include <limits>

#include <boost/asio/write.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

namespace VelmoraPortal {
namespace {

namespace websocket = beast::websocket;

constexpr std::size_t maxBody = 16 * 1024 * 1024;
constexpr std::size_t maxHead = 64 * 1024;

HttpRequest plainRequest(const http::request<http::string_body> &request, std::uint64_t connection)
{
    HttpRequest plain;
    plain.method = std::string(request.method_string());
    plain.target = std::string(request.target());
    for (const auto &field : request)
        plain.headers.emplace_back(std::string(field.name_string()), std::string(field.value()));
    plain.body = request.body();
    plain.connection = connection;
    return plain;
}

/// The Content-Length; the parser has checked it.
std::uint64_t lengthOf(const http::request<http::string_body> &request)
{
    const std::string text(request[http::field::content_length]);
    return text.empty() ? 0 : std::strtoull(text.c_str(), nullptr, 10);
}

/// What is wrong with a head that the parser accepts; empty: nothing.
std::string problemOf(const http::request<http::string_body> &head)
{
    if (head[http::field::host].empty())
        return "the Host header is missing";
    if (head.count(http::field::authorization) > 1)
        return "more than one Authorization header";
    // 16 bytes in base64
    if (websocket::is_upgrade(head) && head[http::field::sec_websocket_key].size() != 24)
        return "the Sec-WebSocket-Key is not valid";
    return {};
}

} // namespace

Connection::Connection(tcp::socket &&socket, Server::Impl &server, std::uint64_t number)
    : m_stream(beast::tcp_stream(std::move(socket)), server.tls)
    , m_server(server)
    , m_place(std::make_shared<Place>(server.connections))
    , m_number(number)
    , m_timer(server.io)
{
}

void Connection::start()
{
    lowest().expires_after(handshakeTime);
    m_stream.async_handshake(net::ssl::stream_base::server, [self = shared_from_this()](error_code error) {
        if (error)
            return;
        // Not on accept: some clients silently connect again when a connection attempt fails.
        if (self->m_server.handler.resetsConnection())
            return reset(self->lowest().socket());
        self->readHead();
    });
}

void Connection::readHead()
{
    m_parser.emplace();
    m_parser->header_limit(maxHead);
    m_parser->body_limit(std::numeric_limits<std::uint64_t>::max()); // the head decides
    lowest().expires_after(idleTime);
    http::async_read_header(m_stream, m_buffer, *m_parser, [self = shared_from_this()](error_code error, auto) {
        if (error)
            self->readFailed(error);
        else
            self->headRead();
    });
}

void Connection::headRead()
{
    if (m_used && m_server.handler.resetsConnection())
        return reset(lowest().socket());
    m_used = true;
    const auto &head = m_parser->get();
    if (const std::string problem = problemOf(head); !problem.empty())
        return refuse(400, "Bad HTTP request: " + problem);
    if (websocket::is_upgrade(head))
        return upgrade();
    m_keepAlive = head.keep_alive();
    m_head = head.method() == http::verb::head;
    m_bodyLeft = lengthOf(head);
    m_sink = m_server.handler.sink(plainRequest(head, m_number));
    if (m_sink && m_parser->chunked())
        return refuse(411, "The length of the body must be known");
    if (!m_sink && m_bodyLeft > maxBody)
        return readFailed(http::error::body_limit);
    m_parser->body_limit(maxBody); // a chunked body is still unlimited
    const bool endsNow = m_sink && m_sink->endsAfter() == 0;
    if (endsNow || !beast::iequals(head[http::field::expect], "100-continue"))
        return takeBody();
    if (m_sink && m_sink->isRefused()) {
        m_drain = true;
        Answer refusal = m_sink->finish();
        refusal.keepOpen = false;
        return answer(std::move(refusal));
    }
    m_out = "HTTP/1.1 100 Continue\r\n\r\n";
    net::async_write(m_stream, net::buffer(m_out), [self = shared_from_this()](error_code error, auto) {
        if (!error)
            self->takeBody();
    });
}

void Connection::takeBody()
{
    if (!m_sink)
        return readBody();
    const std::size_t ahead = static_cast<std::size_t>(std::min<std::uint64_t>(m_bodyLeft, m_buffer.size()));
    m_received = 0;
    const bool more = sink(static_cast<const char *>(m_buffer.data().data()), ahead);
    m_buffer.consume(ahead);
    if (more)
        streamBody();
    else
        endBody();
}

/// Passes bytes of the body on; false when the sink takes no more.
bool Connection::sink(const char *data, std::size_t size)
{
    const long long most = m_sink->endsAfter() - m_received;
    const bool cut = m_sink->endsAfter() >= 0 && most <= static_cast<long long>(size);
    const std::size_t count = cut ? static_cast<std::size_t>(most) : size;
    m_received += static_cast<long long>(count);
    m_bodyLeft -= size;
    if (count > 0)
        m_sink->take(data, count);
    return !cut;
}

void Connection::streamBody()
{
    if (m_bodyLeft == 0)
        return endBody();
    m_chunk.resize(chunkSize);
    const std::size_t room =
        slice(m_sink->rate(), static_cast<std::size_t>(std::min<std::uint64_t>(m_bodyLeft, chunkSize)));
    lowest().expires_after(idleTime);
    m_stream.async_read_some(net::buffer(m_chunk.data(), room),
                             [self = shared_from_this()](error_code error, std::size_t count) {
                                 if (error)
                                     return;
                                 if (!self->sink(self->m_chunk.data(), count))
                                     return self->endBody();
                                 self->after(duration(count, self->m_sink->rate()), [self] { self->streamBody(); });
                             });
}

void Connection::endBody()
{
    Answer made = m_sink->finish();
    m_sink.reset();
    answer(std::move(made));
}

/// A client that sends head and body one by one may wait for the head to be acknowledged, which the system puts off
/// for 40 ms in the hope of an answer to send it with.
void Connection::acknowledge()
{
#ifdef TCP_QUICKACK
    const int on = 1;
    ::setsockopt(lowest().socket().native_handle(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
#endif
}

void Connection::readBody()
{
    if (m_bodyLeft > m_buffer.size())
        acknowledge();
    http::async_read(m_stream, m_buffer, *m_parser, [self = shared_from_this()](error_code error, auto) {
        if (error)
            return self->readFailed(error);
        self->m_bodyLeft = 0;
        self->answer(self->m_server.handler.answer(plainRequest(self->m_parser->get(), self->m_number)));
    });
}

void Connection::readFailed(error_code error)
{
    if (error == http::error::end_of_stream)
        return shutDown();
    if (error.category() != make_error_code(http::error::end_of_stream).category() ||
        error == http::error::partial_message)
        return; // the client has disconnected
    refuse(error == http::error::body_limit     ? 413
           : error == http::error::header_limit ? 431
                                                : 400,
           "Bad HTTP request: " + error.message());
}

void Connection::refuse(int status, const std::string &message)
{
    m_sink.reset();
    Answer refusal;
    refusal.keepOpen = false;
    refusal.response.status = status;
    refusal.response.body = "{\"message\":\"" + message + "\"}";
    m_drain = true;
    answer(std::move(refusal));
}

void Connection::upgrade()
{
    const std::uint64_t socket = ++m_server.socketNumber;
    std::chrono::milliseconds delay{0};
    auto refusal = m_server.handler.refusal(plainRequest(m_parser->get(), m_number), socket, delay);
    if (refusal) {
        m_keepAlive = refusal->keepOpen;
        return answer(std::move(*refusal));
    }
    after(delay, [self = shared_from_this(), socket] {
        serveSocket(std::move(self->m_stream), self->m_server, self->m_place, socket, self->m_parser->release());
    });
}

void serve(tcp::socket &&socket, Server::Impl &server)
{
    std::make_shared<Connection>(std::move(socket), server, ++server.connectionNumber)->start();
}

} // namespace VelmoraPortal
