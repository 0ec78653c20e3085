#include "notify/SocketManager.h"

#include "base/Log.h"
#include "base/Portal.h"
#include "notify/CloudWebSocketClient.h"
#include "notify/SocketConnection.h"

#include <QUrl>

namespace Velmora {

// Not left to QObject: what a callback holds may unsubscribe when it goes, and finds the connections still here.
SocketManager::~SocketManager() { unsubscribeFromAll(); }

void SocketManager::unsubscribeFromAll()
{
    const QStringList jobs = m_connections.keys();
    for (const QString &jobId : jobs)
        unsubscribeFromJob(jobId);
}

void SocketManager::subscribeToJob(const QString &jobId, const QString &cognitoToken, const JobMessage &onMessage,
                                   const JobMessage &onFinished)
{
    logForeignThread(this);
    unsubscribeFromJob(jobId);
    if (!m_heartbeat) {
        m_heartbeat = std::make_unique<QTimer>(this);
        m_heartbeat->setObjectName(QStringLiteral("heartbeat"));
        connect(m_heartbeat.get(), &QTimer::timeout, this, &SocketManager::beat);
        m_heartbeat->start(heartbeatInterval);
    }
    const QUrl url(QStringLiteral("wss://%1/socket/job/progress/%2").arg(portalHost(m_portal), jobId));
    auto *connection = new SocketConnection(
        jobId, std::make_unique<CloudWebSocketClient>(url, cognitoToken, m_isClosed, m_authorities), onMessage,
        onFinished);
    connect(connection, &SocketConnection::signalDisconnectSocket, this, &SocketManager::unsubscribeFromJob,
            Qt::UniqueConnection);
    connect(this, &SocketManager::cognitoTokenUpdated, connection, &SocketConnection::slotUpdateCognitoToken,
            Qt::UniqueConnection);
    connection->setParent(this);
    connection->setObjectName(jobId);
    m_connections.insert(jobId, connection);
}

void SocketManager::unsubscribeFromJob(const QString &jobId)
{
    SocketConnection *const connection = m_connections.take(jobId); // null: there is none
    if (m_connections.isEmpty())
        m_heartbeat.reset();
    delete connection;
}

void SocketManager::openGate()
{
    for (SocketConnection *connection : qAsConst(m_connections))
        connection->client()->slotOpen();
}

void SocketManager::beat()
{
    for (SocketConnection *connection : qAsConst(m_connections))
        connection->client()->slotPingSocket();
}

} // namespace Velmora
