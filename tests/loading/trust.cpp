// Makes the process trust one authority only, for an application without Qt.

#include <QSslCertificate>
#include <QSslConfiguration>

#ifdef _WIN32
extern "C" __declspec(dllexport) void trust(const char *pem);
#else
extern "C" __attribute__((visibility("default"))) void trust(const char *pem);
#endif

void trust(const char *pem)
{
    QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
    trusting.setCaCertificates(QSslCertificate::fromData(QByteArray(pem)));
    QSslConfiguration::setDefaultConfiguration(trusting);
}
