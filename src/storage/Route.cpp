#include "storage/Route.h"

#include "storage/TlsContext.h"

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
    const QString problem = file.isEmpty() ? QString() : readFile(file);
    if (!m_isComplete || file != m_completeFor) { // the text of a system's authorities is long
        m_complete = {file.isEmpty() ? m_listedText : m_listedText + m_ofFile};
        if (!m_complete.authorities.isEmpty())
            m_complete.parsed = std::make_shared<TlsAuthorities>(m_complete.authorities);
        m_isComplete = true;
        m_completeFor = file;
    }
    Trust trust = m_complete;
    trust.isVerified = m_isVerified;
    trust.problem = problem;
    return trust;
}

QString TrustReader::readFile(const QString &path)
{
    const QDateTime modified = QFileInfo(path).lastModified();
    if (path != m_file || modified != m_modified) {
        QFile file(path);
        m_file.clear();
        m_ofFile.clear();
        m_isComplete = false;
        if (!file.open(QIODevice::ReadOnly))
            return QStringLiteral("The file of certificate authorities %1 could not be read: %2.")
                .arg(QDir::toNativeSeparators(path), file.errorString());
        for (const QSslCertificate &certificate : QSslCertificate::fromDevice(&file))
            m_ofFile += certificate.toPem();
        m_file = path;
        m_modified = modified;
    }
    return m_ofFile.isEmpty()
               ? QStringLiteral("The file of certificate authorities %1 holds no certificate in PEM form.")
                     .arg(QDir::toNativeSeparators(path))
               : QString();
}

void TrustReader::readConfiguration()
{
    const QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    const auto mode = configuration.peerVerifyMode();
    m_isVerified = mode == QSslSocket::AutoVerifyPeer || mode == QSslSocket::VerifyPeer;
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
    m_isComplete = false;
    m_listedText.clear();
    for (const QSslCertificate &certificate : qAsConst(certificates))
        m_listedText += certificate.toPem();
}

} // namespace Velmora
