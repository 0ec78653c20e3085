#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// A secure WebSocket server of another make (Boost.Beast) on loopback, on a thread of its own. It does
/// to its clients what a test dictates and remembers what they sent. Its certificate is signed by an
/// authority that nobody trusts. Clients are numbered from 0 in the order of their connections.
///
/// Whatever happens here wakes the event loop of the thread that made the server, so that `waitUntil`
/// looks again.
class SocketServer {
public:
    /// What is done with connections to come.
    enum class Handshake {
        Accept,
        RefuseAndClose,    ///< 401, then the connection ends
        RefuseAndKeepOpen, ///< 401, and the connection stays
        Ignore,            ///< TLS and no answer to the request
        Silence,           ///< not even TLS
    };
    enum class Drop { Reset, Finish };

    struct Client {
        std::string target;
        std::vector<std::string> authorization; ///< every header of that name
        std::vector<std::string> pings;         ///< payloads
        int closeCode = 0;                      ///< of its close frame
        std::string closeReason;
        bool accepted = false;
        bool gone = false; ///< its connection has ended
    };

    SocketServer();
    ~SocketServer();
    SocketServer(const SocketServer &) = delete;
    SocketServer &operator=(const SocketServer &) = delete;

    std::string host() const; ///< "127.0.0.1:PORT"
    void setHandshake(Handshake handshake);
    std::vector<Client> clients() const;

    /// Returns when the frame is on its way.
    void send(std::size_t client, const std::string &text);
    /// Starts the closing handshake; code 0 sends a close frame without code.
    void close(std::size_t client, int code, const std::string &reason = {});
    /// Ends the connection without a close frame.
    void drop(std::size_t client, Drop how);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};
