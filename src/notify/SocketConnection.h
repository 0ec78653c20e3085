#pragma once

#include <velmora/Callbacks.h>

#include <QObject>
#include <QString>

#include <memory>

class CloudWebSocketClient;

namespace Velmora {

/// Binds one job's socket to the application's two callbacks. A finished job and a lost socket go to the finish
/// callback, everything else goes to the message callback. Messages arrive queued, so callbacks run outside the
/// socket's signals and may delete this object.
class SocketConnection : public QObject {
    Q_OBJECT
public:
    SocketConnection(const QString &jobId, std::unique_ptr<CloudWebSocketClient> client, const JobMessage &onMessage,
                     const JobMessage &onFinished);
    ~SocketConnection() override;

    CloudWebSocketClient *client() const { return m_client.get(); }

Q_SIGNALS:
    /// The job has finished, and so has the subscription.
    void signalDisconnectSocket(const QString &jobId);

public Q_SLOTS:
    void slotUpdateCognitoToken(const QString &_cognitoToken);
    void slotHandleSocketMessage(const QString &message);

private:
    QString m_jobId;
    std::unique_ptr<CloudWebSocketClient> m_client;
    JobMessage m_onMessage;
    JobMessage m_onFinished;
};

} // namespace Velmora
