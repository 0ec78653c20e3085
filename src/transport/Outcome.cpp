#include "transport/Outcome.h"

#include "model/Json.h"

#include <QNetworkReply>
#include <QRegularExpression>

namespace Velmora {

namespace {

// The network layer quotes addresses, and the query of a pre-signed one is its signature.
QString withoutQueries(QString text)
{
    static const QRegularExpression query(QStringLiteral("(https?://[^\\s?]*)\\?\\S*"));
    return text.replace(query, QStringLiteral("\\1"));
}

} // namespace

int httpStatus(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

void Outcome::spoil(const QString &why)
{
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
    if (whole && outcome.status < 200) // Qt 5.15 ends a request with the first 1xx other than 100
        outcome.spoil(QStringLiteral("The server sent no final answer."));
    return outcome;
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
