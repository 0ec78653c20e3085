#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QSslCertificate>
#include <QString>

#include <memory>

namespace Velmora {

class TlsAuthorities;

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
    QString problem = {};                        ///< why that cannot be found out; empty when all is well
    std::shared_ptr<TlsAuthorities> parsed = {}; ///< null: nobody
};

/// The proxy that the application's Qt has for a server.
Proxy proxyTo(const QByteArray &server);

/// Reads what Qt's default configuration trusts, and a file of further authorities. Their text is made afresh only when
/// they changed.
class TrustReader {
public:
    /// @param file  in PEM form; empty: none
    Trust read(const QString &file = {});

private:
    void readConfiguration();
    /// @return what is wrong with it
    QString readFile(const QString &path);

    bool m_read = false;
    QList<QSslCertificate> m_listed; ///< by the configuration that was read last
    bool m_onDemand = false;
    bool m_isVerified = true;
    QByteArray m_listedText;
    QString m_file; ///< the one that was read last
    QDateTime m_modified;
    QByteArray m_ofFile;
    bool m_isComplete = false;
    QString m_completeFor; ///< the file
    Trust m_complete;
};

} // namespace Velmora
