#include "transport/Answer.h"

#include "transport/Gzip.h"

#include <QNetworkReply>

namespace Velmora {

namespace {

constexpr char tooLarge[] = "velmoraTooLarge";

// Not inside the reply's own signal: abort() emits finished().
void end(QNetworkReply *reply)
{
    reply->setProperty(tooLarge, true);
    QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection);
}

void readEncoding(Outcome &outcome, const QNetworkReply *reply)
{
    const QByteArray encoding = reply->rawHeader("Content-Encoding").trimmed().toLower();
    const bool hasNoBody =
        outcome.body.isEmpty() && (outcome.status == 204 || reply->rawHeader("Content-Length").trimmed() == "0");
    if (hasNoBody || encoding.isEmpty() || encoding == "identity")
        return;
    if (encoding == "gzip" || encoding == "x-gzip")
        outcome.isPacked = true;
    else
        outcome.spoil(QStringLiteral("The answer has an encoding that was not asked for."));
}

} // namespace

void limitAnswer(QNetworkReply *reply, const AnswerLimits &limits)
{
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [=] {
        qint64 head = 0;
        for (const auto &[name, value] : reply->rawHeaderPairs())
            head += name.size() + value.size();
        if (head > limits.head || reply->header(QNetworkRequest::ContentLengthHeader).toLongLong() > limits.body)
            end(reply);
        // Bounds what the network layer holds while the owner's loop is busy. Forgotten by Qt 5.15 if set earlier.
        reply->setReadBufferSize(limits.body + 1);
    });
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [=] {
        if (reply->bytesAvailable() > limits.body)
            end(reply);
    });
}

Outcome answerOf(QNetworkReply *reply)
{
    Outcome outcome = outcomeOf(reply, {});
    if (reply->property(tooLarge).toBool()) {
        outcome.spoil(QStringLiteral("The answer is too large."));
    } else if (!outcome.isRefused() && !outcome.problem.isEmpty()) {
        outcome.spoil(outcome.problem);
    } else {
        outcome.body = reply->readAll();
        readEncoding(outcome, reply);
    }
    return outcome;
}

bool unpack(Outcome &outcome, qint64 limit)
{
    if (!outcome.isPacked)
        return true;
    const auto content = gunzip(outcome.body, limit);
    if (!content)
        return false;
    outcome.body = *content;
    outcome.isPacked = false;
    return true;
}

void unpackOrSpoil(Outcome &outcome, qint64 limit)
{
    if (!unpack(outcome, limit))
        outcome.spoil(QStringLiteral("The answer cannot be unpacked."));
}

} // namespace Velmora
