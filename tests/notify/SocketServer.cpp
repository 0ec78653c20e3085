#include "SocketServer.h"

#include "Certificates.h"

#include <QAbstractEventDispatcher>

#include <future>
#include <mutex>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

namespace beast = boost::beast;
namespace net = boost::asio;
namespace websocket = beast::websocket;
using beast::error_code;
using net::ip::tcp;

namespace {

using Tls = net::ssl::stream<tcp::socket>;

/// TLS that keeps what it read: Beast discards close frames with a reserved code such as 1015.
struct Tap {
    using next_layer_type = Tls;
    using executor_type = Tls::executor_type;

    Tap(tcp::socket &&socket, net::ssl::context &context)
        : tls(std::move(socket), context)
    {
    }

    executor_type get_executor() { return tls.get_executor(); }
    Tls &next_layer() { return tls; }
    const Tls &next_layer() const { return tls; }

    template <class Buffers, class Handler> void async_read_some(const Buffers &buffers, Handler &&handler)
    {
        tls.async_read_some(buffers, [this, buffers, handler = std::forward<Handler>(handler)](error_code error,
                                                                                               std::size_t n) mutable {
            seen += beast::buffers_to_string(beast::buffers_prefix(n, buffers));
            handler(error, n);
        });
    }
    template <class Buffers, class Handler> void async_write_some(const Buffers &buffers, Handler &&handler)
    {
        tls.async_write_some(buffers, std::forward<Handler>(handler));
    }

    Tls tls;
    std::string seen;
};

template <class Handler> void async_teardown(beast::role_type role, Tap &tap, Handler &&handler)
{
    using beast::websocket::async_teardown;
    async_teardown(role, tap.tls, std::forward<Handler>(handler));
}

} // namespace

struct SocketServer::Impl {
    class Session;

    void accept();
    Session &session(std::size_t client) { return *sessions.at(client); }
    /// Runs the work on the server's thread and waits for it.
    template <class Work> void call(Work work)
    {
        std::packaged_task<void()> task(work);
        std::future<void> done = task.get_future();
        net::post(io, std::move(task));
        done.get();
    }

    net::io_context io{1};
    net::ssl::context tls{net::ssl::context::tls_server};
    tcp::acceptor acceptor{io, tcp::endpoint(net::ip::address_v4::loopback(), 0)};
    Handshake handshake = Handshake::Accept;
    std::mutex mutex; ///< of the sessions, and of what they have seen
    std::vector<std::shared_ptr<Session>> sessions;
    QAbstractEventDispatcher *tests = QAbstractEventDispatcher::instance();
    std::thread thread;
};

class SocketServer::Impl::Session : public std::enable_shared_from_this<Session> {
public:
    Session(tcp::socket &&socket, Impl &server)
        : m_socket(std::move(socket), server.tls)
        , m_server(server)
    {
    }

    void start()
    {
        tls().async_handshake(Tls::server, [self = shared_from_this()](error_code error) {
            if (error)
                return self->note([](Client &client) { client.gone = true; });
            beast::http::async_read(self->tls(), self->m_buffer, self->m_request,
                                    [self](error_code failed, std::size_t) {
                                        if (failed)
                                            return self->note([](Client &client) { client.gone = true; });
                                        self->requested();
                                    });
        });
    }

    /// Reads what comes without a word, until the client ends the connection.
    template <class Stream> void discard(Stream &stream)
    {
        stream.async_read_some(m_buffer.prepare(512),
                               [self = shared_from_this(), &stream](error_code error, std::size_t) {
                                   if (!error)
                                       return self->discard(stream);
                                   self->note([](Client &client) { client.gone = true; });
                               });
    }
    void keepSilent() { discard(line()); }

    std::future<void> send(const std::string &text)
    {
        m_text = text;
        std::promise<void> done;
        std::future<void> sent = done.get_future();
        m_socket.async_write(net::buffer(m_text), [self = shared_from_this(), done = std::move(done)](
                                                      error_code, std::size_t) mutable { done.set_value(); });
        return sent;
    }

    void close(int code, const std::string &reason)
    {
        websocket::close_reason closing(static_cast<websocket::close_code>(code), reason); // 0 is Beast's "none"
        m_socket.async_close(closing, [self = shared_from_this()](error_code) {});
    }

    void drop(Drop how)
    {
        error_code ignored;
        if (how == Drop::Reset)
            line().set_option(net::socket_base::linger(true, 0), ignored);
        line().close(ignored);
    }

    Client seen; ///< changed by `note` only

private:
    Tls &tls() { return m_socket.next_layer().tls; }
    tcp::socket &line() { return beast::get_lowest_layer(m_socket); }

    template <class Change> void note(Change change)
    {
        {
            const std::lock_guard<std::mutex> lock(m_server.mutex);
            change(seen);
        }
        m_server.tests->wakeUp();
    }

    void requested()
    {
        note([this](Client &client) {
            client.target = std::string(m_request.target());
            const auto range = m_request.equal_range("Authorization");
            for (auto header = range.first; header != range.second; ++header)
                client.authorization.emplace_back(header->value());
        });
        if (m_server.handshake == Handshake::Ignore)
            return discard(tls());
        if (m_server.handshake != Handshake::Accept)
            return refuse(m_server.handshake == Handshake::RefuseAndKeepOpen);
        m_socket.control_callback([this](websocket::frame_type type, beast::string_view payload) {
            if (type == websocket::frame_type::ping)
                note([payload](Client &client) { client.pings.emplace_back(payload); });
        });
        m_socket.async_accept(m_request, [self = shared_from_this()](error_code error) {
            self->note([error](Client &client) { client.accepted = !error; });
            self->read();
        });
    }

    void refuse(bool keepOpen)
    {
        m_text = "HTTP/1.1 401 Unauthorized\r\nContent-Type: application/json\r\nContent-Length: 2\r\n";
        m_text += keepOpen ? "\r\n{}" : "Connection: close\r\n\r\n{}";
        net::async_write(tls(), net::buffer(m_text), [self = shared_from_this(), keepOpen](error_code, std::size_t) {
            if (!keepOpen)
                self->drop(Drop::Finish);
            self->discard(self->tls());
        });
    }

    void read()
    {
        m_socket.async_read(m_buffer, [self = shared_from_this()](error_code error, std::size_t) {
            if (!error)
                return self->read();
            self->drop(Drop::Finish);
            self->note([&](Client &client) {
                self->findCloseFrame(client);
                client.gone = true;
            });
        });
    }

    void findCloseFrame(Client &client) const
    {
        const std::string &bytes = m_socket.next_layer().seen;
        const auto byte = [&bytes](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
        constexpr std::size_t header = 6; // masked, shorter than 126 bytes: clients send control frames only
        for (std::size_t at = 0; at + header <= bytes.size(); at += header + (byte(at + 1) & 0x7f)) {
            if ((byte(at) & 0x0f) != 8)
                continue;
            std::string payload = bytes.substr(at + header, byte(at + 1) & 0x7f);
            for (std::size_t i = 0; i < payload.size(); ++i)
                payload[i] = static_cast<char>(payload[i] ^ bytes[at + 2 + i % 4]);
            if (payload.size() < 2)
                continue;
            client.closeCode = static_cast<unsigned char>(payload[0]) << 8 | static_cast<unsigned char>(payload[1]);
            client.closeReason = payload.substr(2);
        }
    }

    websocket::stream<Tap> m_socket;
    Impl &m_server;
    beast::flat_buffer m_buffer;
    beast::http::request<beast::http::empty_body> m_request;
    std::string m_text;
};

void SocketServer::Impl::accept()
{
    acceptor.async_accept([this](error_code error, tcp::socket socket) {
        if (error)
            return;
        const auto session = std::make_shared<Session>(std::move(socket), *this);
        if (handshake == Handshake::Silence)
            session->keepSilent();
        else
            session->start();
        {
            const std::lock_guard<std::mutex> lock(mutex);
            sessions.push_back(session);
        }
        tests->wakeUp();
        accept();
    });
}

SocketServer::SocketServer()
    : m_impl(std::make_unique<Impl>())
{
    const VelmoraPortal::Certificates certificates = VelmoraPortal::makeCertificates();
    m_impl->tls.use_certificate_chain(net::buffer(certificates.certPem));
    m_impl->tls.use_private_key(net::buffer(certificates.keyPem), net::ssl::context::pem);
    m_impl->accept();
    m_impl->thread = std::thread([this] { m_impl->io.run(); });
}

SocketServer::~SocketServer()
{
    m_impl->io.stop();
    m_impl->thread.join();
}

std::string SocketServer::host() const
{
    return "127.0.0.1:" + std::to_string(m_impl->acceptor.local_endpoint().port());
}

void SocketServer::setHandshake(Handshake handshake)
{
    m_impl->call([&] { m_impl->handshake = handshake; });
}

std::vector<SocketServer::Client> SocketServer::clients() const
{
    const std::lock_guard<std::mutex> lock(m_impl->mutex);
    std::vector<Client> copy;
    for (const auto &session : m_impl->sessions)
        copy.push_back(session->seen);
    return copy;
}

void SocketServer::send(std::size_t client, const std::string &text)
{
    std::future<void> sent;
    m_impl->call([&] { sent = m_impl->session(client).send(text); });
    sent.get();
}

void SocketServer::close(std::size_t client, int code, const std::string &reason)
{
    m_impl->call([&] { m_impl->session(client).close(code, reason); });
}

void SocketServer::drop(std::size_t client, Drop how)
{
    m_impl->call([&] { m_impl->session(client).drop(how); });
}
