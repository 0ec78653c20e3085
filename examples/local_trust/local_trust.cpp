// For development only: makes a program without Qt trust the authority of a local portal. It affects this process
// alone, and changes neither the program nor the machine:
//
//     LD_PRELOAD=.../libvelmora_local_trust.so SSL_CERT_FILE=.../ca.pem PROGRAM
//
// Qt's network layer does not read SSL_CERT_FILE. This library reads it when the application object is made, which
// Velmora does for a program that has none.

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
