#include "portal/http/ServerImpl.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>

#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

namespace VelmoraPortal {
namespace {

namespace websocket = beast::websocket;

constexpr std::size_t maxBody = 16 * 1024 * 1024;
constexpr std::size_t maxHead = 64 * 1024;
constexpr std::size_t chunkSize = 256 * 1024;
constexpr auto idleTime = std::chrono::minutes(10);
constexpr auto closingTime = std::chrono::seconds(5);
constexpr auto goodbyeTime = std::chrono::milliseconds(50);

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

/// The bytes of one read or write: with a rate, a twentieth of a second's.
std::size_t slice(long long rate, std::size_t most)
{
    return rate > 0 ? std::min(most, static_cast<std::size_t>(std::max(rate / 20, 1LL))) : most;
}

std::chrono::microseconds duration(std::size_t bytes, long long rate)
{
    return std::chrono::microseconds(rate > 0 ? static_cast<long long>(bytes) * 1000000 / rate : 0);
}

class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(tcp::socket &&socket, Server::Impl &server, std::uint64_t number)
        : m_stream(beast::tcp_stream(std::move(socket)), server.tls)
        , m_server(server)
        , m_place(std::make_shared<Place>(server.connections))
        , m_number(number)
        , m_timer(server.io)
    {
    }

    void start()
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

private:
    beast::tcp_stream &lowest() { return beast::get_lowest_layer(m_stream); }

    void readHead()
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

    void headRead()
    {
        if (m_used && m_server.handler.resetsConnection())
            return reset(lowest().socket());
        m_used = true;
        const auto &head = m_parser->get();
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
        if (!beast::iequals(head[http::field::expect], "100-continue"))
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

    void takeBody()
    {
        if (!m_sink)
            return readBody();
        const std::size_t ahead = static_cast<std::size_t>(std::min<std::uint64_t>(m_bodyLeft, m_buffer.size()));
        m_received = 0;
        if (!sink(static_cast<const char *>(m_buffer.data().data()), ahead))
            return;
        m_buffer.consume(ahead);
        streamBody();
    }

    /// Passes bytes of the body on; false when the connection was reset instead.
    bool sink(const char *data, std::size_t size)
    {
        const long long most = m_sink->resetAfter() - m_received;
        const bool cut = m_sink->resetAfter() >= 0 && most <= static_cast<long long>(size);
        const std::size_t count = cut ? static_cast<std::size_t>(most) : size;
        m_received += static_cast<long long>(count);
        m_bodyLeft -= count;
        if (count > 0)
            m_sink->take(data, count);
        if (cut)
            reset(lowest().socket());
        return !cut;
    }

    void streamBody()
    {
        if (m_bodyLeft == 0) {
            Answer made = m_sink->finish();
            m_sink.reset();
            return answer(std::move(made));
        }
        m_chunk.resize(chunkSize);
        const std::size_t room =
            slice(m_sink->rate(), static_cast<std::size_t>(std::min<std::uint64_t>(m_bodyLeft, chunkSize)));
        lowest().expires_after(idleTime);
        m_stream.async_read_some(net::buffer(m_chunk.data(), room),
                                 [self = shared_from_this()](error_code error, std::size_t count) {
                                     if (error || !self->sink(self->m_chunk.data(), count))
                                         return;
                                     self->after(duration(count, self->m_sink->rate()), [self] { self->streamBody(); });
                                 });
    }

    void readBody()
    {
        http::async_read(m_stream, m_buffer, *m_parser, [self = shared_from_this()](error_code error, auto) {
            if (error)
                return self->readFailed(error);
            self->answer(self->m_server.handler.answer(plainRequest(self->m_parser->get(), self->m_number)));
        });
    }

    void readFailed(error_code error)
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

    void refuse(int status, const std::string &message)
    {
        m_sink.reset();
        Answer refusal;
        refusal.keepOpen = false;
        refusal.response.status = status;
        refusal.response.body = "{\"message\":\"" + message + "\"}";
        m_drain = true;
        answer(std::move(refusal));
    }

    void upgrade()
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

    void answer(Answer answer)
    {
        m_answer = std::move(answer);
        after(m_answer.delay, [self = shared_from_this()] { self->finish(); });
    }

    void finish()
    {
        switch (m_answer.ending) {
        case Answer::Ending::Reset:
            return reset(lowest().socket());
        case Answer::Ending::HangUp:
            return hangUp(lowest());
        case Answer::Ending::Silence:
            return discard();
        case Answer::Ending::Raw:
            m_keepAlive = m_answer.keepOpen;
            m_left = 0;
            m_out = std::move(m_answer.response.body);
            return writeHead(0);
        case Answer::Ending::Whole:
        case Answer::Ending::CutHead:
        case Answer::Ending::CutBody:
            return write();
        }
    }

    void write()
    {
        HttpResponse &response = m_answer.response;
        const bool bodiless = response.status == 204 || response.status == 304 || response.status < 200;
        if (m_answer.rate > 0 && !response.source)
            response.source = textBytes(std::move(response.body));
        const std::uint64_t size = response.source ? response.source->size() : response.body.size();
        const bool named = m_answer.lengthKnown || bodiless;
        m_keepAlive = m_keepAlive && m_answer.keepOpen && named;
        m_out = "HTTP/1.1 " + std::to_string(response.status) + ' ' +
                std::string(http::obsolete_reason(http::int_to_status(static_cast<unsigned>(response.status)))) +
                "\r\nServer: velmora-portal\r\n";
        if (size > 0 && !bodiless)
            m_out += "Content-Type: " + response.contentType + "\r\n";
        for (const auto &[name, value] : response.headers)
            m_out += name + ": " + value + "\r\n";
        if (!bodiless && named)
            m_out += "Content-Length: " + std::to_string(size) + "\r\n";
        m_out += m_keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
        if (m_answer.ending == Answer::Ending::CutHead)
            m_out.resize(m_out.size() / 2);
        m_left = bodiless || m_head || m_answer.ending == Answer::Ending::CutHead ? 0 : size;
        if (m_answer.ending == Answer::Ending::CutBody)
            m_left = std::min<std::uint64_t>(m_left, static_cast<std::uint64_t>(std::max(m_answer.bytes, 0LL)));
        if (!response.source) { // short: one write, one TLS record
            m_out.append(response.body, 0, static_cast<std::size_t>(m_left));
            m_left = 0;
        }
        writeHead(0);
    }

    void writeHead(std::size_t from)
    {
        m_chunk.clear();
        m_chunkSent = 0;
        if (from == m_out.size())
            return writeBody();
        const std::size_t count = m_answer.drip ? 1 : m_out.size();
        lowest().expires_after(idleTime);
        net::async_write(m_stream, net::buffer(m_out.data() + from, count),
                         [self = shared_from_this(), end = from + count](error_code error, std::size_t written) {
                             if (!error)
                                 self->after(duration(self->m_answer.drip ? written : 0, self->m_answer.rate),
                                             [self, end] { self->writeHead(end); });
                         });
    }

    void writeBody()
    {
        if (m_left == 0)
            return written();
        if (m_chunkSent == m_chunk.size()) {
            m_chunk.resize(chunkSize);
            m_chunkSent = 0;
            try {
                m_chunk.resize(m_answer.response.source->give(m_chunk.data(), m_chunk.size()));
            } catch (const std::exception &) {
                m_chunk.clear();
            }
            if (m_chunk.empty())
                return hangUp(lowest()); // the length was sent already: an early end is the only sign left
        }
        const std::size_t ready = std::min<std::uint64_t>(m_left, m_chunk.size() - m_chunkSent);
        const std::size_t count = m_answer.drip ? 1 : slice(m_answer.rate, ready);
        lowest().expires_after(idleTime);
        net::async_write(m_stream, net::buffer(m_chunk.data() + m_chunkSent, count),
                         [self = shared_from_this(), count](error_code error, auto) {
                             if (error)
                                 return;
                             self->m_chunkSent += count;
                             self->m_left -= count;
                             self->after(duration(count, self->m_answer.rate), [self] { self->writeBody(); });
                         });
    }

    void written()
    {
        const bool whole = m_answer.ending == Answer::Ending::Whole || m_answer.ending == Answer::Ending::Raw;
        m_answer.response.source.reset();
        if (!whole)
            hangUp(lowest());
        else if (m_drain)
            drain();
        else if (m_keepAlive)
            readHead();
        else
            shutDown();
    }

    void shutDown()
    {
        lowest().expires_after(closingTime);
        m_stream.async_shutdown([self = shared_from_this()](error_code) { hangUp(self->lowest()); });
        // For some clients a body without a length ends with the connection, not with TLS.
        m_timer.expires_after(goodbyeTime);
        m_timer.async_wait([self = shared_from_this()](error_code error) {
            error_code ignored;
            if (error)
                return;
            self->lowest().socket().shutdown(tcp::socket::shutdown_send, ignored);
        });
    }

    /// A close with unread input would reset the connection and lose the answer.
    void drain()
    {
        error_code ignored;
        lowest().socket().shutdown(tcp::socket::shutdown_send, ignored);
        lowest().expires_after(closingTime);
        drainMore();
    }

    void drainMore()
    {
        m_rest.resize(64 * 1024);
        lowest().async_read_some(net::buffer(m_rest), [self = shared_from_this()](error_code error, auto) {
            if (error)
                hangUp(self->lowest());
            else
                self->drainMore();
        });
    }

    /// Keeps the connection, silent, until the client closes it.
    void discard()
    {
        lowest().expires_never();
        m_rest.resize(1024);
        m_stream.async_read_some(net::buffer(m_rest), [self = shared_from_this()](error_code error, auto) {
            if (!error)
                self->discard();
        });
    }

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

} // namespace

void serve(tcp::socket &&socket, Server::Impl &server)
{
    std::make_shared<Connection>(std::move(socket), server, ++server.connectionNumber)->start();
}

} // namespace VelmoraPortal
