#include "portal/os/Crypto.h"

#include <algorithm>
#include <stdexcept>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

namespace VelmoraPortal {
namespace {

const unsigned char *bytesOf(const char *data) { return reinterpret_cast<const unsigned char *>(data); }
unsigned char *bytesOf(char *data) { return reinterpret_cast<unsigned char *>(data); }

void require(bool done)
{
    if (!done)
        throw std::runtime_error("The cryptography library refused");
}

} // namespace

const Block &fixedIv()
{
    static const Block iv = {0x5C, 0x19, 0xE3, 0x07, 0xA2, 0x4F, 0x6B, 0xD0,
                             0x91, 0x3E, 0x28, 0xC7, 0xF4, 0x0A, 0x66, 0xB5};
    return iv;
}

void Cipher::Free::operator()(void *context) const { EVP_CIPHER_CTX_free(static_cast<EVP_CIPHER_CTX *>(context)); }

Cipher::Cipher(Way way, const Key &key, const Block &iv, Padding padding)
    : m_context(EVP_CIPHER_CTX_new())
{
    auto *context = static_cast<EVP_CIPHER_CTX *>(m_context.get());
    require(context && EVP_CipherInit_ex(context, EVP_aes_256_cbc(), nullptr, key.data(), iv.data(),
                                         way == Way::Encrypt ? 1 : 0) == 1);
    EVP_CIPHER_CTX_set_padding(context, padding == Padding::Pkcs7 ? 1 : 0);
}

std::size_t Cipher::update(const char *in, std::size_t size, char *out)
{
    int count = 0;
    require(EVP_CipherUpdate(static_cast<EVP_CIPHER_CTX *>(m_context.get()), bytesOf(out), &count, bytesOf(in),
                             static_cast<int>(size)) == 1);
    return static_cast<std::size_t>(count);
}

std::optional<std::size_t> Cipher::finish(char *out)
{
    int count = 0;
    if (EVP_CipherFinal_ex(static_cast<EVP_CIPHER_CTX *>(m_context.get()), bytesOf(out), &count) != 1)
        return {};
    return static_cast<std::size_t>(count);
}

void Digest::Free::operator()(void *context) const { EVP_MD_CTX_free(static_cast<EVP_MD_CTX *>(context)); }

Digest::Digest()
    : m_context(EVP_MD_CTX_new())
{
    require(m_context && EVP_DigestInit_ex(static_cast<EVP_MD_CTX *>(m_context.get()), EVP_sha256(), nullptr) == 1);
}

void Digest::update(const char *data, std::size_t size)
{
    require(EVP_DigestUpdate(static_cast<EVP_MD_CTX *>(m_context.get()), data, size) == 1);
}

std::string Digest::hex()
{
    std::string bytes(32, '\0');
    require(EVP_DigestFinal_ex(static_cast<EVP_MD_CTX *>(m_context.get()), bytesOf(bytes.data()), nullptr) == 1);
    return hexOf(bytes);
}

std::string hmacHex(const std::string &key, const std::string &text)
{
    std::string bytes(32, '\0');
    require(HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), bytesOf(text.data()), text.size(),
                 bytesOf(bytes.data()), nullptr) != nullptr);
    return hexOf(bytes);
}

bool sameSecret(const std::string &a, const std::string &b)
{
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string randomBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    require(RAND_bytes(bytesOf(bytes.data()), static_cast<int>(count)) == 1);
    return bytes;
}

std::string hexOf(const std::string &bytes)
{
    std::string text;
    for (const char c : bytes) {
        text += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4];
        text += "0123456789abcdef"[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

std::string randomHex(std::size_t bytes) { return hexOf(randomBytes(bytes)); }

std::string base64(const std::string &bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0'); // the encoder adds a zero
    text.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(bytesOf(text.data()), bytesOf(bytes.data()), static_cast<int>(bytes.size()))));
    return text;
}

std::string fromBase64(const std::string &text)
{
    std::string bytes(text.size() / 4 * 3 + 3, '\0');
    const int count = EVP_DecodeBlock(bytesOf(bytes.data()), bytesOf(text.data()), static_cast<int>(text.size()));
    if (text.empty() || count < 0)
        return {};
    const std::size_t padding = text.size() - 1 - text.find_last_not_of('=');
    bytes.resize(static_cast<std::size_t>(count) - std::min<std::size_t>(padding, 2));
    return bytes;
}

} // namespace VelmoraPortal
