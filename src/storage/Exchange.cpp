#include "storage/Exchange.h"

#include "base/UserAgent.h"
#include "storage/Sink.h"
#include "storage/Source.h"
#include "storage/TlsContext.h"

#include <algorithm>
#include <system_error>

namespace Velmora {

namespace {

constexpr qint64 longestAnswer = 64 * 1024; // enough for the message of a refusal
constexpr qint64 mostOfAnswer = 256 * 1024 * 1024;
constexpr qint64 longestHead = 1024 * 1024;
constexpr long longestUploadBuffer = 512 * 1024; // what one call to the TLS layer gets
constexpr long receiveBuffer = 256 * 1024;
constexpr long shortestUploadBuffer = 16 * 1024;
constexpr long longestIdle = 15; // seconds; a server that has waited longer may be closing the connection right now

// What frames the body is the client's business.
bool isFraming(const QByteArray &name)
{
    for (const char *each : {"Content-Length", "Transfer-Encoding", "Expect"}) {
        if (name.compare(each, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

} // namespace

Exchange::Exchange(const StorageRequest &request, const Target &target, const Proxy &proxy, const Trust &trust)
    : m_request(request)
    , m_target(target)
    , m_proxy(proxy)
    , m_trust(trust)
    // An HTTP proxy that does not tunnel is asked for the whole address.
    , m_requestTarget(proxy.kind == Proxy::Http && target.server.startsWith("http:") ? target.server + target.path
                                                                                     : target.path)
{
}

Exchange::~Exchange() { close(); }

CURL *Exchange::open(void *owner, std::function<void(qint64)> onMoved)
{
    m_handle = curl_easy_init();
    if (!m_handle)
        return nullptr;
    m_onMoved = std::move(onMoved);
    m_movedAt = Clock::now();
    m_isSent = !m_request.body;
    set(CURLOPT_PRIVATE, owner);
    set(CURLOPT_ERRORBUFFER, static_cast<char *>(m_error));
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_TCP_NODELAY, 1L);
    set(CURLOPT_MAXAGE_CONN, longestIdle);
#if LIBCURL_VERSION_NUM >= 0x075700
    set(CURLOPT_QUICK_EXIT, 1L); // else whoever cancels waits for the resolver
#endif
    set(CURLOPT_PATH_AS_IS, 1L);
    set(CURLOPT_URL, m_target.server.constData());
    set(CURLOPT_REQUEST_TARGET, m_requestTarget.constData());
    set(CURLOPT_WRITEFUNCTION, &Exchange::onWrite);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_HEADERFUNCTION, &Exchange::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &Exchange::onProgress);
    set(CURLOPT_XFERINFODATA, this);
    set(CURLOPT_PREREQFUNCTION, &Exchange::beforeRequest);
    set(CURLOPT_PREREQDATA, this);
    setBody();
    setHeaders();
    setProxy();
    setTrust();
    return m_handle;
}

void Exchange::setBody()
{
    if (m_request.sink)
        set(CURLOPT_BUFFERSIZE, receiveBuffer);
    if (!m_request.body && m_request.form.isEmpty()) {
        set(CURLOPT_HTTPGET, 1L);
        return;
    }
    if (!m_request.body) {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(m_request.form.size()));
        set(CURLOPT_POSTFIELDS, m_request.form.constData());
        set(CURLOPT_FRESH_CONNECT, 1L); // on one that was kept, and is dead, it would be sent a second time
        return;
    }
    const auto size = static_cast<curl_off_t>(m_request.body->size());
    if (m_request.verb == "PUT") {
        set(CURLOPT_UPLOAD, 1L);
        set(CURLOPT_INFILESIZE_LARGE, size);
    } else {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, size);
    }
    // No way to rewind it: a body that has begun to go out is never sent a second time.
    set(CURLOPT_READFUNCTION, &Exchange::onRead);
    set(CURLOPT_READDATA, this);
    set(CURLOPT_UPLOAD_BUFFERSIZE,
        static_cast<long>(std::clamp<curl_off_t>(size, shortestUploadBuffer, longestUploadBuffer)));
}

void Exchange::setHeaders()
{
    set(CURLOPT_USERAGENT, userAgent); // the address's own one, if it has any, takes its place
    QByteArrayList lines{"Expect:"};   // without a value: not sent
    if (!m_request.hasHeader("Accept"))
        lines += "Accept:";
    for (const auto &[name, value] : m_request.headers) {
        if (!isFraming(name))
            lines += value.isEmpty() ? name + ';' : name + ": " + value;
    }
    for (const QByteArray &line : lines)
        m_headers = curl_slist_append(m_headers, line.constData());
    set(CURLOPT_HTTPHEADER, m_headers);
}

void Exchange::setProxy()
{
    set(CURLOPT_NOPROXY, ""); // set, so that the environment is not read
    if (m_proxy.kind == Proxy::None) {
        set(CURLOPT_PROXY, "");
        return;
    }
    const bool socks = m_proxy.kind == Proxy::Socks5;
    set(CURLOPT_PROXY, m_proxy.host.constData());
    set(CURLOPT_PROXYPORT, static_cast<long>(m_proxy.port));
    set(CURLOPT_PROXYTYPE, static_cast<long>(socks ? CURLPROXY_SOCKS5_HOSTNAME : CURLPROXY_HTTP));
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    if (m_proxy.user.isEmpty())
        return;
    set(CURLOPT_PROXYUSERNAME, m_proxy.user.constData());
    set(CURLOPT_PROXYPASSWORD, m_proxy.password.constData());
    // The others take a first request that is refused, which only a tunnel has none of the body in.
    const bool tunnel = m_target.server.startsWith("https:");
    set(CURLOPT_PROXYAUTH,
        static_cast<long>(tunnel ? CURLAUTH_BASIC | CURLAUTH_DIGEST | CURLAUTH_NTLM : CURLAUTH_BASIC));
}

void Exchange::setTrust()
{
    set(CURLOPT_SSL_VERIFYPEER, m_trust.isVerified ? 1L : 0L);
    set(CURLOPT_SSL_VERIFYHOST, m_trust.isVerified ? 2L : 0L);
    set(CURLOPT_CAINFO, static_cast<const char *>(nullptr)); // nothing but what follows
    set(CURLOPT_CAPATH, static_cast<const char *>(nullptr));
    if (!m_trust.authorities.isEmpty()) {
        curl_blob blob{const_cast<char *>(m_trust.authorities.constData()),
                       static_cast<std::size_t>(m_trust.authorities.size()), CURL_BLOB_NOCOPY};
        set(CURLOPT_CAINFO_BLOB, &blob);
    }
#ifdef _WIN32
    set(CURLOPT_SSL_OPTIONS, static_cast<long>(CURLSSLOPT_NATIVE_CA));
#endif
    set(CURLOPT_SSL_CTX_FUNCTION, &Exchange::onTls);
}

bool Exchange::isLarger(qint64 small) const
{
    const qint64 sent = m_request.body ? m_request.body->size() : 0;
    return std::max({sent, m_request.expected, m_bodyReceived}) > small;
}

bool Exchange::resume()
{
    if (!m_handle)
        return true;
    m_isFull = false;
    // What libcurl kept back comes while it is resumed, where it does not act on a failure itself.
    const bool goesOn = !std::exchange(m_isPaused, false) || curl_easy_pause(m_handle, CURLPAUSE_CONT) == CURLE_OK;
    return goesOn && !(m_request.sink && m_request.sink->hasFailed());
}

void Exchange::close()
{
    if (m_handle)
        curl_easy_cleanup(m_handle);
    curl_slist_free_all(m_headers);
    m_handle = nullptr;
    m_headers = nullptr;
    m_onMoved = nullptr;
    if (m_request.body)
        m_request.body->stop();
    if (m_request.sink)
        m_request.sink->detach();
}

StorageAnswer Exchange::answer(CURLcode result)
{
    long status = 0;
    curl_easy_getinfo(m_handle, CURLINFO_RESPONSE_CODE, &status);
    curl_off_t sent = 0;
    curl_easy_getinfo(m_handle, CURLINFO_SIZE_UPLOAD_T, &sent);
    onProgress(this, 0, 0, 0, sent);                                               // the last report need not have come
    StorageAnswer made{status < 200 ? 0 : static_cast<int>(status), m_answer, {}}; // 1xx is no outcome
    made.problem = problemOf(result, made.status);
    return made;
}

QString Exchange::problemOf(CURLcode result, int status) const
{
    if (m_request.body && !m_request.body->problem().isEmpty())
        return m_request.body->problem();
    if (m_request.sink && !m_request.sink->problem().isEmpty())
        return m_request.sink->problem();
    if (m_request.sink && status >= 200 && status < 300 && !hasStatusForSink(status))
        return QStringLiteral("The storage answered with the status %1, not with the piece.").arg(status);
    if (m_request.sink && hasStatusForSink(status) && !isBounded())
        return QStringLiteral("The storage announced neither the length nor the end of its answer, so that it cannot "
                              "be known to be whole.");
    if (result != CURLE_OK)
        return textOf(result, status);
    if (status == 0)
        return textOf(CURLE_GOT_NOTHING, 0);
    if (status < 300 && m_request.body && m_sent < m_request.body->size())
        return QStringLiteral("The storage answered before the whole file was sent.");
    return {};
}

bool Exchange::hasStatusForSink(long status) const
{
    return status == 200 || (status == 206 && m_request.hasHeader("Range"));
}

// Whether the answer has a length, or comes in chunks.
bool Exchange::isBounded() const
{
    curl_off_t length = -1;
    curl_easy_getinfo(m_handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (length >= 0)
        return true;
    curl_header *coding = nullptr;
    return curl_easy_header(m_handle, "Transfer-Encoding", 0, CURLH_HEADER, -1, &coding) == CURLHE_OK &&
           QByteArray(coding->value).toLower().contains("chunked");
}

QString Exchange::textOf(CURLcode result, int status) const
{
    const QString server = QString::fromUtf8(m_target.server.mid(m_target.server.indexOf("://") + 3));
    const QString proxy = QString::fromUtf8(m_proxy.host);
    long error = 0;
    curl_easy_getinfo(m_handle, CURLINFO_OS_ERRNO, &error);
    QString detail = QString::fromLocal8Bit(m_error);
    long tunnel = 0;
    curl_easy_getinfo(m_handle, CURLINFO_HTTP_CONNECTCODE, &tunnel);
    if (status == 0 && tunnel >= 300) {
        result = CURLE_PROXY;
        detail = QStringLiteral("It answered with %1").arg(tunnel);
    }
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return QStringLiteral("The host of %1 is unknown.").arg(server);
    case CURLE_COULDNT_RESOLVE_PROXY:
        return QStringLiteral("The proxy %1 is unknown.").arg(proxy);
    case CURLE_COULDNT_CONNECT:
        if (error != 0)
            detail = QString::fromLocal8Bit(std::system_category().message(static_cast<int>(error)).c_str());
        return m_proxy.kind == Proxy::None
                   ? QStringLiteral("No connection to %1: %2.").arg(server, detail)
                   : QStringLiteral("No connection to %1 by the proxy %2: %3.").arg(server, proxy, detail);
    case CURLE_PROXY:
        return QStringLiteral("The proxy %1 does not connect to %2: %3.").arg(proxy, server, detail);
    case CURLE_PEER_FAILED_VERIFICATION:
        detail.remove(QStringLiteral("SSL certificate problem: ")).remove(QStringLiteral("SSL: "));
        return QStringLiteral("The certificate of %1 is not trusted: %2.").arg(server, detail);
    case CURLE_SSL_CONNECT_ERROR:
        return QStringLiteral("No secure connection to %1: %2.").arg(server, detail);
    case CURLE_OPERATION_TIMEDOUT:
        return QStringLiteral("The connection to %1 timed out.").arg(server);
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_SEND_FAIL_REWIND:
    case CURLE_ABORTED_BY_CALLBACK: // see beforeRequest
        return status == 0 ? QStringLiteral("%1 closed the connection before it answered.").arg(server)
                           : QStringLiteral("%1 closed the connection before its answer was complete.").arg(server);
    default:
        if (detail.isEmpty())
            detail = QString::fromLatin1(curl_easy_strerror(result));
        return QStringLiteral("The exchange with %1 failed: %2.").arg(server, detail);
    }
}

std::size_t Exchange::onRead(char *to, std::size_t size, std::size_t count, void *self)
{
    auto &exchange = *static_cast<Exchange *>(self);
    std::size_t taken = 0;
    switch (exchange.m_request.body->take(to, size * count, &taken)) {
    case Source::State::Taken:
        exchange.m_taken += static_cast<qint64>(taken);
        exchange.m_isSent = exchange.m_taken == exchange.m_request.body->size();
        exchange.m_movedAt = Clock::now();
        return taken;
    case Source::State::NotReady:
        exchange.m_isPaused = true;
        return CURL_READFUNC_PAUSE;
    case Source::State::Ended:
        return 0;
    case Source::State::Failed:
        break;
    }
    return CURL_READFUNC_ABORT;
}

std::size_t Exchange::onWrite(const char *data, std::size_t size, std::size_t count, void *self)
{
    auto &exchange = *static_cast<Exchange *>(self);
    const qint64 length = static_cast<qint64>(size) * static_cast<qint64>(count);
    long status = 0;
    curl_easy_getinfo(exchange.m_handle, CURLINFO_RESPONSE_CODE, &status);
    if (exchange.m_request.sink && status < 300)
        return exchange.store(data, size * count, status);
    exchange.m_bodyReceived += length;
    if (exchange.m_bodyReceived > mostOfAnswer)
        return 0;
    const qint64 kept = std::min(length, longestAnswer - exchange.m_answer.size());
    exchange.m_answer.append(data, static_cast<int>(kept));
    return size * count;
}

std::size_t Exchange::store(const char *data, std::size_t size, long status)
{
    if (!hasStatusForSink(status) || (m_bodyReceived == 0 && !isBounded()))
        return 0;
    switch (m_request.sink->put(data, size)) {
    case Sink::State::Taken:
        m_bodyReceived += static_cast<qint64>(size);
        m_movedAt = Clock::now();
        m_onMoved(m_bodyReceived);
        return size;
    case Sink::State::Full:
        m_isPaused = true;
        m_isFull = true;
        return CURL_WRITEFUNC_PAUSE;
    case Sink::State::Failed:
        break;
    }
    return 0;
}

std::size_t Exchange::onHeader(const char *, std::size_t size, std::size_t count, void *self)
{
    auto &exchange = *static_cast<Exchange *>(self);
    exchange.m_headReceived += static_cast<qint64>(size * count);
    return exchange.m_headReceived > longestHead ? 0 : size * count;
}

int Exchange::onProgress(void *self, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent)
{
    auto &exchange = *static_cast<Exchange *>(self);
    if (sent > exchange.m_sent) {
        exchange.m_sent = sent;
        if (!exchange.m_request.sink)
            exchange.m_onMoved(sent);
    }
    return 0;
}

// Runs before each try. libcurl tries again when a connection that it kept turns out to be dead. That is right as long
// as nothing of the body was taken; the rest of one is not a body.
int Exchange::beforeRequest(void *self, char *, char *, int, int)
{
    return static_cast<Exchange *>(self)->m_taken > 0 ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

CURLcode Exchange::onTls(CURL *, void *context, void *)
{
    adjustTlsContext(context);
    return CURLE_OK;
}

} // namespace Velmora
