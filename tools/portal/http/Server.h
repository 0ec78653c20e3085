#pragma once

#include "portal/http/Certificates.h"
#include "portal/http/Http.h"

#include <functional>
#include <memory>
#include <optional>

namespace VelmoraPortal {

/// Implemented by the server's owner. The server calls all members on its thread, and only while it exists.
/// The number of a socket is never used twice.
class ServerHandler {
public:
    virtual ~ServerHandler() = default;

    /// True resets the connection. Called after the TLS handshake, and again when the head of each further request
    /// on the connection was read.
    virtual bool resetsConnection() = 0;
    virtual Answer answer(const HttpRequest &request) = 0;
    /// Takes the body of this request while it arrives; null: the body is collected for `answer`.
    virtual std::unique_ptr<BodySink> sink(const HttpRequest &head) = 0;

    /// The handshake of a socket: no value accepts it, an answer refuses it. `delay` delays it.
    virtual std::optional<Answer> refusal(const HttpRequest &request, std::uint64_t socket,
                                          std::chrono::milliseconds &delay) = 0;
    virtual void socketOpened(std::uint64_t socket) = 0;
    virtual void socketPinged(std::uint64_t socket, std::string payload) = 0;
    virtual void socketTexted(std::uint64_t socket, std::string text) = 0;
    /// The last call for an accepted socket, whoever closed it; code 0 means without a close frame.
    virtual void socketClosed(std::uint64_t socket, int code, std::string reason) = 0;
    virtual void tick() = 0;
};

/// HTTPS and secure WebSocket on one port of the loopback interface, on one thread of its own, however
/// many clients there are. Does not know the service.
class Server {
public:
    /// Listens at once, serves from `start`. Port 0 takes a free one. Throws std::runtime_error when the
    /// port is taken.
    Server(std::uint16_t port, const Certificates &certificates, ServerHandler &handler);
    /// Closes every connection and ends the thread.
    ~Server();

    std::uint16_t port() const;
    void start(std::chrono::milliseconds tick);
    /// Ends the thread; the handler is not called again.
    void stop();

    /// Runs `work` on the server's thread and returns when it has run.
    void call(const std::function<void()> &work);

    /// On the server's thread only; unknown sockets are ignored.
    void send(std::uint64_t socket, std::string text);
    /// Closes with a close frame, after all queued texts.
    void close(std::uint64_t socket, int code, std::string reason);
    /// Closes the connection without a close frame.
    void drop(std::uint64_t socket);
    /// Sends bytes unchanged, after all queued texts; nothing can be sent after them.
    void sendRaw(std::uint64_t socket, std::string bytes);

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};

} // namespace VelmoraPortal
