#include "storage/TlsContext.h"

#include <openssl/bio.h>
#include <openssl/ssl.h>

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

} // namespace

void adjustTlsContext(void *context)
{
    auto *const tls = static_cast<SSL_CTX *>(context);
    SSL_CTX_set_info_callback(tls, onEvent);
    SSL_CTX_set_keylog_callback(tls, nullptr);
}

} // namespace Velmora
