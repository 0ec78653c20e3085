#include "transport/Reply.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>

namespace Velmora {

int httpStatus(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QString bodyMessage(const QByteArray &body)
{
    return QJsonDocument::fromJson(body).object().value(QLatin1String("message")).toString();
}

ApiError makeError(int status, RequestType type, const QByteArray &body)
{
    return {status, errorTitle(type).toStdString(), bodyMessage(body).toStdString()};
}

Outcome readOutcome(QNetworkReply *reply, RequestType type)
{
    Outcome outcome;
    outcome.body = reply->readAll();
    outcome.error.errorCode = httpStatus(reply);
    outcome.failed = outcome.error.errorCode >= 300;
    if (outcome.failed)
        outcome.error = makeError(outcome.error.errorCode, type, outcome.body);
    return outcome;
}

} // namespace Velmora
