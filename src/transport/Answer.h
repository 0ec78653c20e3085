#pragma once

#include "transport/Outcome.h"

#include <chrono>

namespace Velmora {

/// How large an answer may be. A larger one counts as one whose connection broke.
struct AnswerLimits {
    qint64 body = 256 * 1024 * 1024; ///< bytes, packed as well as unpacked
    qint64 head = 1024 * 1024;       ///< bytes, known once the head is complete
};

/// Aborts the reply as soon as its answer is too large. To be called when the request is sent.
void limitAnswer(QNetworkReply *reply, const AnswerLimits &limits);

/// Aborts the reply when no byte of its answer has come for that long. To be called when the request is sent.
void limitSilence(QNetworkReply *reply, std::chrono::milliseconds limit);

/// Of a finished reply, whole or none: a success whose connection broke before its end has status 0 and no body. A
/// refusal keeps its status, and of its body what came.
Outcome answerOf(QNetworkReply *reply);

/// Unpacks the body if it is packed. @return false, with the outcome as it was, when it is cut or damaged, or would be
/// larger than `limit`
bool unpack(Outcome &outcome, qint64 limit);
/// As above; an outcome whose body cannot be unpacked is no answer.
void unpackOrSpoil(Outcome &outcome, qint64 limit);

} // namespace Velmora
