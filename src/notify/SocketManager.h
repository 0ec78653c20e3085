#pragma once

#include "base/Authorities.h"

#include <velmora/Callbacks.h>
#include <velmora/ClientOptions.h>

#include <QMap>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

namespace Velmora {

class SocketConnection;

/// One socket per subscribed job, and one heartbeat for all of them, which beats only while a job is
/// subscribed. Tests find the heartbeat and the connections among this object's children, by "heartbeat" and by job id.
class SocketManager : public QObject {
    Q_OBJECT
public:
    static constexpr int heartbeatInterval = 25000; ///< milliseconds

    ~SocketManager() override;

    void setOptions(const ClientOptions &options) { m_authorities = Authorities::read(options.caFile); }
    /// Asked before each opening of a connection: whether it has to wait for `openGate`.
    void setGate(std::function<bool()> isClosed) { m_isClosed = std::move(isClosed); }
    /// Opens the connections that wait.
    void openGate();
    void setAPIPortal(PortalTarget portal) { m_portal = portal; }
    /// Ends an earlier subscription of the job first.
    void subscribeToJob(const QString &jobId, const QString &cognitoToken, const JobMessage &onMessage,
                        const JobMessage &onFinished);
    void unsubscribeFromJob(const QString &jobId);
    void unsubscribeFromAll();
    /// Hands a new token to every connection, for its next reopening.
    void updateCognitoToken(const QString &cognitoToken) { Q_EMIT cognitoTokenUpdated(cognitoToken); }

Q_SIGNALS:
    void cognitoTokenUpdated(const QString &_cognitoToken);
    void sendHeartBeat();

private:
    void beat();

    Authorities m_authorities;
    std::function<bool()> m_isClosed;
    PortalTarget m_portal = PortalTarget::Production;
    QMap<QString, SocketConnection *> m_connections; ///< owned
    std::unique_ptr<QTimer> m_heartbeat;             ///< null while no job is subscribed
};

} // namespace Velmora
