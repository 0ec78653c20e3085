#include "transport/Outcome.h"

#include "model/Json.h"

#include <QNetworkReply>

namespace Velmora {

int httpStatus(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
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
    if (reply->error() != QNetworkReply::NoError)
        outcome.broken = reply->errorString();
    if (outcome.failed)
        outcome.error = makeError(outcome.error.errorCode, type, outcome.body);
    return outcome;
}

} // namespace Velmora
