#pragma once

#include <QTcpSocket>

#include <functional>

class QNetworkReply;

namespace Velmora {

class RequestBody;

/// Ends a request whose proxy closed the connection before it answered. Qt 5.15 forgets such a request: the reply emits
/// nothing any more. A socket of Qt does report it. So a request that shows no sign of life for a while is watched:
///
///     no sign ── `interval` ─▶ a socket through the same proxy ┬─ closed by the proxy ─▶ the reply is aborted
///        ▲                                                     └─ anything else ─▶ `nudge`, and the wait starts again
///
/// A slow service is no reason to abort: the connection, or a byte of the body that was taken, is a sign of life.
class ProxyWatch : public QObject {
public:
    /// Owned by the reply.
    /// @param nudge  makes the network layer look for forgotten requests
    ProxyWatch(QNetworkReply *reply, const RequestBody *body, int interval, std::function<void()> nudge);

private:
    void wait();
    void connectByProxy();
    void onSocketEnded();

    QNetworkReply *m_reply;
    const RequestBody *m_body;
    const int m_interval;
    std::function<void()> m_nudge;
    QTcpSocket m_socket;
};

} // namespace Velmora
