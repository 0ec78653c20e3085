#pragma once

#include "storage/Request.h"
#include "storage/Route.h"

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <functional>

namespace Velmora {

/// One request and its answer, as libcurl runs them. Made anywhere, used on the storage thread only.
class Exchange {
public:
    using Clock = std::chrono::steady_clock;

    Exchange(const StorageRequest &request, const Target &target, const Proxy &proxy, const Trust &trust);
    ~Exchange();
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;

    /// Connections that compete for the same line to the same server.
    const QByteArray &server() const { return m_target.server; }
    const std::shared_ptr<Source> &body() const { return m_request.body; }
    const std::shared_ptr<Sink> &sink() const { return m_request.sink; }
    /// Whether more than `small` bytes are sent or received, as far as is known.
    bool isLarger(qint64 small) const;

    /// Makes the handle, which tells of bytes that were sent, or with a sink received. Null when memory is short.
    CURL *open(void *owner, std::function<void(qint64 bytes)> onMoved);
    CURL *handle() const { return m_handle; }
    /// Continues a body that had nothing ready, or no room. @return false: it cannot go on, and must be ended
    bool resume();
    /// Whether it moves only the bytes that `giveShare` gives it.
    void setLimited(bool limited) { m_isLimited = limited; }
    /// @return false: it cannot go on, and must be ended
    bool giveShare(qint64 bytes);
    /// Bytes that are left of it. Below 0: received beyond it, because the last packet was larger.
    qint64 share() const { return m_share; }
    bool waitsForShare() const { return m_waitsForShare; }
    Clock::time_point waitsSince() const { return m_waitsSince; }
    /// Ends the exchange with libcurl's result.
    StorageAnswer answer(CURLcode result);
    /// Frees what libcurl holds of it.
    void close();

    /// When the body last went on, and whether all of it has been sent. A disk without room holds nobody else up.
    Clock::time_point movedAt() const { return m_isFull || m_waitsForShare ? Clock::now() : m_movedAt; }
    /// When a byte last came or went. What waits for our own disk, or for a share, is no stall.
    Clock::time_point activeAt() const { return m_isPaused ? Clock::now() : m_activeAt; }
    QString stalledText(std::chrono::seconds time) const;
    bool isSent() const { return m_isSent; }

private:
    void setBody();
    void setHeaders();
    void setProxy();
    void setTrust();
    template <class Value> void set(CURLoption option, Value value) { curl_easy_setopt(m_handle, option, value); }
    QString textOf(CURLcode result, int status) const;
    bool hasStatusForSink(long status) const;
    QByteArray header(const char *name) const;
    bool isBounded() const;
    void settle(long status);
    bool hasShare();
    bool isBroken(CURLcode result, int status) const;
    bool isCutShort(int status) const;
    QString ownProblem() const;
    QString problemOf(CURLcode result, int status) const;
    std::size_t store(const char *data, std::size_t size, long status);

    static std::size_t onRead(char *to, std::size_t size, std::size_t count, void *self);
    static std::size_t onWrite(const char *data, std::size_t size, std::size_t count, void *self);
    static std::size_t onHeader(const char *data, std::size_t size, std::size_t count, void *self);
    static int onProgress(void *self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent);
    static int beforeRequest(void *self, char *, char *, int, int);
    static CURLcode onTls(CURL *, void *context, void *authorities);

    const StorageRequest m_request;
    const Target m_target;
    const Proxy m_proxy;
    const Trust m_trust;
    const QByteArray m_requestTarget;
    qint64 m_offset; ///< bytes of the piece before the answer's body
    QByteArray m_etag;
    qint64 m_total = 0; ///< bytes of a piece of which the end was asked for; 0: not known
    bool m_isHeadWhole = false;
    bool m_isSettled = false;
    bool m_isRangeWrong = false;
    CURL *m_handle = nullptr;
    curl_slist *m_headers = nullptr;
    char m_error[CURL_ERROR_SIZE] = {};
    std::function<void(qint64)> m_onMoved;
    QByteArray m_answer;
    qint64 m_taken = 0;        ///< bytes of the body
    qint64 m_sent = 0;         ///< those that have gone out
    qint64 m_headReceived = 0; ///< bytes
    qint64 m_bodyReceived = 0; ///< bytes
    qint64 m_counted = 0;      ///< bytes both ways, as libcurl counts them
    qint64 m_share = 0;        ///< bytes that may be moved, when it is limited
    Clock::time_point m_movedAt;
    Clock::time_point m_activeAt;
    Clock::time_point m_waitsSince;
    bool m_isLimited = false;
    bool m_waitsForShare = false;
    bool m_isSent = false;
    bool m_isPaused = false;
    bool m_isFull = false; ///< the sink has no room
};

} // namespace Velmora
