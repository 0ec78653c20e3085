#include "storage/TlsContext.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <QCryptographicHash>

#include <cstdint>

namespace Velmora {

namespace {

// Between two of them libcurl reads, unless it has the whole answer.
constexpr std::intptr_t failuresHidden = 20;

int writeOn(BIO *bio, const char *data, int size)
{
    BIO *const next = BIO_next(bio);
    BIO_clear_retry_flags(bio);
    const int written = BIO_write(next, data, size);
    if (written > 0)
        return written;
    auto failures = reinterpret_cast<std::intptr_t>(BIO_get_data(bio));
    if (!BIO_should_retry(next))
        BIO_set_data(bio, reinterpret_cast<void *>(++failures));
    if (failures <= failuresHidden)
        BIO_set_retry_write(bio);
    return written;
}

long controlOn(BIO *bio, int command, long number, void *pointer)
{
    BIO *const next = BIO_next(bio);
    return next ? BIO_ctrl(next, command, number, pointer) : 0;
}

int filterType()
{
    static const int type = BIO_get_new_index() | BIO_TYPE_FILTER;
    return type;
}

int create(BIO *bio)
{
    BIO_set_init(bio, 1);
    return 1;
}

const BIO_METHOD *filter()
{
    static BIO_METHOD *const method = [] {
        BIO_METHOD *made = BIO_meth_new(filterType(), "velmora write");
        if (made) {
            BIO_meth_set_write(made, writeOn);
            BIO_meth_set_ctrl(made, controlOn);
            BIO_meth_set_create(made, create);
        }
        return made;
    }();
    return method;
}

// The handshake's start is the first that is seen of a connection.
void onEvent(const SSL *connection, int event, int)
{
    if (event != SSL_CB_HANDSHAKE_START || !filter())
        return;
    auto *const tls = const_cast<SSL *>(connection);
    BIO *const below = SSL_get_wbio(tls);
    if (!below || BIO_method_type(below) == filterType())
        return; // done for an earlier handshake of it
    BIO *const made = BIO_new(filter());
    if (!made)
        return;
    BIO_up_ref(below); // the connection gives up its own hold on it
    SSL_set0_wbio(tls, BIO_push(made, below));
}

QByteArray firstIn(const QByteArray &pem)
{
    constexpr char end[] = "-----END CERTIFICATE-----\n";
    return pem.left(pem.indexOf(end) + int(sizeof end) - 1);
}

} // namespace

TlsAuthorities::TlsAuthorities(const QByteArray &pem)
    : m_pem(pem)
    , m_mark(QCryptographicHash::hash(pem, QCryptographicHash::Sha256).toHex() + '\n' + firstIn(pem))
{
}

TlsAuthorities::~TlsAuthorities() { X509_STORE_free(m_store); }

void TlsAuthorities::parse()
{
    BIO *const text = BIO_new_mem_buf(m_pem.constData(), int(m_pem.size()));
    STACK_OF(X509_INFO) *const found = text ? PEM_X509_INFO_read_bio(text, nullptr, nullptr, nullptr) : nullptr;
    BIO_free(text);
    m_store = found ? X509_STORE_new() : nullptr;
    for (int i = 0; m_store && i < sk_X509_INFO_num(found); ++i)
        if (X509 *const certificate = sk_X509_INFO_value(found, i)->x509)
            X509_STORE_add_cert(m_store, certificate);
    sk_X509_INFO_pop_free(found, X509_INFO_free);
    if (m_store) // as libcurl sets it for its own
        X509_STORE_set_flags(m_store, X509_V_FLAG_TRUSTED_FIRST | X509_V_FLAG_PARTIAL_CHAIN);
}

void TlsAuthorities::setFor(void *context)
{
    std::call_once(m_parsed, [this] { parse(); });
    if (m_store)
        SSL_CTX_set1_cert_store(static_cast<SSL_CTX *>(context), m_store);
}

void adjustTlsContext(void *context)
{
    auto *const tls = static_cast<SSL_CTX *>(context);
    SSL_CTX_set_info_callback(tls, onEvent);
    SSL_CTX_set_keylog_callback(tls, nullptr);
}

} // namespace Velmora
