#pragma once

#include <QList>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QString>

#include <string>

namespace Velmora {

/// Certificate authorities that are trusted besides those of Qt's default configuration.
class Authorities {
public:
    /// Reads a file in PEM form; an empty name stands for none.
    static Authorities read(const std::string &fileName);

    /// Why the file gives none, in a sentence that names it; empty when all is well.
    const QString &problem() const { return m_problem; }
    /// True where Qt's default configuration will do.
    bool isEmpty() const { return m_certificates.isEmpty(); }
    /// The default configuration of this moment, with these authorities.
    QSslConfiguration configuration() const;

private:
    QList<QSslCertificate> m_certificates;
    QString m_problem;
};

} // namespace Velmora
