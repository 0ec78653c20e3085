#include "transport/Outcome.h"

#include "model/Json.h"

#include <QNetworkReply>
#include <QRegularExpression>
#include <QSslError>

namespace Velmora {

namespace {

constexpr char untrusted[] = "velmoraUntrusted";

// The network layer quotes addresses, and the query of a pre-signed one is its signature.
QString withoutQueries(QString text)
{
    static const QRegularExpression query(QStringLiteral("(https?://[^\\s?]*)\\?\\S*"));
    return text.replace(query, QStringLiteral("\\1"));
}

QString causeOf(const QNetworkReply *reply, const QString &host)
{
    const auto say = [&host](const char *text) { return QString::fromLatin1(text).arg(host); };
    switch (reply->error()) {
    case QNetworkReply::NoError:
        return {};
    case QNetworkReply::ConnectionRefusedError:
        return say("The connection to %1 was refused. Nothing listens there, or a firewall is in the way.");
    case QNetworkReply::RemoteHostClosedError:
        return say("%1 closed the connection before its answer was whole.");
    case QNetworkReply::ContentReSendError: // see `RequestBody`
        return say("%1 closed the connection before it answered. The request may have been carried out.");
    case QNetworkReply::HostNotFoundError:
        return say("The name of the host %1 is unknown.");
    case QNetworkReply::TimeoutError:
        return say("The connection to %1 timed out.");
    case QNetworkReply::OperationCanceledError: // nothing else cancels a request that completes
    case QNetworkReply::ProxyConnectionClosedError:
        return say("The proxy closed the connection to %1 before an answer came.");
    case QNetworkReply::SslHandshakeFailedError:
        if (const QString reason = reply->property(untrusted).toString(); !reason.isEmpty())
            return say("The certificate of %1 is not trusted. ") + reason;
        return say("The TLS handshake with %1 failed. It may not be a TLS server.");
    case QNetworkReply::ProxyConnectionRefusedError:
        return say("The proxy refused the connection, so %1 cannot be reached.");
    case QNetworkReply::ProxyNotFoundError:
        return say("The name of the proxy is unknown, so %1 cannot be reached.");
    case QNetworkReply::ProxyTimeoutError:
        return say("The proxy did not answer in time, so %1 cannot be reached.");
    case QNetworkReply::ProxyAuthenticationRequiredError:
        return say("The proxy did not accept the user and the password, so %1 cannot be reached.");
    default:
        return say("The request to %1 failed. ") + withoutQueries(reply->errorString());
    }
}

} // namespace

QString hostOf(const QUrl &url) { return url.adjusted(QUrl::RemoveUserInfo).authority(); }

int httpStatus(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

void watchTrust(QNetworkReply *reply)
{
    QObject::connect(reply, &QNetworkReply::sslErrors, reply, [reply](const QList<QSslError> &errors) {
        reply->setProperty(untrusted, errors.isEmpty() ? QString() : errors.first().errorString());
    });
}

void Outcome::spoil(const QString &why)
{
    if (why != problem)
        cause.clear();
    if (!isRefused())
        status = 0;
    body.clear();
    isPacked = false;
    problem = why;
}

Outcome outcomeOf(const QNetworkReply *reply, const QByteArray &body)
{
    const bool whole = reply->error() == QNetworkReply::NoError;
    Outcome outcome{httpStatus(reply), body, whole ? QString() : withoutQueries(reply->errorString())};
    outcome.host = hostOf(reply->url());
    outcome.cause = causeOf(reply, outcome.host);
    if (whole && outcome.status < 200) // Qt 5.15 ends a request with the first 1xx other than 100
        outcome.spoil(QStringLiteral("The server sent no final answer."));
    return outcome;
}

std::string whyNoAnswer(const Outcome &outcome)
{
    if (!outcome.cause.isEmpty())
        return outcome.cause.toStdString();
    return (outcome.host + QLatin1String(" gave no whole answer. ") + outcome.problem).toStdString();
}

ApiError operationError(const Outcome &outcome, const char *title)
{
    if (!outcome.isRefused())
        return {outcome.status, {}, {}};
    return {outcome.status, title, bodyMessage(outcome.body).toStdString()};
}

ApiError transferError(const Outcome &outcome, const char *title)
{
    if (outcome.problem.isEmpty() && outcome.status > 0 && !outcome.isRefused())
        return {outcome.status, {}, {}};
    const QString message = bodyMessage(outcome.body);
    return {outcome.isRefused() ? outcome.status : 400, title,
            (message.isEmpty() ? outcome.problem : message).toStdString()};
}

} // namespace Velmora
