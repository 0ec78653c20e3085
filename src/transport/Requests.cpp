// Building, sending, counting and logging of requests.

#include "api/CloudAPIImpl.h"
#include "base/Log.h"
#include "base/Portal.h"
#include "transport/RequestBody.h"

#include <QNetworkReply>
#include <QSslConfiguration>
#include <QUrl>

namespace Velmora {

namespace {

// Nothing is repeated or followed behind the host's back: each request reaches the service once.
void restrict(QNetworkRequest &request)
{
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
}

// The network layer neither buffers nor measures a body that cannot be rewound.
void announceBody(QNetworkRequest &request, qint64 size)
{
    request.setHeader(QNetworkRequest::ContentLengthHeader, size);
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
}

} // namespace

QString CloudAPIImpl::baseUrl() const { return QStringLiteral("https://%1/api/").arg(portalHost(m_portal)); }

QUrl CloudAPIImpl::endpointUrl(RequestType type) const
{
    const Endpoint *endpoint = findEndpoint(type);
    return endpoint ? QUrl(baseUrl() + QLatin1String(endpoint->path)) : QUrl();
}

QNetworkRequest CloudAPIImpl::buildRequest(RequestType type) const
{
    QNetworkRequest request(endpointUrl(type));
    const Endpoint *endpoint = findEndpoint(type);
    if (!endpoint || endpoint->json)
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    else if (!m_idToken.isEmpty())
        request.setSslConfiguration(QSslConfiguration::defaultConfiguration());
    if (!m_idToken.isEmpty())
        request.setRawHeader("Authorization", m_idToken.toUtf8());
    return request;
}

void CloudAPIImpl::announce(const char *text)
{
    ++m_requestsInFlight;
    VELMORA_LOG() << text << m_requestsInFlight << "in progress";
}

QNetworkReply *CloudAPIImpl::sendJson(QNetworkRequest request, const QByteArray &body)
{
    announce("Cloud API: Network Request Started with text/JSON data:");
    restrict(request);
    announceBody(request, body.size());
    auto *device = new RequestBody(body, nullptr, {});
    QNetworkReply *reply = m_network->post(request, device);
    device->setParent(reply);
    return reply;
}

QNetworkReply *CloudAPIImpl::sendGet(QNetworkRequest request)
{
    announce("Cloud API: Network Request Started:");
    return sendOnce(request, "GET", {});
}

QNetworkReply *CloudAPIImpl::sendDelete(QNetworkRequest request)
{
    announce("Cloud API: Network Request Started:");
    return sendOnce(request, "DELETE", {});
}

QNetworkReply *CloudAPIImpl::sendCustom(QNetworkRequest request, const QByteArray &verb, const QByteArray &body)
{
    announce("Cloud API: Custom Network Request Started:");
    return sendOnce(request, verb, body);
}

// Also without a body: the network layer repeats what it could send again, and an empty body that
// cannot be rewound keeps it from that.
QNetworkReply *CloudAPIImpl::sendOnce(QNetworkRequest request, const QByteArray &verb, const QByteArray &body)
{
    restrict(request);
    announceBody(request, body.size());
    auto *device = new RequestBody(body, nullptr, {});
    QNetworkReply *reply = m_network->sendCustomRequest(request, verb, device);
    device->setParent(reply);
    return reply;
}

QNetworkReply *CloudAPIImpl::sendMultipart(QNetworkRequest request, RequestBody *body)
{
    announce("Cloud API: Network Request Started with multipart:");
    restrict(request);
    announceBody(request, body->size());
    QNetworkReply *reply = m_network->post(request, body);
    body->setParent(reply);
    return reply;
}

QNetworkReply *CloudAPIImpl::sendStream(QNetworkRequest request, const QByteArray &verb, RequestBody *body)
{
    announce("Cloud API: Network Request Started with stream data:");
    restrict(request);
    announceBody(request, body->size());
    QNetworkReply *reply = verb == "PUT" ? m_network->put(request, body) : m_network->post(request, body);
    body->setParent(reply);
    return reply;
}

QNetworkReply *CloudAPIImpl::send(const Request &request)
{
    QNetworkRequest prepared = buildRequest(request.type);
    if (!request.suffix.isEmpty())
        prepared.setUrl(QUrl(prepared.url().toString() + request.suffix));
    switch (request.verb) {
    case Verb::Get:
        return sendGet(prepared);
    case Verb::Delete:
        return sendDelete(prepared);
    case Verb::DeleteWithBody:
        return sendCustom(prepared, "DELETE", request.body);
    case Verb::Post:
        break;
    }
    return sendJson(prepared, request.body);
}

void CloudAPIImpl::onRequestFinished()
{
    --m_requestsInFlight;
    VELMORA_LOG() << "Cloud API: Network Request Finished:" << m_requestsInFlight << "remaining";
    if (m_requestsInFlight == 0) {
        m_network->clearAccessCache();
        VELMORA_LOG() << "Cloud API: Network Manager Cleared";
    }
}

} // namespace Velmora
