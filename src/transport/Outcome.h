#pragma once

#include "transport/Endpoints.h"

#include <velmora/Records.h>

#include <QByteArray>
#include <QString>
#include <QUrl>

class QNetworkReply;

namespace Velmora {

/// What came back for one request.
struct Outcome {
    int status = 0; ///< the HTTP status; 0 when there was none, or an informational one (1xx) only
    QByteArray body;
    QString problem;       ///< the network layer's text, without the query of an address; empty when all went well
    bool isPacked = false; ///< `body` is still gzip
    QString host = {};     ///< with its port
    QString cause = {};    ///< why there is no answer, in a sentence; empty when `problem` says it

    bool isRefused() const { return status >= 300; }
    /// The answer is not whole. A success becomes no answer; a refusal stays one and loses its body.
    void spoil(const QString &why);
};

/// Lets the outcome distinguish a certificate that is not trusted from other faults of TLS. To be called when the
/// request is sent.
void watchTrust(QNetworkReply *reply);

/// The host with its port, for messages.
QString hostOf(const QUrl &url);

/// The HTTP status; 0 when there was none.
int httpStatus(const QNetworkReply *reply);

/// Of a finished reply. @param body  what was received, or the start of it
Outcome outcomeOf(const QNetworkReply *reply, const QByteArray &body);

/// For an outcome without a status: why, in a sentence that names the host.
std::string whyNoAnswer(const Outcome &outcome);

/// The error of an operation. Success is any status below 300, none at all included.
ApiError operationError(const Outcome &outcome, const char *title);

/// The error of a request that a transfer depends on. A connection that broke is a failure, whatever the status: the
/// code is then the status if that is 300 or more, else 400. The message is the body's "message", else the network
/// layer's text.
ApiError transferError(const Outcome &outcome, const char *title);

} // namespace Velmora
