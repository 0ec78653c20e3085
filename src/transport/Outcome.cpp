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

Outcome outcomeOf(const QNetworkReply *reply, const QByteArray &body)
{
    const bool whole = reply->error() == QNetworkReply::NoError;
    return {httpStatus(reply), body, whole ? QString() : withoutQueries(reply->errorString())};
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
