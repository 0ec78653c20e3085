#include "transport/RestClient.h"

#include "base/Log.h"
#include "base/Portal.h"
#include "base/UserAgent.h"
#include "transport/ProxyWatch.h"
#include "transport/RequestBody.h"

#include <QCoreApplication>
#include <QEvent>
#include <QSslConfiguration>
#include <QUrl>

namespace Velmora {

RestClient::RestClient()
{
    m_readerPool->setMaxThreadCount(1);
    openNetwork();
}

RestClient::~RestClient() { close(); }

void RestClient::close()
{
    m_waiting.clear();
    m_network.reset();
    m_retired.clear();
    m_readers.clear();
    m_turns.clear();
}

QString RestClient::baseUrl() const { return QStringLiteral("https://%1/api/").arg(portalHost(m_portal)); }

QNetworkRequest RestClient::buildRequest(const Endpoint &endpoint, const QString &suffix) const
{
    const QUrl url(baseUrl() + QLatin1String(endpoint.path));
    QNetworkRequest request(suffix.isEmpty() ? url : QUrl(url.toString() + suffix));
    if (endpoint.json)
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    else if (!m_idToken.isEmpty())
        request.setSslConfiguration(QSslConfiguration::defaultConfiguration());
    if (!m_idToken.isEmpty())
        request.setRawHeader("Authorization", m_idToken.toUtf8());
    return request;
}

void RestClient::setOptions(const ClientOptions &options)
{
    if (options.caFile != m_options.caFile)
        retireNetwork(); // it keeps the trust of its first request for those that follow
    m_options = options;
    m_authorities = Authorities::read(options.caFile);
}

RestClient::Abort RestClient::start(const Request &request, std::function<void(Outcome &&)> onAnswer)
{
    logForeignThread(this);
    const auto flight = std::make_shared<Flight>(Flight{request, std::move(onAnswer), {}, {}});
    flight->age.start();
    if (!request.endpoint.forTokens && m_isClosed && m_isClosed())
        m_waiting.push_back(flight);
    else
        launch(flight);
    return [this, flight] {
        m_waiting.remove(flight);
        flight->onAnswer = nullptr;
        abort(flight->reply);
    };
}

void RestClient::launch(const FlightPtr &flight)
{
    if (!m_authorities.problem().isEmpty())
        return endLater(flight, m_authorities.problem());
    flight->reply = send(flight->request);
    connect(flight->reply, &QNetworkReply::finished, this, [=] { finish(flight, take(flight->reply)); });
}

// Not inside the call that made the request: who asked may not be ready for the answer.
void RestClient::endLater(const FlightPtr &flight, const QString &why)
{
    later(this, [=] { finish(flight, unsent(why)); });
}

Outcome RestClient::unsent(const QString &why) const
{
    Outcome outcome;
    outcome.problem = why;
    outcome.cause = QStringLiteral("No request was sent to %1. ").arg(hostOf(QUrl(baseUrl()))) + why;
    return outcome;
}

void RestClient::finish(const FlightPtr &flight, Outcome &&outcome)
{
    if (const auto onAnswer = std::exchange(flight->onAnswer, nullptr))
        onAnswer(std::move(outcome));
}

void RestClient::openGate()
{
    const auto waiting = std::exchange(m_waiting, {});
    for (const FlightPtr &flight : waiting)
        launch(flight);
}

void RestClient::endWaiting(std::chrono::milliseconds minimumAge)
{
    for (auto flight = m_waiting.begin(); flight != m_waiting.end();) {
        const auto next = std::next(flight);
        if (std::chrono::milliseconds((*flight)->age.elapsed()) >= minimumAge) {
            endLater(*flight, QStringLiteral("It waited for the renewal of the token, which gets no answer."));
            m_waiting.erase(flight);
        }
        flight = next;
    }
}

QNetworkReply *RestClient::send(const Request &request)
{
    const QNetworkRequest prepared = buildRequest(request.endpoint, request.suffix);
    const auto silence = request.silence.count() > 0 ? request.silence : std::chrono::seconds(m_options.answerTimeout);
    const auto started = [&](const char *announcement, const char *verb) {
        return sendRest(announcement, prepared, verb, request.body, silence);
    };
    switch (request.verb) {
    case Verb::Get:
        return started("Cloud API: Network Request Started:", "GET");
    case Verb::Delete:
        return started("Cloud API: Network Request Started:", "DELETE");
    case Verb::DeleteWithBody:
        return started("Cloud API: Custom Network Request Started:", "DELETE");
    case Verb::Post:
        break;
    }
    return started("Cloud API: Network Request Started with text/JSON data:", "POST");
}

QNetworkReply *RestClient::sendProbe()
{
    if (!m_authorities.problem().isEmpty()) {
        noteFailure(unsent(m_authorities.problem()));
        return nullptr;
    }
    return sendRest("Cloud API: Network Request Started:", QNetworkRequest(QUrl(baseUrl())), "GET", {},
                    std::chrono::seconds(m_options.answerTimeout));
}

// Asking for gzip by this header turns the network layer's unpacking off, which neither notices that a body was cut nor
// bounds what comes out.
QNetworkReply *RestClient::sendRest(const char *announcement, QNetworkRequest request, const QByteArray &verb,
                                    const QByteArray &body, std::chrono::milliseconds silence)
{
    request.setRawHeader("Accept-Encoding", "gzip");
    request.setRawHeader("User-Agent", userAgent);
    if (!m_authorities.isEmpty())
        request.setSslConfiguration(m_authorities.configuration());
    auto *device = new RequestBody(body);
    QNetworkReply *reply = sendBody(announcement, request, verb, device);
    watchTrust(reply);
    limitAnswer(reply, m_limits);
    if (silence.count() > 0)
        limitSilence(reply, silence);
    // A connection more makes the network layer start what waits for one.
    new ProxyWatch(reply, device, m_proxyWatchInterval, [network = reply->manager(), request] {
        const QUrl url = request.url();
        network->connectToHostEncrypted(url.host(), static_cast<quint16>(url.port(443)), request.sslConfiguration());
    });
    return reply;
}

// Each request reaches the service at most once. The network layer repeats what it can send again, so even an empty
// body is one that cannot be rewound. Such a body is neither buffered nor measured by the network layer.
QNetworkReply *RestClient::sendBody(const char *announcement, QNetworkRequest request, const QByteArray &verb,
                                    RequestBody *body)
{
    onRequestStarted(announcement);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setHeader(QNetworkRequest::ContentLengthHeader, body->size());
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    QNetworkReply *reply = nullptr;
    if (verb == "POST")
        reply = m_network->post(request, body);
    else
        reply = m_network->sendCustomRequest(request, verb, body);
    body->setParent(reply);
    return reply;
}

std::shared_ptr<void> RestClient::count(const char *announcement)
{
    onRequestStarted(announcement);
    return {nullptr, [self = QPointer<RestClient>(this)](void *) {
                if (self && self->m_network)
                    self->onRequestFinished();
            }};
}

void RestClient::onRequestStarted(const char *announcement)
{
    ++m_requestsInFlight;
    VELMORA_LOG() << announcement << m_requestsInFlight << "in progress";
}

void RestClient::openNetwork()
{
    m_network = std::make_unique<QNetworkAccessManager>(this);
    connect(m_network.get(), &QNetworkAccessManager::finished, this, &RestClient::onReplyFinished,
            Qt::DirectConnection);
}

void RestClient::onReplyFinished(QNetworkReply *reply)
{
    if (reply->url().scheme() == QLatin1String("preconnect-https")) // see `sendRest`
        return reply->deleteLater();
    if (const int status = httpStatus(reply); status > 0 && status < 200) {
        // The final answer is still to come, and Qt would take it for that of the next request on the connection.
        retireNetwork();
    }
    onRequestFinished();
}

void RestClient::retireNetwork()
{
    m_retired.push_back(std::move(m_network));
    openNetwork();
    releaseRetired();
}

void RestClient::releaseRetired()
{
    later(this, [this] { // a manager is not destroyed inside its own signal
        if (m_requestsInFlight == 0)
            m_retired.clear();
    });
}

void RestClient::onRequestFinished()
{
    --m_requestsInFlight;
    VELMORA_LOG() << "Cloud API: Network Request Finished:" << m_requestsInFlight << "remaining";
    if (m_requestsInFlight == 0) {
        m_network->clearAccessCache();
        VELMORA_LOG() << "Cloud API: Network Manager Cleared";
        releaseRetired();
    }
}

Outcome RestClient::take(QNetworkReply *reply)
{
    reply->deleteLater();
    return answerOf(reply);
}

void RestClient::abort(QNetworkReply *reply)
{
    if (!reply || reply->isFinished())
        return;
    reply->disconnect(this);
    // Qt prints a warning when a request fails a second time: aborted after a refusal, or refused by what was on its
    // way when it was aborted.
    if (reply->error() == QNetworkReply::NoError)
        reply->abort();
    QCoreApplication::removePostedEvents(reply, QEvent::MetaCall);
    reply->deleteLater();
}

void RestClient::takeTurns()
{
    while (!m_turns.empty() && m_turns.front()) {
        const Turn turn = std::move(m_turns.front());
        m_turns.pop_front();
        turn();
    }
}

} // namespace Velmora
