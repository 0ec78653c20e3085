#include "support/ProxyServer.h"

ProxyServer::ProxyServer(bool socks, int closing)
    : m_socks(socks)
    , m_closing(closing)
{
    if (!listen(QHostAddress::LocalHost))
        qFatal("no loopback port: %s", qPrintable(errorString()));
}

void ProxyServer::incomingConnection(qintptr descriptor)
{
    auto *const client = new QTcpSocket(this);
    client->setSocketDescriptor(descriptor);
    const bool closes = ++m_connections <= m_closing;
    connect(client, &QTcpSocket::readyRead, client, [this, client, closes] {
        if (closes)
            return client->close();
        if (client->property("tunnel").toBool())
            return;
        m_socks ? readSocks(client) : readHttp(client);
    });
}

// Method, then user and password, then the target by its name.
void ProxyServer::readSocks(QTcpSocket *client)
{
    const QByteArray message = client->readAll();
    const int step = client->property("step").toInt();
    client->setProperty("step", step + 1);
    if (step == 0) {
        client->write(message.mid(2).contains('\2') ? QByteArray("\5\2", 2) : QByteArray("\5\377", 2));
    } else if (step == 1) {
        client->write(message == QByteArray("\1\3ada\3p:w") ? QByteArray("\1\0", 2) : QByteArray("\1\1", 2));
    } else {
        const bool byName = message.at(3) == 3;
        const int length = byName ? message.at(4) : 4;
        const QByteArray host = byName ? message.mid(5, length) : QByteArray("an address");
        const int port = static_cast<uchar>(message.at(message.size() - 2)) * 256 +
                         static_cast<uchar>(message.at(message.size() - 1));
        tunnel(client, host, port, QByteArray("\5\0\0\1\0\0\0\0\0\0", 10));
    }
}

void ProxyServer::readHttp(QTcpSocket *client)
{
    const QByteArray head = client->readAll();
    const QByteArray target = head.split(' ').value(1);
    if (!head.contains("\r\nProxy-Authorization: Basic " + QByteArray("ada:p:w").toBase64()))
        client->write("HTTP/1.1 407 No\r\nProxy-Authenticate: Basic realm=\"r\"\r\nContent-Length: 0\r\n\r\n");
    else if (!head.startsWith("CONNECT "))
        client->write("HTTP/1.1 403 No\r\nContent-Length: 0\r\n\r\n");
    else
        tunnel(client, target.split(':').value(0), target.split(':').value(1).toInt(), "HTTP/1.1 200 Yes\r\n\r\n");
}

void ProxyServer::tunnel(QTcpSocket *client, const QByteArray &host, int port, const QByteArray &accepted)
{
    m_asked.append(host + ':' + QByteArray::number(port));
    client->setProperty("tunnel", true);
    auto *const server = new QTcpSocket(client);
    server->setProxy(QNetworkProxy::NoProxy);
    connect(server, &QTcpSocket::connected, client, [=] { client->write(accepted); });
    connect(client, &QTcpSocket::readyRead, server, [=] { server->write(client->readAll()); });
    connect(server, &QTcpSocket::readyRead, client, [=] { client->write(server->readAll()); });
    connect(server, &QTcpSocket::disconnected, client, [=] { client->disconnectFromHost(); });
    connect(client, &QTcpSocket::disconnected, server, [=] { server->disconnectFromHost(); });
    server->connectToHost(QHostAddress(QHostAddress::LocalHost), static_cast<quint16>(port));
}
