#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>

class QNetworkAccessManager;
class QNetworkReply;

namespace Bench {

/// A local portal in a process of its own, and a plain client for it. The client gets what the library does not
/// hand out: tokens, addresses, keys.
class Portal {
public:
    /// Starts the program and trusts its certificate in the whole process.
    explicit Portal(const QString &program,
                    const QStringList &options = {QStringLiteral("--job-duration"), QStringLiteral("1")});
    ~Portal();
    Portal(const Portal &) = delete;
    Portal &operator=(const Portal &) = delete;

    QString host() const { return m_facts[QStringLiteral("host")].toString(); }
    QString caFile() const { return m_facts[QStringLiteral("ca")].toString(); }
    QString user() const { return firstUser(QStringLiteral("email")); }
    QString password() const { return firstUser(QStringLiteral("password")); }
    qint64 processId() const { return m_process.processId(); }

    /// `settings` is what /control/storage takes.
    void setStorage(const QJsonObject &settings);
    /// `fault` is what /control/faults takes.
    void inject(const QJsonObject &fault);
    QString newJob();
    QByteArray key(const QString &job); ///< 32 bytes
    QJsonObject uploadAddress(const QString &job);
    QJsonArray files(const QString &job);
    QJsonArray sockets(); ///< the answer of /control/sockets
    void removeFile(const QString &job, const QString &name);

private:
    QString firstUser(const QString &what) const;
    QJsonObject ask(const QByteArray &verb, const QString &path, const QJsonValue &body, const QByteArray &type);

    QProcess m_process;
    QJsonObject m_facts;
    QByteArray m_token;
};

void trust(const QString &caFile);
/// Runs the event loop until the reply has finished. Ends the program if it failed.
void await(QNetworkReply *reply);
/// `text` with the placeholders of an upload address filled in.
QString filled(QString text, const QString &name, qint64 size);

} // namespace Bench
