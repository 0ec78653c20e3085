#include "storage/Route.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QNetworkProxy>
#include <QSslConfiguration>
#include <QUrl>

namespace Velmora {

namespace {

// Some systems load authorities only when a certificate is checked: the configuration lists none then, though it trusts
// them. Setting a list, even the same one, ends that.
bool loadsOnDemand(const QSslConfiguration &configuration)
{
    QSslConfiguration listed = configuration;
    listed.setCaCertificates(configuration.caCertificates());
    return listed != configuration;
}

const QList<QSslCertificate> &systemAuthorities()
{
    static const QList<QSslCertificate> all = QSslConfiguration::systemCaCertificates();
    return all;
}

} // namespace

Proxy proxyTo(const QByteArray &server)
{
    const QNetworkProxyQuery query(QUrl(QString::fromUtf8(server)), QNetworkProxyQuery::UrlRequest);
    for (const QNetworkProxy &each : QNetworkProxyFactory::proxyForQuery(query)) {
        Proxy proxy{Proxy::None, each.hostName().toUtf8(), each.port(), each.user().toUtf8(), each.password().toUtf8()};
        switch (each.type()) {
        case QNetworkProxy::Socks5Proxy:
            proxy.kind = Proxy::Socks5;
            return proxy;
        case QNetworkProxy::HttpProxy:
        case QNetworkProxy::HttpCachingProxy:
            proxy.kind = Proxy::Http;
            return proxy;
        case QNetworkProxy::FtpCachingProxy: // not for us
            break;
        case QNetworkProxy::NoProxy:
        case QNetworkProxy::DefaultProxy:
            return {};
        }
    }
    return {};
}

Trust TrustReader::read(const QString &file)
{
    readConfiguration();
    Trust trust = m_trust;
    if (!file.isEmpty())
        addFile(&trust, file);
    return trust;
}

void TrustReader::addFile(Trust *trust, const QString &path)
{
    const QDateTime modified = QFileInfo(path).lastModified();
    if (path != m_file || modified != m_modified) {
        QFile file(path);
        m_file.clear();
        if (!file.open(QIODevice::ReadOnly)) {
            trust->problem = QStringLiteral("The file of certificate authorities %1 could not be read: %2.")
                                 .arg(QDir::toNativeSeparators(path), file.errorString());
            return;
        }
        m_ofFile.clear();
        for (const QSslCertificate &certificate : QSslCertificate::fromDevice(&file))
            m_ofFile += certificate.toPem();
        m_file = path;
        m_modified = modified;
    }
    trust->authorities += m_ofFile;
    if (m_ofFile.isEmpty())
        trust->problem = QStringLiteral("The file of certificate authorities %1 holds no certificate in PEM form.")
                             .arg(QDir::toNativeSeparators(path));
}

void TrustReader::readConfiguration()
{
    const QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    const auto mode = configuration.peerVerifyMode();
    m_trust.isVerified = mode == QSslSocket::AutoVerifyPeer || mode == QSslSocket::VerifyPeer;
    const QList<QSslCertificate> listed = configuration.caCertificates();
    const bool onDemand = loadsOnDemand(configuration);
    if (m_read && listed == m_listed && onDemand == m_onDemand) // quick for a list that is shared
        return;
    m_read = true;
    m_listed = listed;
    m_onDemand = onDemand;
    QList<QSslCertificate> certificates = listed;
    if (onDemand) {
        for (const QSslCertificate &authority : systemAuthorities()) {
            if (!listed.contains(authority))
                certificates.append(authority);
        }
    }
    m_trust.authorities.clear();
    for (const QSslCertificate &certificate : qAsConst(certificates))
        m_trust.authorities += certificate.toPem();
}

} // namespace Velmora
