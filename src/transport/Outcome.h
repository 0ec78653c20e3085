#pragma once

#include "transport/Endpoints.h"

#include <velmora/Records.h>

#include <QByteArray>

class QNetworkReply;

namespace Velmora {

/// What came back for one request.
struct Outcome {
    ApiError error; ///< code = HTTP status; title and message only when `failed`
    bool failed = false;
    QByteArray body;
    QString broken; ///< what happened to the connection; empty when the answer arrived whole
};

/// The HTTP status; 0 when there was none.
int httpStatus(const QNetworkReply *reply);

/// The error of a reply with a status of 300 or more.
ApiError makeError(int status, RequestType type, const QByteArray &body);

/// Reads a finished reply: success is any status below 300, none at all included.
Outcome readOutcome(QNetworkReply *reply, RequestType type);

} // namespace Velmora
