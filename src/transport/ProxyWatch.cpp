#include "transport/ProxyWatch.h"

#include "transport/RequestBody.h"

#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTimer>

namespace Velmora {

ProxyWatch::ProxyWatch(QNetworkReply *reply, const RequestBody *body, int interval, std::function<void()> nudge)
    : QObject(reply)
    , m_reply(reply)
    , m_body(body)
    , m_interval(interval)
    , m_nudge(std::move(nudge))
{
    const auto end = [this] { deleteLater(); };
    connect(reply, &QNetworkReply::encrypted, this, end);
    connect(reply, &QNetworkReply::metaDataChanged, this, end);
    connect(&m_socket, &QTcpSocket::connected, this, &ProxyWatch::onSocketEnded);
    connect(&m_socket, &QTcpSocket::errorOccurred, this, &ProxyWatch::onSocketEnded);
    wait();
}

void ProxyWatch::wait() { QTimer::singleShot(m_interval, this, &ProxyWatch::connectByProxy); }

void ProxyWatch::connectByProxy()
{
    const QUrl url = m_reply->url();
    const auto proxies = QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(url)); // may be slow, so not earlier
    const bool hasProxy = !proxies.isEmpty() && proxies.first().type() != QNetworkProxy::NoProxy;
    const bool hasSent = m_body->bytesAvailable() < m_body->size();
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
    wait();
}

} // namespace Velmora
