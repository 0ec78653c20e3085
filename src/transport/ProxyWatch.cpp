#include "transport/ProxyWatch.h"

#include "transport/RequestBody.h"

#include <QNetworkProxy>
#include <QNetworkReply>

namespace Velmora {

ProxyWatch::ProxyWatch(QNetworkReply *reply, const RequestBody *body, int interval, std::function<void()> nudge)
    : QObject(reply)
    , m_reply(reply)
    , m_body(body)
    , m_nudge(std::move(nudge))
{
    const auto end = [this] { deleteLater(); };
    connect(reply, &QNetworkReply::encrypted, this, end);
    connect(reply, &QNetworkReply::metaDataChanged, this, end);
    connect(reply, &QNetworkReply::finished, this, end);
    connect(&m_timer, &QTimer::timeout, this, &ProxyWatch::connectByProxy);
    connect(&m_socket, &QTcpSocket::connected, this, &ProxyWatch::onSocketEnded);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, &ProxyWatch::onSocketEnded);
    m_timer.setInterval(interval);
    m_timer.setSingleShot(true);
    m_timer.start();
}

void ProxyWatch::connectByProxy()
{
    const QUrl url = m_reply->url();
    const auto proxies = QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(url)); // may be slow, so not earlier
    const bool hasProxy = !proxies.isEmpty() && proxies.first().type() != QNetworkProxy::NoProxy;
    const bool hasSent = m_body->size() > 0 && m_body->bytesAvailable() < m_body->size();
    if (!hasProxy || hasSent)
        return deleteLater();
    m_socket.setProxy(proxies.first());
    m_socket.connectToHost(url.host(), static_cast<quint16>(url.port(443)));
}

void ProxyWatch::onSocketEnded()
{
    if (m_socket.error() == QAbstractSocket::ProxyConnectionClosedError) {
        QMetaObject::invokeMethod(m_reply, &QNetworkReply::abort, Qt::QueuedConnection);
        return deleteLater();
    }
    QMetaObject::invokeMethod(&m_socket, &QTcpSocket::abort, Qt::QueuedConnection);
    m_nudge();
    m_timer.start();
}

} // namespace Velmora
