#include "storage/Exchange.h"

#include "storage/Sink.h"
#include "storage/Source.h"
#include "storage/TlsContext.h"

#include <algorithm>
#include <iterator>
#include <system_error>

namespace Velmora {

namespace {

constexpr qint64 longestAnswer = 64 * 1024; // enough for the message of a refusal
constexpr qint64 mostOfAnswer = 256 * 1024 * 1024;
constexpr qint64 longestHead = 1024 * 1024;

// What libcurl reports, whether another try may go better, and what the user reads: %1 the server, %2 the proxy, %3 the
// detail, %4 until when the server should have stayed, %5 the way to it.
struct Failure {
    CURLcode result;
    bool mayPass;
    const char *text;
};
constexpr const char closed[] = "%1 closed the connection before %4.";
constexpr Failure failures[] = {
    {CURLE_COULDNT_RESOLVE_HOST, true, "The host of %1 is unknown."},
    {CURLE_COULDNT_RESOLVE_PROXY, true, "The proxy %2 is unknown."},
    {CURLE_COULDNT_CONNECT, true, "No connection to %1%5: %3."},
    {CURLE_PROXY, true, "The proxy %2 does not connect to %1: %3."},
    {CURLE_PEER_FAILED_VERIFICATION, false, "The certificate of %1 is not trusted: %3."},
    {CURLE_SSL_CONNECT_ERROR, true, "No secure connection to %1: %3."},
    {CURLE_OPERATION_TIMEDOUT, true, "The connection to %1 timed out."},
    {CURLE_GOT_NOTHING, true, closed},
    {CURLE_SEND_ERROR, true, closed},
    {CURLE_RECV_ERROR, true, closed},
    {CURLE_PARTIAL_FILE, true, closed},
    {CURLE_SEND_FAIL_REWIND, true, closed},
    {CURLE_ABORTED_BY_CALLBACK, true, closed}, // see beforeRequest
};
constexpr Failure otherFailure{CURLE_OK, false, "The exchange with %1 failed: %3."};

const Failure &failureOf(CURLcode result)
{
    const auto found = std::find_if(std::begin(failures), std::end(failures),
                                    [result](const Failure &failure) { return failure.result == result; });
    return found == std::end(failures) ? otherFailure : *found;
}

// QString::arg would complain about values that a text does not use.
QString filled(const char *text, const QString (&values)[5])
{
    QString result;
    for (; *text != '\0'; ++text)
        result += *text == '%' ? values[*++text - '1'] : QString(QLatin1Char(*text));
    return result;
}

// The length of the whole piece, when "bytes FIRST-LAST/LENGTH" is all of it from `first` on; otherwise negative.
qint64 totalOfRange(const QByteArray &range, qint64 first)
{
    const QByteArray beginning = "bytes " + QByteArray::number(first) + '-';
    const int slash = range.indexOf('/');
    if (!range.startsWith(beginning) || slash < 0)
        return -1;
    bool isNumber = false;
    const qint64 total = range.mid(slash + 1).toLongLong(&isNumber);
    const qint64 last = range.mid(beginning.size(), slash - beginning.size()).toLongLong();
    return isNumber && last >= first && last + 1 == total ? total : -1;
}

} // namespace

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
    m_waitsForShare = false;
    m_activeAt = Clock::now();
    // What libcurl kept back comes while it is resumed, where it does not act on a failure itself.
    const bool goesOn = !std::exchange(m_isPaused, false) || curl_easy_pause(m_handle, CURLPAUSE_CONT) == CURLE_OK;
    return goesOn && !(m_request.sink && m_request.sink->hasFailed());
}

bool Exchange::giveShare(qint64 bytes)
{
    m_share += bytes;
    m_waitsSince = Clock::now();
    return m_share <= 0 || resume();
}

// Whether the limit leaves something to move.
bool Exchange::hasShare()
{
    if (!m_isLimited || m_share > 0)
        return true;
    if (!std::exchange(m_waitsForShare, true))
        m_waitsSince = Clock::now();
    return false;
}

QString Exchange::stalledText(std::chrono::seconds time) const
{
    return QStringLiteral("Nothing was sent to or received from %1 for %2 s.")
        .arg(QString::fromUtf8(m_target.server.mid(m_target.server.indexOf("://") + 3)))
        .arg(time.count());
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
    onProgress(this, 0, 0, 0, sent);                               // the last report need not have come
    const int final = status < 200 ? 0 : static_cast<int>(status); // 1xx is no outcome
    if (m_request.sink)
        settle(final);
    StorageAnswer made{final, m_answer, problemOf(result, final)};
    made.isBroken = isBroken(result, final);
    made.isRangeWrong = m_isRangeWrong || (final == 416 && m_offset > 0);
    made.etag = m_etag;
    return made;
}

// Whether the connection is to blame, or a server that ended it. Another try may go better.
bool Exchange::isBroken(CURLcode result, int status) const
{
    if (!ownProblem().isEmpty())
        return false;
    long tunnel = 0;
    curl_easy_getinfo(m_handle, CURLINFO_HTTP_CONNECTCODE, &tunnel);
    if (status == 0 && tunnel >= 400 && tunnel < 500)
        return false; // the proxy does not want to
    return result == CURLE_OK ? status == 0 || isCutShort(status) : failureOf(result).mayPass;
}

// Whether the answer is a success, and yet not everything was sent, or came. libcurl takes a head for whole that the
// end of the connection cut between two lines.
bool Exchange::isCutShort(int status) const
{
    if (status == 0 || status >= 300)
        return false;
    return !m_isHeadWhole || (m_request.body && m_sent < m_request.body->size()) ||
           (m_total > 0 && m_offset + m_bodyReceived != m_total);
}

// Why the source or the sink cannot go on.
QString Exchange::ownProblem() const
{
    if (m_request.body && !m_request.body->problem().isEmpty())
        return m_request.body->problem();
    return m_request.sink ? m_request.sink->problem() : QString();
}

QString Exchange::problemOf(CURLcode result, int status) const
{
    if (const QString own = ownProblem(); !own.isEmpty())
        return own;
    if (m_isRangeWrong)
        return QStringLiteral("The storage answered with another part of the piece than was asked for.");
    if (m_request.sink && status >= 200 && status < 300 && !hasStatusForSink(status))
        return QStringLiteral("The storage answered with the status %1, not with the piece.").arg(status);
    if (m_request.sink && hasStatusForSink(status) && !isBounded())
        return QStringLiteral("The storage announced neither the length nor the end of its answer, so that it cannot "
                              "be known to be whole.");
    if (result != CURLE_OK)
        return textOf(result, status);
    if (status == 0)
        return textOf(CURLE_GOT_NOTHING, 0);
    if (status >= 300)
        return QStringLiteral("The storage answered with the status %1.").arg(status);
    if (isCutShort(status))
        return m_isHeadWhole && m_request.body ? QStringLiteral("The storage answered before the whole file was sent.")
                                               : textOf(CURLE_PARTIAL_FILE, status);
    return {};
}

bool Exchange::hasStatusForSink(long status) const
{
    return status == 200 || (status == 206 && (m_request.offset > 0 || m_request.hasHeader("Range")));
}

QByteArray Exchange::header(const char *name) const
{
    curl_header *found = nullptr;
    return curl_easy_header(m_handle, name, 0, CURLH_HEADER, -1, &found) == CURLHE_OK ? QByteArray(found->value)
                                                                                      : QByteArray();
}

// Whether the answer has a length, or comes in chunks.
bool Exchange::isBounded() const
{
    curl_off_t length = -1;
    curl_easy_getinfo(m_handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    return length >= 0 || header("Transfer-Encoding").toLower().contains("chunked");
}

// The head of an answer for the sink is there: where in the piece does its body stand? The sink may hold the beginning.
void Exchange::settle(long status)
{
    if (std::exchange(m_isSettled, true))
        return;
    const QByteArray etag = header("ETag");
    if (status == 200) {
        if (std::exchange(m_offset, 0) > 0)
            m_request.sink->restart(); // ranges are nothing to this storage, or it has another file now
        m_etag = etag.startsWith('"') ? etag : QByteArray();
    } else if (status == 206 && m_offset > 0) {
        m_total = totalOfRange(header("Content-Range"), m_offset);
        m_isRangeWrong = m_total < 0 || (!etag.isEmpty() && etag != m_etag);
    }
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
    if (result == CURLE_COULDNT_CONNECT && error != 0)
        detail = QString::fromLocal8Bit(std::system_category().message(static_cast<int>(error)).c_str());
    if (result == CURLE_PEER_FAILED_VERIFICATION)
        detail.remove(QStringLiteral("SSL certificate problem: ")).remove(QStringLiteral("SSL: "));
    if (detail.isEmpty())
        detail = QString::fromLatin1(curl_easy_strerror(result));
    return filled(failureOf(result).text,
                  {server, proxy, detail,
                   status == 0 ? QStringLiteral("it answered") : QStringLiteral("its answer was complete"),
                   m_proxy.kind == Proxy::None ? QString() : QStringLiteral(" by the proxy ") + proxy});
}

std::size_t Exchange::onRead(char *to, std::size_t size, std::size_t count, void *self)
{
    auto &exchange = *static_cast<Exchange *>(self);
    std::size_t room = size * count, taken = 0;
    if (!exchange.hasShare()) {
        exchange.m_isPaused = true;
        return CURL_READFUNC_PAUSE;
    }
    if (exchange.m_isLimited)
        room = std::min(room, static_cast<std::size_t>(exchange.m_share));
    switch (exchange.m_request.body->take(to, room, &taken)) {
    case Source::State::Taken:
        exchange.m_share -= exchange.m_isLimited ? static_cast<qint64>(taken) : 0;
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
    settle(status);
    m_isRangeWrong = m_isRangeWrong || (m_total > 0 && m_offset + m_bodyReceived + static_cast<qint64>(size) > m_total);
    if (!hasStatusForSink(status) || m_isRangeWrong || (m_bodyReceived == 0 && !isBounded()))
        return 0;
    if (!hasShare()) {
        m_isPaused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    switch (m_request.sink->put(data, size)) {
    case Sink::State::Taken:
        m_bodyReceived += static_cast<qint64>(size);
        m_share -= m_isLimited ? static_cast<qint64>(size) : 0;
        m_movedAt = Clock::now();
        m_onMoved(m_offset + m_bodyReceived);
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

std::size_t Exchange::onHeader(const char *line, std::size_t size, std::size_t count, void *self)
{
    auto &exchange = *static_cast<Exchange *>(self);
    const bool isFirst = QByteArray::fromRawData(line, static_cast<int>(size * count)).startsWith("HTTP/");
    exchange.m_isHeadWhole = !isFirst && (exchange.m_isHeadWhole || *line == '\r' || *line == '\n'); // a blank line
    exchange.m_headReceived += static_cast<qint64>(size * count);
    exchange.m_activeAt = Clock::now();
    return exchange.m_headReceived > longestHead ? 0 : size * count;
}

int Exchange::onProgress(void *self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent)
{
    auto &exchange = *static_cast<Exchange *>(self);
    if (std::exchange(exchange.m_counted, received + sent) != received + sent)
        exchange.m_activeAt = Clock::now();
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

CURLcode Exchange::onTls(CURL *, void *context, void *authorities)
{
    if (authorities)
        static_cast<TlsAuthorities *>(authorities)->setFor(context);
    adjustTlsContext(context);
    return CURLE_OK;
}

} // namespace Velmora
