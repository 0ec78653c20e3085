#include "base/Authorities.h"

#include <QFile>

namespace Velmora {

Authorities Authorities::read(const std::string &fileName)
{
    Authorities read;
    if (fileName.empty())
        return read;
    QFile file(QString::fromStdString(fileName));
    if (!file.open(QIODevice::ReadOnly)) {
        read.m_problem = QStringLiteral("The certificate authorities in %1 cannot be read: %2.")
                             .arg(file.fileName(), file.errorString());
        return read;
    }
    read.m_certificates = QSslCertificate::fromData(file.readAll());
    if (read.isEmpty())
        read.m_problem = QStringLiteral("There is no certificate in %1.").arg(file.fileName());
    return read;
}

// Added, not set: where Qt looks a system's authorities up on demand, it does so no longer once a set was given.
QSslConfiguration Authorities::configuration() const
{
    QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
    trusting.addCaCertificates(m_certificates);
    return trusting;
}

} // namespace Velmora
