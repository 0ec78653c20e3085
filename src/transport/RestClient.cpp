#include "transport/RestClient.h"

#include "base/Log.h"
#include "base/Portal.h"
#include "transport/ProxyWatch.h"
#include "transport/RequestBody.h"

#include <QSslConfiguration>
#include <QUrl>

namespace Velmora {

RestClient::RestClient()
{
    m_readerPool.setMaxThreadCount(1);
    openNetwork();
}

RestClient::~RestClient() { close(); }

void RestClient::close()
{
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

QNetworkReply *RestClient::send(const Request &request)
{
    const QNetworkRequest prepared = buildRequest(request.endpoint, request.suffix);
    switch (request.verb) {
    case Verb::Get:
        return sendRest("Cloud API: Network Request Started:", prepared, "GET", request.body);
    case Verb::Delete:
        return sendRest("Cloud API: Network Request Started:", prepared, "DELETE", request.body);
    case Verb::DeleteWithBody:
        return sendRest("Cloud API: Custom Network Request Started:", prepared, "DELETE", request.body);
    case Verb::Post:
        break;
    }
    return sendRest("Cloud API: Network Request Started with text/JSON data:", prepared, "POST", request.body);
}

QNetworkReply *RestClient::sendProbe()
{
    return sendRest("Cloud API: Network Request Started:", QNetworkRequest(QUrl(baseUrl())), "GET", {});
}

// Asking for gzip by this header turns the network layer's unpacking off, which neither notices that a body was cut nor
// bounds what comes out.
QNetworkReply *RestClient::sendRest(const char *announcement, QNetworkRequest request, const QByteArray &verb,
                                    const QByteArray &body)
{
    request.setRawHeader("Accept-Encoding", "gzip");
    auto *device = new RequestBody(body);
    QNetworkReply *reply = sendBody(announcement, request, verb, device);
    limitAnswer(reply, m_limits);
    // A connection more makes the network layer start what waits for one.
    new ProxyWatch(reply, device, m_proxyWatchInterval, [network = reply->manager(), url = reply->url()] {
        network->connectToHostEncrypted(url.host(), static_cast<quint16>(url.port(443)));
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
        m_retired.push_back(std::move(m_network));
        openNetwork();
    }
    onRequestFinished();
}

void RestClient::onRequestFinished()
{
    --m_requestsInFlight;
    VELMORA_LOG() << "Cloud API: Network Request Finished:" << m_requestsInFlight << "remaining";
    if (m_requestsInFlight == 0) {
        m_network->clearAccessCache();
        VELMORA_LOG() << "Cloud API: Network Manager Cleared";
        later(this, [this] { // a manager is not destroyed inside its own signal
            if (m_requestsInFlight == 0)
                m_retired.clear();
        });
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
    reply->abort();
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
