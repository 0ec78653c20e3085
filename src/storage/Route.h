#pragma once

#include <QByteArray>
#include <QList>
#include <QSslCertificate>

namespace Velmora {

/// A proxy, as plain data.
struct Proxy {
    enum Kind { None, Socks5, Http };
    Kind kind = None;
    QByteArray host;
    int port = 0;
    QByteArray user;
    QByteArray password;
};

/// Whom a connection trusts.
struct Trust {
    QByteArray authorities; ///< PEM; empty: nobody
    bool isVerified = true;
};

/// The proxy that the application's Qt has for a server.
Proxy proxyTo(const QByteArray &server);

/// Reads what Qt's default configuration trusts. The text of the authorities is made afresh only when they changed.
class TrustReader {
public:
    Trust read();

private:
    bool m_read = false;
    QList<QSslCertificate> m_listed; ///< by the configuration that was read last
    bool m_onDemand = false;
    Trust m_trust;
};

} // namespace Velmora
