#include "storage/Exchange.h"

#include "base/UserAgent.h"
#include "storage/Source.h"
#include "storage/TlsContext.h"

#include <algorithm>

namespace Velmora {

namespace {

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
    , m_offset(request.offset)
    , m_etag(request.etag)
{
}

Exchange::~Exchange() { close(); }

CURL *Exchange::open(void *owner, std::function<void(qint64)> onMoved)
{
    m_handle = curl_easy_init();
    if (!m_handle)
        return nullptr;
    m_onMoved = std::move(onMoved);
    m_movedAt = m_activeAt = Clock::now();
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
    if (m_offset > 0) {
        lines += "Range: bytes=" + QByteArray::number(m_offset) + '-';
        lines += "If-Range: " + m_etag; // another file comes from its beginning
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
    if (m_trust.parsed) {
#ifdef _WIN32 // libcurl adds the system's own to them
        const QByteArray &given = m_trust.authorities;
#else
        const QByteArray &given = m_trust.parsed->mark();
        set(CURLOPT_SSL_CTX_DATA, m_trust.parsed.get());
#endif
        curl_blob blob{const_cast<char *>(given.constData()), static_cast<std::size_t>(given.size()), CURL_BLOB_NOCOPY};
        set(CURLOPT_CAINFO_BLOB, &blob);
    }
#ifdef _WIN32
    set(CURLOPT_SSL_OPTIONS, static_cast<long>(CURLSSLOPT_NATIVE_CA));
#endif
    set(CURLOPT_SSL_CTX_FUNCTION, &Exchange::onTls);
}

} // namespace Velmora
