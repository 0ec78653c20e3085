#include "SocketServer.h"

#ifdef Q_OS_WIN
#include <winsock2.h>
#else
#include <sys/socket.h>
#endif

static int toSocket(std::size_t client) { return static_cast<int>(client) + 1; }

SocketServer::SocketServer()
{
    setHandler([this](const ReceivedRequest &request) { return greet(request); });
}

void SocketServer::incomingConnection(qintptr descriptor)
{
    m_clients.emplace_back();
    ScriptedServer::incomingConnection(descriptor);
}

Answer SocketServer::greet(const ReceivedRequest &request)
{
    if (m_rest && !request.target.startsWith("/socket/"))
        return m_rest(request);
    Client &client = m_clients[std::size_t(request.connection) - 1];
    client.target = request.target;
    client.head = request.head;
    const QByteArray key = request.header("Sec-WebSocket-Key") + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
    client.accepted = m_handshake == Handshake::Accept;
    if (client.accepted)
        return answer(101, {}, {},
                      "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: " +
                          QCryptographicHash::hash(key, QCryptographicHash::Sha1).toBase64() + "\r\n");
    const Answer refusal = answer(401, "{}");
    return m_handshake == Handshake::Ignore           ? silence()
           : m_handshake == Handshake::RefuseAndClose ? refusal.closed()
                                                      : refusal;
}

void SocketServer::upgraded(int connection, const QByteArray &bytes)
{
    Client &client = m_clients[std::size_t(connection) - 1];
    client.unread += bytes;
    constexpr int header = 6; // masked, shorter than 126 bytes: clients send control frames only
    while (client.unread.size() >= header && client.unread.size() >= header + (client.unread[1] & 0x7f)) {
        const int opcode = client.unread[0] & 0x0f;
        QByteArray payload = client.unread.mid(header, client.unread[1] & 0x7f);
        for (int i = 0; i < payload.size(); ++i)
            payload[i] = static_cast<char>(payload[i] ^ client.unread[2 + i % 4]);
        client.unread.remove(0, header + payload.size());
        if (opcode == Ping) {
            client.pings.append(payload);
            write(std::size_t(connection) - 1, Pong, payload);
        } else if (opcode == Close) {
            if (payload.size() >= 2)
                client.closeCode = static_cast<uchar>(payload[0]) << 8 | static_cast<uchar>(payload[1]);
            client.closeReason = payload.mid(2);
            if (QSslSocket *line = socket(connection)) // may have been lost while the pings were answered
                line->disconnectFromHost();
        }
    }
}

void SocketServer::write(std::size_t client, int opcode, const QByteArray &payload, int most, int last)
{
    QSslSocket *to = socket(toSocket(client));
    if (!to)
        return;
    QByteArray length(1, static_cast<char>(payload.size()));
    if (payload.size() > 125) { // 127 announces eight bytes of length
        length.resize(9);
        length[0] = 127;
        qToBigEndian(quint64(payload.size()), length.data() + 1);
    }
    to->write((QByteArray(1, static_cast<char>(last | opcode)) + length + payload).left(most));
    to->flush();
}

void SocketServer::close(std::size_t client, int code, const QByteArray &reason)
{
    const QByteArray number{1, static_cast<char>(code >> 8)};
    write(client, Close, code ? number + static_cast<char>(code) + reason : QByteArray());
}

void SocketServer::drop(std::size_t client, Drop how)
{
    QSslSocket *line = socket(toSocket(client));
    const struct linger reset = {1, 0};
    if (!line)
        return;
    if (how == Drop::Reset)
        ::setsockopt(static_cast<int>(line->socketDescriptor()), SOL_SOCKET, SO_LINGER,
                     reinterpret_cast<const char *>(&reset), sizeof reset);
    line->abort();
}

bool SocketServer::waitForEnd(std::size_t client)
{
    QSslSocket *line = socket(toSocket(client));
    return !line || line->waitForDisconnected(10000);
}
