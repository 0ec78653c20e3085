#include "portal/http/Connection.h"

#include <boost/asio/write.hpp>
#include <boost/beast/http/error.hpp>

namespace VelmoraPortal {
namespace {

constexpr auto closingTime = std::chrono::seconds(5);
constexpr auto goodbyeTime = std::chrono::milliseconds(50);

std::string informationalHead(int status)
{
    if (status == 100)
        return "HTTP/1.1 100 Continue\r\n\r\n";
    return "HTTP/1.1 " + std::to_string(status) + (status == 103 ? " Early Hints" : " Informational") +
           "\r\nLink: </hint>; rel=preload\r\n\r\n";
}

bool closes(Closing closing)
{
    return closing == Closing::Notify || closing == Closing::End || closing == Closing::Reset;
}

} // namespace

void Connection::answer(Answer answer)
{
    m_answer = std::move(answer);
    if (m_answer.informational.empty())
        return after(m_answer.delay, [self = shared_from_this()] { self->finish(); });
    m_out.clear();
    for (const int status : m_answer.informational)
        m_out += informationalHead(status);
    lowest().expires_after(idleTime);
    net::async_write(m_stream, net::buffer(m_out), [self = shared_from_this()](error_code error, auto) {
        if (!error)
            self->after(self->m_answer.delay, [self] { self->finish(); });
    });
}

void Connection::finish()
{
    switch (m_answer.ending) {
    case Answer::Ending::Reset:
        return reset(lowest().socket());
    case Answer::Ending::HangUp:
        return hangUp(lowest());
    case Answer::Ending::Silence:
        return discard();
    case Answer::Ending::Stall:
        return hold();
    case Answer::Ending::Raw:
        m_keepAlive = m_answer.keepOpen;
        m_left = 0;
        m_out = std::move(m_answer.response.body);
        return writeHead(0);
    case Answer::Ending::Whole:
    case Answer::Ending::CutHead:
    case Answer::Ending::CutBody:
        return write();
    }
}

void Connection::write()
{
    HttpResponse &response = m_answer.response;
    const bool bodiless = response.status == 204 || response.status == 304 || response.status < 200;
    if (m_answer.rate > 0 && !response.source)
        response.source = textBytes(std::move(response.body));
    const std::uint64_t size = response.source ? response.source->size() : response.body.size();
    const bool named = m_answer.lengthKnown || bodiless;
    m_keepAlive = m_keepAlive && m_answer.keepOpen && named && !closes(m_answer.closing);
    m_out = "HTTP/1.1 " + std::to_string(response.status) + ' ' +
            std::string(http::obsolete_reason(http::int_to_status(static_cast<unsigned>(response.status)))) +
            "\r\nServer: velmora-portal\r\n";
    if (size > 0 && !bodiless)
        m_out += "Content-Type: " + response.contentType + "\r\n";
    for (const auto &[name, value] : response.headers)
        m_out += name + ": " + value + "\r\n";
    if (!bodiless && named)
        m_out += "Content-Length: " + std::to_string(size) + "\r\n";
    m_out += m_keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
    if (m_answer.ending == Answer::Ending::CutHead)
        m_out.resize(m_out.size() / 2);
    m_left = bodiless || m_head || m_answer.ending == Answer::Ending::CutHead ? 0 : size;
    if (m_answer.ending == Answer::Ending::CutBody)
        m_left = std::min<std::uint64_t>(m_left, static_cast<std::uint64_t>(std::max(m_answer.bytes, 0LL)));
    if (!response.source) { // short: one write, one TLS record
        m_out.append(response.body, 0, static_cast<std::size_t>(m_left));
        m_left = 0;
    }
    writeHead(0);
}

void Connection::writeHead(std::size_t from)
{
    m_chunk.clear();
    m_chunkSent = 0;
    if (from == m_out.size())
        return writeBody();
    const std::size_t count = m_answer.drip ? 1 : m_out.size();
    lowest().expires_after(idleTime);
    net::async_write(m_stream, net::buffer(m_out.data() + from, count),
                     [self = shared_from_this(), end = from + count](error_code error, std::size_t written) {
                         if (!error)
                             self->after(duration(self->m_answer.drip ? written : 0, self->m_answer.rate),
                                         [self, end] { self->writeHead(end); });
                     });
}

void Connection::writeBody()
{
    if (m_left == 0)
        return written();
    if (m_chunkSent == m_chunk.size()) {
        m_chunk.resize(chunkSize);
        m_chunkSent = 0;
        try {
            m_chunk.resize(m_answer.response.source->give(m_chunk.data(), m_chunk.size()));
        } catch (const std::exception &) {
            m_chunk.clear();
        }
        if (m_chunk.empty())
            return hangUp(lowest()); // the length was sent already: an early end is the only sign left
    }
    const std::size_t ready = std::min<std::uint64_t>(m_left, m_chunk.size() - m_chunkSent);
    const std::size_t count = m_answer.drip ? 1 : slice(m_answer.rate, ready);
    lowest().expires_after(idleTime);
    net::async_write(m_stream, net::buffer(m_chunk.data() + m_chunkSent, count),
                     [self = shared_from_this(), count](error_code error, auto) {
                         if (error)
                             return;
                         self->m_chunkSent += count;
                         self->m_left -= count;
                         self->after(duration(count, self->m_answer.rate), [self] { self->writeBody(); });
                     });
}

void Connection::written()
{
    const bool whole = m_answer.ending == Answer::Ending::Whole || m_answer.ending == Answer::Ending::Raw;
    m_answer.response.source.reset();
    switch (m_answer.closing) {
    case Closing::Notify:
        return shutDown();
    case Closing::End:
        return m_bodyLeft > 0 ? drain() : hangUp(lowest());
    case Closing::Reset:
        return reset(lowest().socket());
    case Closing::Hold:
        return hold();
    case Closing::Skip:
        return skipBody();
    case Closing::Usual:
        break;
    }
    if (!whole)
        hangUp(lowest());
    else if (m_drain)
        drain();
    else if (m_keepAlive)
        readHead();
    else
        shutDown();
}

void Connection::shutDown()
{
    lowest().expires_after(closingTime);
    m_stream.async_shutdown([self = shared_from_this()](error_code) {
        if (self->m_bodyLeft > 0)
            self->drain();
        else
            hangUp(self->lowest());
    });
    // For some clients a body without a length ends with the connection, not with TLS.
    m_timer.expires_after(goodbyeTime);
    m_timer.async_wait([self = shared_from_this()](error_code error) {
        error_code ignored;
        if (error)
            return;
        self->lowest().socket().shutdown(tcp::socket::shutdown_send, ignored);
    });
}

/// A close with unread input would reset the connection and lose the answer.
void Connection::drain()
{
    error_code ignored;
    lowest().socket().shutdown(tcp::socket::shutdown_send, ignored);
    lowest().expires_after(closingTime);
    drainMore();
}

void Connection::drainMore()
{
    m_rest.resize(64 * 1024);
    lowest().async_read_some(net::buffer(m_rest), [self = shared_from_this()](error_code error, auto) {
        if (error)
            hangUp(self->lowest());
        else
            self->drainMore();
    });
}

/// Keeps the connection, silent, until the client closes it.
void Connection::discard()
{
    lowest().expires_never();
    m_rest.resize(1024);
    m_stream.async_read_some(net::buffer(m_rest), [self = shared_from_this()](error_code error, auto) {
        if (!error)
            self->discard();
    });
}

void Connection::skipBody()
{
    const auto ahead = static_cast<std::size_t>(std::min<std::uint64_t>(m_bodyLeft, m_buffer.size()));
    m_buffer.consume(ahead);
    m_bodyLeft -= ahead;
    if (m_bodyLeft == 0)
        return m_keepAlive ? readHead() : shutDown();
    m_chunk.resize(static_cast<std::size_t>(std::min<std::uint64_t>(m_bodyLeft, chunkSize)));
    lowest().expires_after(idleTime);
    m_stream.async_read_some(net::buffer(m_chunk), [self = shared_from_this()](error_code error, std::size_t count) {
        self->m_bodyLeft -= count;
        if (!error)
            self->skipBody();
    });
}

/// Without reading, the portal does not notice when the client closes.
void Connection::hold()
{
    lowest().expires_never();
    m_timer.expires_after(idleTime);
    m_timer.async_wait([self = shared_from_this()](error_code) { reset(self->lowest().socket()); });
}

} // namespace VelmoraPortal
