#pragma once

#include "base/Authorities.h"
#include "base/Later.h"
#include "base/PoolWork.h"
#include "transport/Answer.h"
#include "transport/Call.h"
#include "transport/Outcome.h"

#include <velmora/Callbacks.h>
#include <velmora/ClientOptions.h>

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QThreadPool>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <variant>

namespace Velmora {

class RequestBody;

/// Sends requests, counts and logs them, reads their answers and completes operations with them.
///
///     call ─▶ gate ─▶ send ─▶ answer arrived ─▶ unpack, read (a large body on another thread) ─▶ its turn ─▶ callback
///
/// While the gate is closed (the token is being renewed) requests wait for it, in their order. They are counted, logged
/// and given their token when they are sent. Those for tokens pass.
///
/// An answer is whole or none: see `answerOf`. Answers take turns in the order of their arrival: one that is still
/// being read holds up those behind it. Callbacks of the application run from a clean stack (`deliver`) and may destroy
/// this object. What is queued then dies with it.
class RestClient : public QObject {
    Q_OBJECT
public:
    /// Ends a request, sent or waiting, without its completion. Does nothing once the answer has arrived.
    using Abort = std::function<void()>;

    RestClient();
    ~RestClient() override;

    void setPortal(PortalTarget portal) { m_portal = portal; }
    /// The value of "Authorization" in the requests that follow; none when empty.
    void setIdToken(const QString &idToken) { m_idToken = idToken; }
    /// For the requests that follow.
    void setOptions(const ClientOptions &options);
    /// Asked before each request: whether it has to wait for `openGate`.
    void setGate(std::function<bool()> isClosed) { m_isClosed = std::move(isClosed); }
    /// Sends what waits.
    void openGate();
    /// Ends what has waited for that long, as a request without an answer ends.
    void endWaiting(std::chrono::milliseconds minimumAge);
    /// For the requests that follow; tests lower them.
    void setAnswerLimits(const AnswerLimits &limits) { m_limits = limits; }
    const AnswerLimits &answerLimits() const { return m_limits; }
    /// For the requests that follow: see `ProxyWatch`. Tests lower it.
    void setProxyWatchInterval(int milliseconds) { m_proxyWatchInterval = milliseconds; }
    /// Drops everything under way, without completions. Nothing may be sent after that.
    void close();

    /// Runs an operation: sends, classifies, reads the body of a success, completes with the error and the result,
    /// which is otherwise a default one.
    template <class Result> void call(const Call<Result> &call, const ResultDone<Result> &onComplete);
    /// As above for an operation whose answer has no result: completes with the error and `values`.
    template <class... Values>
    void call(const Request &request, const std::function<void(const ApiError &, const Values &...)> &onComplete,
              const Values &...values);

    /// What the above are made of: sends, then calls `then(outcome, result)` once, in the answer's turn. `read(body)`
    /// makes the result of a success, perhaps on another thread, and then the body is gone. `then` gets it as a shared
    /// pointer; what another thread made is released there too. It runs no code of the application: it hands that to
    /// `deliver`.
    template <class Read, class Then> Abort exchange(const Request &request, Read read, Then then);
    /// As above without a result: `then(outcome)`.
    template <class Then> Abort exchange(const Request &request, Then then);

    /// Calls a callback of the application, if there is one, from a clean stack.
    template <class... Parameters, class... Values>
    void deliver(const std::function<void(Parameters...)> &callback, Values &&...values)
    {
        callLater(this, callback, std::forward<Values>(values)...);
    }

    /// As above with a result that is shared, not copied.
    template <class Result>
    void deliver(const ResultDone<Result> &callback, ApiError error, std::shared_ptr<Result> result)
    {
        if (callback)
            later(this, [callback, error = std::move(error), result = std::move(result)] { callback(error, *result); });
    }

    /// As above for the completion of an operation. A callback that receives the code 0 finds the reason in
    /// `lastNetworkError`.
    template <class... Parameters, class... Values>
    void complete(const Outcome &outcome, const std::function<void(Parameters...)> &callback, Values &&...values)
    {
        if (outcome.status == 0) // just before the callback: the answer after this one may be here already
            later(this, [this, why = whyNoAnswer(outcome)] { m_lastNetworkError = why; });
        deliver(callback, std::forward<Values>(values)...);
    }
    /// Why the last code 0 was one; empty before the first.
    const std::string &lastNetworkError() const { return m_lastNetworkError; }
    /// For an outcome that no completion receives.
    void noteFailure(const Outcome &outcome)
    {
        if (outcome.status == 0)
            m_lastNetworkError = whyNoAnswer(outcome);
    }

    /// Requests the address below which the endpoints are, without a token; `take` reads the answer. Null when nothing
    /// may be sent.
    QNetworkReply *sendProbe();
    /// The answer of a finished reply, which is released.
    Outcome take(QNetworkReply *reply);

    QString baseUrl() const;

    /// Counts and logs a request that another client sends, until the result is released.
    std::shared_ptr<void> count(const char *announcement);

private:
    static constexpr int largeBody = 65536; ///< bytes; read in about a millisecond

    /// What is left to do for an answer that has arrived; empty while its body is being read.
    using Turn = std::function<void()>;

    /// A request on its way from its call to its answer.
    struct Flight {
        Request request;
        std::function<void(Outcome &&)> onAnswer; ///< empty once it was called, or the request was aborted
        QPointer<QNetworkReply> reply;            ///< null before it is sent
        QElapsedTimer age;
    };
    using FlightPtr = std::shared_ptr<Flight>;

    Abort start(const Request &request, std::function<void(Outcome &&)> onAnswer);
    void launch(const FlightPtr &flight);
    void endLater(const FlightPtr &flight, const QString &why);
    Outcome unsent(const QString &why) const;
    static void finish(const FlightPtr &flight, Outcome &&outcome);
    QNetworkRequest buildRequest(const Endpoint &endpoint, const QString &suffix) const;
    QNetworkReply *send(const Request &request);
    QNetworkReply *sendRest(const char *announcement, QNetworkRequest request, const QByteArray &verb,
                            const QByteArray &body, std::chrono::milliseconds silence);
    QNetworkReply *sendBody(const char *announcement, QNetworkRequest request, const QByteArray &verb,
                            RequestBody *body);
    void onRequestStarted(const char *announcement);
    void openNetwork();
    void retireNetwork();
    void releaseRetired();
    void onReplyFinished(QNetworkReply *reply);
    void onRequestFinished();
    void abort(QNetworkReply *reply);
    void takeTurns();

    std::unique_ptr<QNetworkAccessManager> m_network;
    std::list<std::unique_ptr<QNetworkAccessManager>> m_retired; ///< get no more requests; see `onRequestFinished`
    ClientOptions m_options;
    Authorities m_authorities;
    std::function<bool()> m_isClosed;
    std::list<FlightPtr> m_waiting; ///< for the gate
    std::string m_lastNetworkError;
    AnswerLimits m_limits;
    int m_proxyWatchInterval = 5000;
    PortalTarget m_portal = PortalTarget::Production;
    QString m_idToken;
    int m_requestsInFlight = 0;
    std::list<Turn> m_turns; ///< in the order of arrival
    /// Its own: a listing does not wait for gigabytes to be encrypted. What it made may outlive this object.
    std::shared_ptr<QThreadPool> m_readerPool = std::make_shared<QThreadPool>();
    std::list<PoolWork> m_readers; ///< large bodies being read
};

template <class Read, class Then> RestClient::Abort RestClient::exchange(const Request &request, Read read, Then then)
{
    return start(request, [=](Outcome &&received) {
        using Result = decltype(read(QByteArray()));
        const auto outcome = std::make_shared<Outcome>(std::move(received));
        const auto turn = m_turns.insert(m_turns.end(), Turn());
        // A small packed body may hold a large one: what is not unpacked at once is left to the other thread.
        const bool isSmall =
            outcome->body.size() < largeBody ? unpack(*outcome, largeBody) : outcome->isRefused() && !outcome->isPacked;
        const auto result = isSmall ? std::make_shared<Result>() : releasedOn<Result>(m_readerPool);
        const auto open = [=, limit = m_limits.body] {
            unpackOrSpoil(*outcome, limit);
            if (outcome->isRefused())
                return;
            *result = read(outcome->body);
            if constexpr (!std::is_same_v<Result, std::monostate>)
                outcome->body.clear();
        };
        const auto finish = [=] {
            *turn = [=] { then(*outcome, result); };
            takeTurns();
        };
        if (isSmall) {
            open();
            return finish();
        }
        const auto reader = m_readers.emplace(m_readers.end(), m_readerPool.get());
        reader->start([=](const std::atomic<bool> &) { open(); },
                      [=] {
                          m_readers.erase(reader);
                          finish();
                      });
    });
}

template <class Then> RestClient::Abort RestClient::exchange(const Request &request, Then then)
{
    return exchange(
        request, [](const QByteArray &) { return std::monostate(); },
        [then = std::move(then)](const Outcome &outcome, const auto & /*none*/) { then(outcome); });
}

template <class Result> void RestClient::call(const Call<Result> &call, const ResultDone<Result> &onComplete)
{
    exchange(call.request, call.read,
             [this, onComplete, title = call.request.endpoint.title](const Outcome &outcome, const auto &result) {
                 // clang 14 takes `this` for unused where it is not named
                 this->complete(outcome, onComplete, operationError(outcome, title), result);
             });
}

template <class... Values>
void RestClient::call(const Request &request,
                      const std::function<void(const ApiError &, const Values &...)> &onComplete,
                      const Values &...values)
{
    exchange(request, [=, title = request.endpoint.title](const Outcome &outcome) {
        complete(outcome, onComplete, operationError(outcome, title), values...);
    });
}

} // namespace Velmora
