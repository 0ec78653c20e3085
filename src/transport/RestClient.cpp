#include "transport/RestClient.h"

#include "base/Log.h"
#include "base/Portal.h"
#include "transport/RequestBody.h"

#include <QSslConfiguration>
#include <QUrl>

namespace Velmora {

RestClient::RestClient()
    : m_network(std::make_unique<QNetworkAccessManager>(this))
{
    m_readerPool.setMaxThreadCount(1);
    connect(m_network.get(), &QNetworkAccessManager::finished, this, &RestClient::onRequestFinished,
            Qt::DirectConnection);
}

RestClient::~RestClient() { close(); }

void RestClient::close()
{
    m_network.reset();
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
    auto *body = new RequestBody(request.body);
    switch (request.verb) {
    case Verb::Get:
        return sendBody("Cloud API: Network Request Started:", prepared, "GET", body);
    case Verb::Delete:
        return sendBody("Cloud API: Network Request Started:", prepared, "DELETE", body);
    case Verb::DeleteWithBody:
        return sendBody("Cloud API: Custom Network Request Started:", prepared, "DELETE", body);
    case Verb::Post:
        break;
    }
    return sendBody("Cloud API: Network Request Started with text/JSON data:", prepared, "POST", body);
}

QNetworkReply *RestClient::sendGet(const QNetworkRequest &request)
{
    return sendBody("Cloud API: Network Request Started:", request, "GET", new RequestBody({}));
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
    else if (verb == "PUT")
        reply = m_network->put(request, body);
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

void RestClient::onRequestFinished()
{
    --m_requestsInFlight;
    VELMORA_LOG() << "Cloud API: Network Request Finished:" << m_requestsInFlight << "remaining";
    if (m_requestsInFlight == 0) {
        m_network->clearAccessCache();
        VELMORA_LOG() << "Cloud API: Network Manager Cleared";
    }
}

Outcome RestClient::take(QNetworkReply *reply)
{
    reply->deleteLater();
    return outcomeOf(reply, reply->readAll());
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
