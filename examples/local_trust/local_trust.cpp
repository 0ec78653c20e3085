// For development only: lets a host that knows no Qt trust the authority of a local portal, for this process
// alone and without a change to it or to the machine:
//
//     LD_PRELOAD=.../libvelmora_local_trust.so SSL_CERT_FILE=.../ca.pem HOST_PROGRAM
//
// Qt's network layer does not read SSL_CERT_FILE by itself. It is read here when the application object is
// made, which the library does for a host that has none.

#include <QCoreApplication>
#include <QSslCertificate>
#include <QSslConfiguration>

static void trustLocalAuthority()
{
    const QString file = qEnvironmentVariable("SSL_CERT_FILE");
    const auto authorities = QSslCertificate::fromPath(file, QSsl::Pem, QSslCertificate::PatternSyntax::FixedString);
    if (authorities.isEmpty())
        qWarning("local_trust: SSL_CERT_FILE names no certificate");
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificates(authorities);
    QSslConfiguration::setDefaultConfiguration(configuration);
}
Q_COREAPP_STARTUP_FUNCTION(trustLocalAuthority)
