#include "Portal.h"

#include "Rows.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QUrl>

namespace Bench {

Portal::Portal(const QString &program, const QStringList &options)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(program, options);
    require(m_process.waitForStarted(), "the portal did not start");
    while (!m_process.canReadLine())
        require(m_process.waitForReadyRead(30000), "the portal said nothing");
    m_facts = QJsonDocument::fromJson(m_process.readLine()).object();
    trust(caFile());
    m_token = ask("POST", QStringLiteral("/api/auth/login"),
                  QJsonObject{{QStringLiteral("emailAddress"), user()}, {QStringLiteral("password"), password()}},
                  "application/json")[QStringLiteral("idToken")]
                  .toString()
                  .toUtf8();
    require(!m_token.isEmpty(), "the portal gave no token");
}

Portal::~Portal()
{
    m_process.closeWriteChannel(); // the end of its input ends it
    m_process.waitForFinished();
}

QString Portal::firstUser(const QString &what) const
{
    return m_facts[QStringLiteral("users")].toArray()[0].toObject()[what].toString();
}

QJsonObject Portal::ask(const QByteArray &verb, const QString &path, const QJsonValue &body, const QByteArray &type)
{
    QNetworkAccessManager manager;
    QNetworkRequest request(QUrl(QStringLiteral("https://") + host() + path));
    request.setRawHeader("Content-Type", type);
    if (!m_token.isEmpty())
        request.setRawHeader("Authorization", m_token);
    const QByteArray text = body.isObject() ? QJsonDocument(body.toObject()).toJson() : QByteArray();
    QNetworkReply *reply = manager.sendCustomRequest(request, verb, text);
    await(reply);
    const QJsonDocument answer = QJsonDocument::fromJson(reply->readAll());
    return answer.isArray() ? QJsonObject{{QStringLiteral("list"), answer.array()}} : answer.object();
}

void Portal::setStorage(const QJsonObject &settings)
{
    ask("POST", QStringLiteral("/control/storage"), settings, "application/json");
}

void Portal::inject(const QJsonObject &fault)
{
    ask("POST", QStringLiteral("/control/faults"), fault, "application/json");
}

QJsonArray Portal::sockets()
{
    return ask("GET", QStringLiteral("/control/sockets"), {}, {})[QStringLiteral("list")].toArray();
}

QString Portal::newJob()
{
    return ask("POST", QStringLiteral("/api/job/init"),
               QJsonObject{{QStringLiteral("accountId"), QStringLiteral("ACC-1001")}},
               "application/json")[QStringLiteral("jobId")]
        .toString();
}

QByteArray Portal::key(const QString &job)
{
    const QJsonObject answer =
        ask("POST", QStringLiteral("/api/job/key"), QJsonObject{{QStringLiteral("jobId"), job}}, "application/json");
    return QByteArray::fromBase64(
        answer[QStringLiteral("key")].toObject()[QStringLiteral("plaintextKey")].toString().toLatin1());
}

QJsonObject Portal::uploadAddress(const QString &job)
{
    return ask("GET", QStringLiteral("/api/job/files/uploadUrl/") + job, {}, {});
}

QJsonArray Portal::files(const QString &job)
{
    return ask("GET", QStringLiteral("/api/job/files/list/") + job, {}, "application/json")[QStringLiteral("list")]
        .toArray();
}

void Portal::removeFile(const QString &job, const QString &name)
{
    ask("DELETE", QStringLiteral("/api/job/files/") + job + QLatin1Char('/') + name, {}, {});
}

void trust(const QString &caFile)
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.setCaCertificates(QSslCertificate::fromPath(caFile));
    QSslConfiguration::setDefaultConfiguration(configuration);
}

void await(QNetworkReply *reply)
{
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    if (!reply->isFinished())
        loop.exec();
    require(reply->error() == QNetworkReply::NoError, reply->errorString().toStdString());
}

QString filled(QString text, const QString &name, qint64 size)
{
    return text.replace(QLatin1String("#urlEncodedFileName#"), QString::fromLatin1(QUrl::toPercentEncoding(name)))
        .replace(QLatin1String("#fileName#"), name)
        .replace(QLatin1String("#fileSize#"), QString::number(size));
}

} // namespace Bench
