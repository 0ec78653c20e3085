#pragma once

#include <QByteArray>

#include <mutex>

struct x509_store_st;

namespace Velmora {

/// Authorities that all connections which trust them share. They are parsed once, when the first connection needs them:
/// those of a system take longer than the rest of a handshake.
class TlsAuthorities {
public:
    /// @param pem  one at least
    explicit TlsAuthorities(const QByteArray &pem);
    ~TlsAuthorities();
    TlsAuthorities(const TlsAuthorities &) = delete;
    TlsAuthorities &operator=(const TlsAuthorities &) = delete;

    /// The first one, behind a text that stands for all. libcurl takes a connection again that was made with the same.
    const QByteArray &mark() const { return m_mark; }
    /// Sets them for the connections of a TLS context (an `SSL_CTX`).
    void setFor(void *context);

private:
    void parse();

    const QByteArray m_pem;
    const QByteArray m_mark;
    std::once_flag m_parsed;
    x509_store_st *m_store = nullptr;
};

/// Sets for the connections of a TLS context (an `SSL_CTX`):
/// - An answer that came before a connection broke stays readable. A write to a broken connection waits instead of
///   failing, so that what has arrived is read first; reading then finds the end of the connection. A server that
///   refuses a body and closes at once would otherwise be seen as a connection that broke while it was sent to.
/// - No secret of a connection is written to the file that the environment may name for that.
void adjustTlsContext(void *context);

} // namespace Velmora
