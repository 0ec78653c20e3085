#pragma once

// A proxy on loopback, SOCKS5 or HTTP with tunnels, that asks for the user "ada" with the password "p:w". It connects
// to this machine whatever host it is asked for.

#include "support/Loopback.h"

class ProxyServer : public QTcpServer {
public:
    /// @param closing  so many connections end before they are answered
    explicit ProxyServer(bool socks, int closing = 0);

    const QByteArrayList &asked() const { return m_asked; } ///< "host:port" of every tunnel
    int connections() const { return m_connections; }

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    void readSocks(QTcpSocket *client);
    void readHttp(QTcpSocket *client);
    void tunnel(QTcpSocket *client, const QByteArray &host, int port, const QByteArray &accepted);

    const bool m_socks;
    const int m_closing;
    int m_connections = 0;
    QByteArrayList m_asked;
};

/// The application's proxy meanwhile. The service has a name of its own, as Qt uses no proxy for a loopback address,
/// and a certificate of any name.
struct ApplicationProxy : ProxyServer {
    ApplicationProxy(int port, bool socks, int closing = 0, const char *password = "p:w")
        : ProxyServer(socks, closing)
        , address("VELMORA_API_URL", "portal.velmora.example:" + QByteArray::number(port))
    {
        QNetworkProxy::setApplicationProxy({socks ? QNetworkProxy::Socks5Proxy : QNetworkProxy::HttpProxy,
                                            QStringLiteral("127.0.0.1"), serverPort(), QStringLiteral("ada"),
                                            QLatin1String(password)});
    }
    ~ApplicationProxy() override { QNetworkProxy::setApplicationProxy(before); }

    const QNetworkProxy before = QNetworkProxy::applicationProxy();
    const ScopedTrust anyServer{{}, QSslSocket::VerifyNone};
    const ScopedEnvironment address;
};
