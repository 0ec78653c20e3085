#pragma once

#include "support/ScriptedServer.h"

/// A secure WebSocket server, independent of the client and the portal, frame by frame. It does to its clients what a
/// test dictates and records what they sent. Clients are numbered from 0 in the order of their connections.
class SocketServer : public ScriptedServer {
public:
    /// What happens to the next connections: they are accepted, refused (401) or not answered.
    enum class Handshake { Accept, RefuseAndClose, RefuseAndKeepOpen, Ignore };
    enum class Drop { Reset, Finish };
    enum Opcode { Rest, Text, Close = 8, Ping, Pong, Last = 0x80 };

    struct Client {
        QByteArray target, head; ///< of the handshake
        QByteArray header(const char *name) const { return ReceivedRequest{0, {}, {}, head, {}}.header(name); }
        QByteArrayList pings; ///< payloads
        int closeCode = 0;    ///< of its close frame
        QByteArray closeReason;
        bool accepted = false, gone = false; ///< its handshake was; its connection has ended
        QByteArray unread;                   ///< less than a frame
    };

    SocketServer();

    void setHandshake(Handshake handshake) { m_handshake = handshake; }
    /// For the requests that are no handshakes; their connections are numbered among the clients all the same.
    void setRest(Handler rest) { m_rest = std::move(rest); }
    const std::vector<Client> &clients() const { return m_clients; }

    void send(std::size_t client, const QByteArray &text) { write(client, Text, text); }
    /// A frame, or so many bytes of it; one that is not the last of its message without `Last`.
    void write(std::size_t client, int opcode, const QByteArray &payload, int most = INT_MAX, int last = Last);
    /// Starts the closing handshake; code 0 sends a close frame without code.
    void close(std::size_t client, int code, const QByteArray &reason = {});
    void drop(std::size_t client, Drop how); ///< without a close frame
    bool waitForEnd(std::size_t client);     ///< without handling any other event

protected:
    void incomingConnection(qintptr descriptor) override;
    void upgraded(int connection, const QByteArray &bytes) override;
    void ended(int connection) override { m_clients[std::size_t(connection) - 1].gone = true; }

private:
    Answer greet(const ReceivedRequest &request);

    Handshake m_handshake = Handshake::Accept;
    Handler m_rest;
    std::vector<Client> m_clients;
};
