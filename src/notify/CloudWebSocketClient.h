#pragma once

#include "base/Authorities.h"

#include <QObject>
#include <QSslError>
#include <QString>
#include <QUrl>

#include <functional>

class QWebSocket;

/// One authenticated connection to the portal's notification socket. Every text frame and every loss of the connection
/// becomes one `signalMessageReceived`. After a loss the client does nothing more. After four heartbeats without a text
/// frame it closes the connection and opens a new one; a connection that is not open by then is lost. While the token
/// is being renewed, a connection is not opened before there is a new one.
///
/// The signal may be emitted inside a signal of the socket. Deleting a `QWebSocket` there corrupts memory, so receivers
/// connect queued. For the same reason each connection has a socket of its own, and the event loop releases the old
/// one.
class CloudWebSocketClient : public QObject {
    Q_OBJECT
public:
    /// Asked before each opening: whether it has to wait for `slotOpen`.
    using Gate = std::function<bool()>;

    CloudWebSocketClient(const QUrl &url, const QString &cognitoToken, Gate isClosed = {},
                         const Velmora::Authorities &authorities = {});

Q_SIGNALS:
    void signalMessageReceived(const QString &message);

public Q_SLOTS:
    /// The token is used by the next connection; the open one is not touched.
    void slotUpdateCognitoToken(const QString &_cognitoToken);
    void slotPingSocket();
    /// Opens the connection that waits for it, if one does.
    void slotOpen();

private Q_SLOTS:
    void onConnected();
    void onDisconnected();
    void onTextMessageReceived(const QString &message);
    void onSslErrors(const QList<QSslError> &errors);
    void onClose();

private:
    void openSocket();
    void retireSocket();
    void onOpeningFailed();

    QWebSocket *m_socket = nullptr; ///< child; null after a loss, and while the opening waits
    const Gate m_isClosed;
    const Velmora::Authorities m_authorities;
    bool m_waits = false;
    QUrl m_url;
    QString m_cognitoToken;
    bool m_closeHandled = false;
    int m_pingsWithoutMessage = 0;
};
