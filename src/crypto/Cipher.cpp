#include "crypto/Cipher.h"

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <cstring>

namespace Velmora {

namespace {

class ErrorMark {
public:
    ErrorMark() { ERR_set_mark(); }
    ~ErrorMark() { ERR_pop_to_mark(); }
    ErrorMark(const ErrorMark &) = delete;
    ErrorMark &operator=(const ErrorMark &) = delete;
};

} // namespace

CipherKey::CipherKey(const QByteArray &key)
    : m_valid(key.size() <= cipherKeySize)
{
    if (m_valid && !key.isEmpty())
        std::memcpy(m_bytes, key.constData(), static_cast<size_t>(key.size()));
}

CipherKey::~CipherKey() { OPENSSL_cleanse(m_bytes, sizeof m_bytes); }

Cipher::Cipher(Direction direction, const unsigned char *key, const unsigned char *iv)
{
    const ErrorMark mark;
    if (!key || !iv)
        return;
    m_context.reset(EVP_CIPHER_CTX_new());
    if (m_context &&
        EVP_CipherInit_ex2(m_context.get(), EVP_aes_256_cbc(), key, iv, static_cast<int>(direction), nullptr) != 1)
        m_context.reset();
}

// OpenSSL sets `produced` on success only.
bool Cipher::update(const unsigned char *in, int length, unsigned char *out, int *produced)
{
    *produced = 0;
    const ErrorMark mark;
    return m_context && length >= 0 && EVP_CipherUpdate(m_context.get(), out, produced, in, length) == 1;
}

bool Cipher::finish(unsigned char *out, int *produced)
{
    *produced = 0;
    const ErrorMark mark;
    return m_context && EVP_CipherFinal_ex(m_context.get(), out, produced) == 1;
}

CipherThreadState::~CipherThreadState() { OPENSSL_thread_stop(); }

} // namespace Velmora
