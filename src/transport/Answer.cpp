#include "transport/Answer.h"

#include "transport/Gzip.h"

#include <QNetworkReply>
#include <QTimer>

#include <algorithm>
#include <limits>
#include <memory>

namespace Velmora {

namespace {

constexpr char endedBecause[] = "velmoraEndedBecause";

// Not inside the reply's own signal: abort() emits finished().
void end(QNetworkReply *reply, const QString &why)
{
    reply->setProperty(endedBecause, why);
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

void limitSilence(QNetworkReply *reply, std::chrono::milliseconds limit)
{
    // In quarters, each of which needs the event loop: a thread that was busy has not read yet what came meanwhile.
    constexpr int quarters = 4, longest = std::numeric_limits<int>::max();
    auto *timer = new QTimer(reply);
    const auto silent = std::make_shared<int>(0);
    const auto reset = [=] { *silent = 0; };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, timer, reset);
    QObject::connect(reply, &QNetworkReply::readyRead, timer, reset);
    QObject::connect(timer, &QTimer::timeout, reply, [=] {
        if (++*silent < quarters)
            return;
        timer->stop();
        end(reply, QStringLiteral("Nothing came for %1 s.").arg(double(limit.count()) / 1000));
    });
    timer->start(static_cast<int>(std::clamp<qint64>(limit.count() / quarters, 1, longest)));
}

void limitAnswer(QNetworkReply *reply, const AnswerLimits &limits)
{
    const QString tooLarge = QStringLiteral("The answer is too large.");
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [=] {
        qint64 head = 0;
        for (const auto &[name, value] : reply->rawHeaderPairs())
            head += name.size() + value.size();
        if (head > limits.head || reply->header(QNetworkRequest::ContentLengthHeader).toLongLong() > limits.body)
            end(reply, tooLarge);
        // Bounds what the network layer holds while the owner's loop is busy. Forgotten by Qt 5.15 if set earlier.
        reply->setReadBufferSize(limits.body + 1);
    });
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [=] {
        if (reply->bytesAvailable() > limits.body)
            end(reply, tooLarge);
    });
}

Outcome answerOf(QNetworkReply *reply)
{
    Outcome outcome = outcomeOf(reply, {});
    if (const QString why = reply->property(endedBecause).toString(); !why.isEmpty()) {
        outcome.spoil(why);
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
