#include "portal/http/ServerImpl.h"

#include <deque>
#include <optional>

#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

namespace VelmoraPortal {
namespace {

namespace websocket = beast::websocket;

constexpr std::size_t maxQueuedTexts = 10000;

class WebSocket : public OpenSocket, public std::enable_shared_from_this<WebSocket> {
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

    void send(std::string text) override
    {
        if (m_closing || m_queue.size() >= maxQueuedTexts)
            return;
        m_queue.push_back(std::move(text));
        next();
    }

    void close(int code, std::string reason) override
    {
        if (m_closing)
            return;
        m_closing = true;
        m_reason.code = static_cast<std::uint16_t>(code);
        m_reason.reason.assign(reason.data(), std::min<std::size_t>(reason.size(), 123)); // the frame's limit
        next();
    }

    void drop() override { hangUp(beast::get_lowest_layer(m_stream)); }

    void sendRaw(std::string bytes) override
    {
        if (m_closing)
            return;
        m_closing = true;
        m_raw = std::move(bytes);
        next();
    }

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
        } else if (m_raw) {
            m_writing = true; // from now on: nothing may follow
            net::async_write(m_stream.next_layer(), net::buffer(*m_raw),
                             [self = shared_from_this()](error_code, auto) {});
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
    std::optional<std::string> m_raw;
    websocket::close_reason m_reason;
    bool m_writing = false;
    bool m_closing = false;
};

} // namespace

void serveSocket(Stream &&stream, Server::Impl &server, std::shared_ptr<Place> place, std::uint64_t number,
                 http::request<http::string_body> request)
{
    std::make_shared<WebSocket>(std::move(stream), server, std::move(place), number)->accept(std::move(request));
}

} // namespace VelmoraPortal
