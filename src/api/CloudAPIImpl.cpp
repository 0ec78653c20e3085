#include "api/CloudAPIImpl.h"

#include "notify/SocketManager.h"
#include "transport/Pipeline.h"

#include <QDateTime>
#include <QEventLoop>
#include <QNetworkProxy>

namespace Velmora {

CloudAPIImpl::CloudAPIImpl()
    : m_transfers(std::make_unique<FileTransferManager>())
    , m_sockets(std::make_unique<SocketManager>())
    , m_network(std::make_unique<QNetworkAccessManager>())
    , m_clock(QDateTime::currentMSecsSinceEpoch)
{
    m_readerPool.setMaxThreadCount(1);
    connectTransfers();
    connect(m_network.get(), &QNetworkAccessManager::finished, this, &CloudAPIImpl::onRequestFinished,
            Qt::DirectConnection);
}

CloudAPIImpl::~CloudAPIImpl()
{
    m_network.reset(); // drops the requests in flight, without their completions
    m_refreshTimer.reset();
    m_readers.clear();
    m_transfers.reset();
    m_sockets.reset();
}

void CloudAPIImpl::applyProxy(const ProxyDefinition &definition)
{
    enum Kind { Socks5, Http, System };
    switch (definition.proxyType) {
    case Socks5:
    case Http:
        QNetworkProxy::setApplicationProxy(
            {definition.proxyType == Http ? QNetworkProxy::HttpProxy : QNetworkProxy::Socks5Proxy,
             toQt(definition.proxyHost), static_cast<quint16>(definition.proxyPort), toQt(definition.proxyUser),
             toQt(definition.proxyPassword)});
        break;
    case System:
        QNetworkProxyFactory::setUseSystemConfiguration(true);
        break;
    default:
        break;
    }
}

void CloudAPIImpl::setAPIPortal(PortalTarget portal)
{
    m_portal = portal;
    m_sockets->setAPIPortal(portal);
}

int CloudAPIImpl::currentNetworkStatus()
{
    const PumpScope pumping;
    const QPointer<QNetworkReply> reply = sendGet(QNetworkRequest(QUrl(baseUrl())));
    QEventLoop loop;
    connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    connect(reply, &QObject::destroyed, &loop, &QEventLoop::quit); // this object was destroyed by a callback
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    if (!reply)
        return -1;
    const int status = reply->bytesAvailable() != 0 ? 1 : -1;
    if (!reply->isFinished()) // the application is quitting, so the loop did not wait
        reply->abort();
    reply->deleteLater();
    return status;
}

void CloudAPIImpl::subscribeToJob(const std::string &jobId, const CloudAPI::JobMessage &onMessage,
                                  const CloudAPI::JobMessage &onFinished)
{
    m_sockets->subscribeToJob(toQt(jobId), m_idToken, onMessage, onFinished);
}

void CloudAPIImpl::unsubscribeFromJob(const std::string &jobId) { m_sockets->unsubscribeFromJob(toQt(jobId)); }

} // namespace Velmora
