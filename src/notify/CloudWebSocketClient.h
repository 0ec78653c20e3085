#pragma once

#include <QObject>
#include <QSslError>
#include <QString>
#include <QUrl>

class QWebSocket;

/// One authenticated connection to the portal's notification socket. Every text frame and every loss of the connection
/// becomes one `signalMessageReceived`. After a loss the client does nothing more. After four heartbeats without a text
/// frame it closes the connection and opens a new one; a connection that is not open by then is lost.
///
/// The signal may be emitted inside a signal of the socket. Deleting a `QWebSocket` there corrupts memory, so receivers
/// connect queued. For the same reason each connection has a socket of its own, and the event loop releases the old
/// one.
class CloudWebSocketClient : public QObject {
    Q_OBJECT
public:
    CloudWebSocketClient(const QUrl &url, const QString &cognitoToken, QObject *parent = nullptr);
    ~CloudWebSocketClient() override;

Q_SIGNALS:
    void signalMessageReceived(const QString &message);

public Q_SLOTS:
    /// The token is used by the next connection; the open one is not touched.
    void slotUpdateCognitoToken(const QString &_cognitoToken);
    void slotPingSocket();

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

    QWebSocket *m_socket = nullptr; ///< child; null after a loss
    QUrl m_url;
    QString m_cognitoToken;
    bool m_closeHandled = false;
    int m_pingsWithoutMessage = 0;
};
