#include "notify/SocketConnection.h"

#include "base/Later.h"
#include "notify/CloudWebSocketClient.h"

#include <QPointer>

namespace Velmora {

namespace {

struct Verdict {
    ApiError error;
    bool finishes = false; ///< for the finish callback
    bool endsSubscription = false;
};

Verdict classify(const QString &message)
{
    const auto has = [&message](const char *text) { return message.contains(QLatin1String(text)); };
    if (has("simulation finished") || has("Job status is FINISHED"))
        return {{200, "Simulation Finished", {}}, true, true};
    if (has("socket disconnected") || has("failed to connect") || has("abnormal closure"))
        return {{400, "Unexpected Socket Disconnection", {}}, true, false};
    if (message.isEmpty())
        return {{400, "Invalid Socket Message", {}}, false, false};
    return {{200, "Socket Message Success", {}}, false, false};
}

} // namespace

SocketConnection::SocketConnection(const QString &jobId, std::unique_ptr<CloudWebSocketClient> client,
                                   const JobMessage &onMessage, const JobMessage &onFinished)
    : m_jobId(jobId)
    , m_client(std::move(client))
    , m_onMessage(onMessage)
    , m_onFinished(onFinished)
{
    connect(m_client.get(), &CloudWebSocketClient::signalMessageReceived, this,
            &SocketConnection::slotHandleSocketMessage, Qt::QueuedConnection);
}

SocketConnection::~SocketConnection() = default;

void SocketConnection::slotUpdateCognitoToken(const QString &_cognitoToken)
{
    m_client->slotUpdateCognitoToken(_cognitoToken);
}

void SocketConnection::slotHandleSocketMessage(const QString &message)
{
    noteStep();
    const Verdict verdict = classify(message);
    const QString jobId = m_jobId;
    const JobMessage callback = verdict.finishes ? m_onFinished : m_onMessage; // outlives this object
    const QPointer<SocketConnection> self(this);
    if (callback)
        callback(verdict.error, jobId.toStdString(), message.toStdString());
    if (self && verdict.endsSubscription)
        Q_EMIT signalDisconnectSocket(jobId);
}

} // namespace Velmora
