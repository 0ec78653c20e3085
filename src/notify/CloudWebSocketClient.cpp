#include "notify/CloudWebSocketClient.h"

#include "base/Log.h"
#include "base/UserAgent.h"

#include <QNetworkRequest>
#include <QPointer>
#include <QSslSocket>
#include <QWebSocket>

namespace {

constexpr int pingsBeforeRestart = 4;
constexpr quint64 longestMessage =
    16 * 1024 * 1024; // bytes; the connection accepts any certificate, so memory is limited
[[maybe_unused]] constexpr qint64 mostEncrypted = 128 * 1024; // bytes
// A private marker of our own restart; no peer sends it.
constexpr auto restartCode = QWebSocketProtocol::CloseCode(1015);

} // namespace

CloudWebSocketClient::CloudWebSocketClient(const QUrl &url, const QString &cognitoToken, Gate isClosed,
                                           const Velmora::Authorities &authorities)
    : m_isClosed(std::move(isClosed))
    , m_authorities(authorities)
    , m_url(url)
    , m_cognitoToken(cognitoToken)
{
    openSocket();
    VELMORA_LOG() << "web-socket url" << m_url.toString();
}

void CloudWebSocketClient::openSocket()
{
    m_waits = m_isClosed && m_isClosed();
    if (m_waits)
        return;
    m_socket = new QWebSocket(QString(), QWebSocketProtocol::Version13, this);
    connect(m_socket, &QWebSocket::connected, this, &CloudWebSocketClient::onConnected);
    connect(m_socket, &QWebSocket::disconnected, this, &CloudWebSocketClient::onDisconnected);
    connect(m_socket, &QWebSocket::sslErrors, this, &CloudWebSocketClient::onSslErrors);
    // A refused handshake whose connection the server keeps open emits an error and nothing else, possibly inside
    // open(). The check therefore runs from the event loop.
    connect(m_socket, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this,
            [this, socket = QPointer<QWebSocket>(m_socket)] {
                const auto check = [this, socket] {
                    if (socket && socket == m_socket && !socket->isValid())
                        onOpeningFailed();
                };
                QMetaObject::invokeMethod(this, check, Qt::QueuedConnection);
            });
    m_socket->setMaxAllowedIncomingFrameSize(longestMessage);
    m_socket->setMaxAllowedIncomingMessageSize(longestMessage);
    QNetworkRequest request(m_url);
    request.setRawHeader("Authorization", m_cognitoToken.toUtf8());
    request.setRawHeader("User-Agent", Velmora::userAgent);
    if (!m_authorities.isEmpty())
        m_socket->setSslConfiguration(m_authorities.configuration());
    QWebSocket *const socket = m_socket; // open() may fail at once
    socket->open(request);
#if QT_VERSION_MAJOR >= 6
    // After a message that is too long, version 6.4 closes once more inside itself for each 4 KiB that have arrived.
    for (auto *connection : socket->findChildren<QTcpSocket *>()) {
        if (!qobject_cast<QSslSocket *>(connection)) // it is what the encrypted bytes come from
            connection->setReadBufferSize(mostEncrypted);
    }
#endif
}

void CloudWebSocketClient::retireSocket()
{
    m_socket->disconnect(this);
    m_socket->deleteLater();
    m_socket = nullptr;
}

void CloudWebSocketClient::slotUpdateCognitoToken(const QString &_cognitoToken) { m_cognitoToken = _cognitoToken; }

void CloudWebSocketClient::slotPingSocket()
{
    if (!m_socket)
        return;
    const bool open = m_socket->isValid();
    if (open)
        m_socket->ping("hello");
    VELMORA_LOG() << "ping socket";
    if (++m_pingsWithoutMessage < pingsBeforeRestart)
        return;
    if (open)
        m_socket->close(restartCode, QStringLiteral("rebooting"));
    else // the handshake is not answered
        onOpeningFailed();
}

void CloudWebSocketClient::slotOpen()
{
    if (m_waits)
        openSocket();
}

void CloudWebSocketClient::onConnected()
{
    connect(m_socket, &QWebSocket::textMessageReceived, this, &CloudWebSocketClient::onTextMessageReceived,
            Qt::UniqueConnection);
    connect(m_socket, &QWebSocket::aboutToClose, this, &CloudWebSocketClient::onClose, Qt::UniqueConnection);
}

void CloudWebSocketClient::onTextMessageReceived(const QString &message)
{
    Q_EMIT signalMessageReceived(message);
    m_pingsWithoutMessage = 0;
    m_closeHandled = false;
}

void CloudWebSocketClient::onClose()
{
    const int code = m_socket->closeCode();
    const QString reason = m_socket->closeReason();
    if (m_closeHandled) {
        VELMORA_LOG() << "close event after socket is already closed";
        VELMORA_LOG() << "code:" << code;
        VELMORA_LOG() << "reason:" << reason;
        return;
    }
    m_closeHandled = true;
    if (code == restartCode) {
        VELMORA_LOG() << "4 pings (100s) without a message - restarting";
        retireSocket();
        m_pingsWithoutMessage = 0;
        openSocket();
    } else if (code == QWebSocketProtocol::CloseCodeNormal && !reason.isEmpty()) {
        VELMORA_LOG() << "successful socket closure";
        VELMORA_LOG() << "close reason:" << reason;
        retireSocket();
        Q_EMIT signalMessageReceived(reason);
    } else {
        VELMORA_LOG() << "abnormal closure";
        VELMORA_LOG() << "code:" << code;
        VELMORA_LOG() << "reason:" << reason;
        retireSocket();
        Q_EMIT signalMessageReceived(QStringLiteral("abnormal closure %1 %2").arg(reason, QString::number(code)));
    }
}

void CloudWebSocketClient::onDisconnected()
{
    retireSocket();
    // Without a network, open() itself ends here, and so does the constructor: nobody listens yet.
    QMetaObject::invokeMethod(this, "signalMessageReceived", Qt::QueuedConnection,
                              Q_ARG(QString, QStringLiteral("socket disconnected")));
}

void CloudWebSocketClient::onOpeningFailed() { onDisconnected(); }

void CloudWebSocketClient::onSslErrors(const QList<QSslError> &) { m_socket->ignoreSslErrors(); }
