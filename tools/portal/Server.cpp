#include "Server.h"

#include <deque>
#include <future>
#include <map>
#include <stdexcept>
#include <thread>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
namespace websocket = beast::websocket;
using tcp = net::ip::tcp;
using beast::error_code;

namespace VelmoraPortal {
namespace {

using Stream = beast::ssl_stream<beast::tcp_stream>;

constexpr std::size_t maxBody = 16 * 1024 * 1024;
constexpr std::size_t maxHead = 64 * 1024;
constexpr std::size_t maxConnections = 2000;
constexpr std::size_t maxQueuedTexts = 10000;
constexpr auto handshakeTime = std::chrono::seconds(30);
constexpr auto idleTime = std::chrono::minutes(10);
constexpr auto closingTime = std::chrono::seconds(5);

/// Counts a connection for as long as it lives; owns the count jointly, as it may outlive the server.
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

void hangUp(beast::tcp_stream &stream)
{
    error_code ignored;
    stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
    stream.close();
}

void reset(tcp::socket &socket)
{
    error_code ignored;
    socket.set_option(net::socket_base::linger(true, 0), ignored);
    socket.close(ignored);
}

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

} // namespace

class WebSocket;

struct Server::Impl {
    Impl(ServerHandler &owner, const Certificates &certificates)
        : handler(owner)
    {
        tls.set_options(net::ssl::context::default_workarounds | net::ssl::context::no_tlsv1 |
                        net::ssl::context::no_tlsv1_1);
        tls.use_certificate_chain(net::buffer(certificates.certPem));
        tls.use_private_key(net::buffer(certificates.keyPem), net::ssl::context::pem);
    }

    void accept();
    void tickLater();

    ServerHandler &handler;
    net::io_context io{1};
    net::ssl::context tls{net::ssl::context::tls_server};
    tcp::acceptor acceptor{io};
    net::steady_timer pause{io};
    net::steady_timer ticker{io};
    std::chrono::milliseconds tick{0};
    std::map<std::uint64_t, std::weak_ptr<WebSocket>> sockets;
    std::shared_ptr<std::size_t> connections = std::make_shared<std::size_t>(0);
    std::uint64_t connectionNumber = 0;
    std::uint64_t socketNumber = 0;
    std::thread thread;
    std::uint16_t port = 0;
};

class WebSocket : public std::enable_shared_from_this<WebSocket> {
public:
    WebSocket(Stream &&stream, Server::Impl &server, std::shared_ptr<Place> place, std::uint64_t number)
        : m_stream(std::move(stream))
        , m_server(server)
        , m_place(std::move(place))
        , m_number(number)
    {
    }

    void accept(http::request<http::string_body> request)
    {
        m_request = std::move(request);
        beast::get_lowest_layer(m_stream).expires_never();
        m_stream.set_option(websocket::stream_base::timeout{handshakeTime, websocket::stream_base::none(), false});
        m_stream.read_message_max(64 * 1024);
        m_stream.control_callback([this](websocket::frame_type type, beast::string_view payload) {
            if (type == websocket::frame_type::ping)
                m_server.handler.socketPinged(m_number, std::string(payload));
        });
        m_stream.async_accept(m_request, [self = shared_from_this()](error_code error) {
            if (error)
                return self->closed(error);
            self->m_server.sockets[self->m_number] = self;
            self->m_server.handler.socketOpened(self->m_number);
            self->read();
        });
    }

    void send(std::string text)
    {
        if (m_closing || m_queue.size() >= maxQueuedTexts)
            return;
        m_queue.push_back(std::move(text));
        next();
    }

    void close(int code, std::string reason)
    {
        if (m_closing)
            return;
        m_closing = true;
        m_reason.code = static_cast<std::uint16_t>(code);
        m_reason.reason.assign(reason.data(), std::min<std::size_t>(reason.size(), 123)); // the frame's limit
        next();
    }

    void drop() { hangUp(beast::get_lowest_layer(m_stream)); }

private:
    void next()
    {
        if (m_writing)
            return;
        if (!m_queue.empty()) {
            m_writing = true;
            m_stream.text(true);
            m_stream.async_write(net::buffer(m_queue.front()), [self = shared_from_this()](error_code error, auto) {
                self->m_writing = false;
                self->m_queue.pop_front();
                if (!error)
                    self->next();
            });
        } else if (m_closing) {
            m_writing = true;
            m_stream.async_close(
                m_reason, [self = shared_from_this()](error_code) { hangUp(beast::get_lowest_layer(self->m_stream)); });
        }
    }

    void read()
    {
        m_stream.async_read(m_buffer, [self = shared_from_this()](error_code error, auto) {
            if (error)
                return self->closed(error);
            self->m_server.handler.socketTexted(self->m_number, beast::buffers_to_string(self->m_buffer.data()));
            self->m_buffer.consume(self->m_buffer.size());
            self->read();
        });
    }

    void closed(error_code error)
    {
        m_server.sockets.erase(m_number);
        const auto &reason = m_stream.reason();
        if (reason.code != 0)
            m_server.handler.socketClosed(m_number, reason.code, std::string(reason.reason.c_str()));
        else
            m_server.handler.socketClosed(m_number, 0, error.message());
    }

    websocket::stream<Stream> m_stream;
    Server::Impl &m_server;
    std::shared_ptr<Place> m_place;
    std::uint64_t m_number;
    http::request<http::string_body> m_request;
    beast::flat_buffer m_buffer;
    std::deque<std::string> m_queue;
    websocket::close_reason m_reason;
    bool m_writing = false;
    bool m_closing = false;
};

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
            // Not at once when accepted: some clients quietly connect again when a connection attempt fails.
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
        m_parser->body_limit(maxBody);
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
        if (websocket::is_upgrade(m_parser->get()))
            return upgrade();
        if (!beast::iequals(m_parser->get()[http::field::expect], "100-continue"))
            return readBody();
        m_out = "HTTP/1.1 100 Continue\r\n\r\n";
        net::async_write(m_stream, net::buffer(m_out), [self = shared_from_this()](error_code error, auto) {
            if (!error)
                self->readBody();
        });
    }

    void readBody()
    {
        http::async_read(m_stream, m_buffer, *m_parser, [self = shared_from_this()](error_code error, auto) {
            if (error)
                return self->readFailed(error);
            self->m_keepAlive = self->m_parser->get().keep_alive();
            self->m_head = self->m_parser->get().method() == http::verb::head;
            self->answer(self->m_server.handler.answer(plainRequest(self->m_parser->get(), self->m_number)));
        });
    }

    void readFailed(error_code error)
    {
        if (error == http::error::end_of_stream)
            return shutDown();
        if (error.category() != make_error_code(http::error::end_of_stream).category() ||
            error == http::error::partial_message)
            return; // the client is gone: nobody to answer
        Answer refusal;
        refusal.keepOpen = false;
        refusal.response.status = error == http::error::body_limit     ? 413
                                  : error == http::error::header_limit ? 431
                                                                       : 400;
        refusal.response.body = R"({"message":"Bad HTTP request: )" + error.message() + "\"}";
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
            std::make_shared<WebSocket>(std::move(self->m_stream), self->m_server, self->m_place, socket)
                ->accept(self->m_parser->release());
        });
    }

    template <typename Work> void after(std::chrono::milliseconds delay, Work work)
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
        case Answer::Ending::Whole:
        case Answer::Ending::CutHead:
        case Answer::Ending::CutBody:
            return write();
        }
    }

    void write()
    {
        const HttpResponse &response = m_answer.response;
        const bool bodiless = response.status == 204 || response.status == 304 || response.status < 200;
        m_keepAlive = m_keepAlive && m_answer.keepOpen;
        m_out = "HTTP/1.1 " + std::to_string(response.status) + ' ' +
                std::string(http::obsolete_reason(http::int_to_status(static_cast<unsigned>(response.status)))) +
                "\r\nServer: velmora-portal\r\n";
        if (!response.body.empty() && !bodiless)
            m_out += "Content-Type: " + response.contentType + "\r\n";
        for (const auto &[name, value] : response.headers)
            m_out += name + ": " + value + "\r\n";
        if (!bodiless)
            m_out += "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
        m_out += m_keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
        const std::size_t head = m_out.size();
        if (!bodiless && !m_head)
            m_out += response.body;
        if (m_answer.ending == Answer::Ending::CutHead)
            m_out.resize(head / 2);
        if (m_answer.ending == Answer::Ending::CutBody)
            m_out.resize(std::min(m_out.size(), head + static_cast<std::size_t>(std::max(m_answer.bytes, 0L))));
        lowest().expires_after(idleTime);
        net::async_write(m_stream, net::buffer(m_out), [self = shared_from_this()](error_code error, auto) {
            if (error)
                return;
            if (self->m_answer.ending != Answer::Ending::Whole)
                hangUp(self->lowest());
            else if (self->m_drain)
                self->drain();
            else if (self->m_keepAlive)
                self->readHead();
            else
                self->shutDown();
        });
    }

    void shutDown()
    {
        lowest().expires_after(closingTime);
        m_stream.async_shutdown([self = shared_from_this()](error_code) { hangUp(self->lowest()); });
    }

    /// Closing on unread input would reset the connection and lose the answer on its way.
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

    /// Keeps the connection without a word until the client gives up.
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
    bool m_used = false;
    bool m_keepAlive = false;
    bool m_head = false;
    bool m_drain = false;
};

void Server::Impl::accept()
{
    acceptor.async_accept([this](error_code error, tcp::socket socket) {
        if (!acceptor.is_open())
            return;
        if (error) { // out of descriptors, most likely: let some go first
            pause.expires_after(std::chrono::milliseconds(50));
            pause.async_wait([this](error_code cancelled) {
                if (!cancelled)
                    accept();
            });
            return;
        }
        if (*connections >= maxConnections) {
            reset(socket);
        } else {
            error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            std::make_shared<Connection>(std::move(socket), *this, ++connectionNumber)->start();
        }
        accept();
    });
}

void Server::Impl::tickLater()
{
    ticker.expires_after(tick);
    ticker.async_wait([this](error_code cancelled) {
        if (cancelled)
            return;
        handler.tick();
        tickLater();
    });
}

Server::Server(std::uint16_t port, const Certificates &certificates, ServerHandler &handler)
try : m_impl(std::make_unique<Impl>(handler, certificates)) {
    const tcp::endpoint endpoint(net::ip::address_v4::loopback(), port);
    m_impl->acceptor.open(endpoint.protocol());
    m_impl->acceptor.set_option(tcp::acceptor::reuse_address(true));
    m_impl->acceptor.bind(endpoint);
    m_impl->acceptor.listen();
    m_impl->port = m_impl->acceptor.local_endpoint().port();
} catch (const boost::system::system_error &error) {
    throw std::runtime_error("Cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + error.code().message());
}

Server::~Server() { stop(); }

std::uint16_t Server::port() const { return m_impl->port; }

void Server::start(std::chrono::milliseconds tick)
{
    m_impl->tick = tick;
    m_impl->accept();
    m_impl->tickLater();
    m_impl->thread = std::thread([this] { m_impl->io.run(); });
}

void Server::stop()
{
    if (!m_impl->thread.joinable())
        return;
    m_impl->io.stop();
    m_impl->thread.join();
}

void Server::call(const std::function<void()> &work)
{
    std::promise<void> done;
    net::post(m_impl->io, [&] {
        try {
            work();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    done.get_future().get();
}

void Server::send(std::uint64_t socket, std::string text)
{
    if (const auto found = m_impl->sockets.find(socket); found != m_impl->sockets.end())
        if (const auto open = found->second.lock())
            open->send(std::move(text));
}

void Server::close(std::uint64_t socket, int code, std::string reason)
{
    if (const auto found = m_impl->sockets.find(socket); found != m_impl->sockets.end())
        if (const auto open = found->second.lock())
            open->close(code, std::move(reason));
}

void Server::drop(std::uint64_t socket)
{
    if (const auto found = m_impl->sockets.find(socket); found != m_impl->sockets.end())
        if (const auto open = found->second.lock())
            open->drop();
}

} // namespace VelmoraPortal
