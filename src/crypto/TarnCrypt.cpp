#include <velmora/TarnCrypt.h>

#include "crypto/Cipher.h"
#include "crypto/FileCipher.h"

#include <QByteArray>

#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

namespace Velmora {

namespace {

constexpr int digestSize = 32;

struct FreeChain {
    void operator()(BIO *bio) const { BIO_free_all(bio); }
};
struct FreeText {
    void operator()(char *text) const { std::free(text); }
};

std::string hexText(const unsigned char *digest)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(digest), digestSize).toHex().toStdString();
}

} // namespace

char *TarnCrypt::base64(const unsigned char *data, int length)
{
    std::unique_ptr<BIO, FreeChain> chain(BIO_new(BIO_f_base64()));
    BIO *const memory = BIO_new(BIO_s_mem());
    if (!chain || !memory) {
        BIO_free(memory);
        return nullptr;
    }
    BIO_push(chain.get(), memory);
    if (length > 0 && BIO_write(chain.get(), data, length) != length)
        return nullptr;
    if (BIO_flush(chain.get()) != 1)
        return nullptr;

    BUF_MEM *encoded = nullptr;
    BIO_get_mem_ptr(memory, &encoded);
    const std::size_t size = encoded->length > 0 ? encoded->length - 1 : 0; // less the closing newline
    auto *text = static_cast<char *>(std::malloc(size + 1));
    if (!text)
        return nullptr;
    if (size > 0)
        std::memcpy(text, encoded->data, size);
    text[size] = '\0';
    return text;
}

std::string TarnCrypt::sha_256(const std::string &text)
{
    unsigned char digest[digestSize];
    unsigned int size = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha256(), nullptr) != 1)
        return {};
    return hexText(digest);
}

std::string TarnCrypt::hmac_sha_256(const KeyType &keyType, const std::string &key, const std::string &message,
                                    const KeyType &outputType)
{
    QByteArray decoded;
    const void *keyBytes = key.data();
    std::size_t keySize = key.size();
    if (keyType == Hex) {
        decoded = QByteArray::fromHex(QByteArray::fromRawData(key.data(), static_cast<int>(key.size())));
        keyBytes = decoded.constData();
        keySize = static_cast<std::size_t>(decoded.size());
    }
    unsigned char digest[digestSize];
    const bool signedOk = EVP_Q_mac(nullptr, "HMAC", nullptr, "SHA256", nullptr, keyBytes, keySize,
                                    reinterpret_cast<const unsigned char *>(message.data()), message.size(), digest,
                                    sizeof digest, nullptr) != nullptr;
    OPENSSL_cleanse(decoded.data(), static_cast<std::size_t>(decoded.size()));
    if (!signedOk)
        return {};
    if (outputType == Hex)
        return hexText(digest);
    const std::unique_ptr<char, FreeText> text(base64(digest, digestSize));
    return text ? std::string(text.get()) : std::string();
}

int TarnCrypt::do_encode_binfile(const char *inPath, const char *outPath, const unsigned char *key,
                                 const unsigned char *iv)
{
    return cryptBinaryFile(Cipher::Direction::Encrypt, inPath, outPath, key, iv);
}

int TarnCrypt::do_decode_binfile(const char *inPath, const char *outPath, const unsigned char *key,
                                 const unsigned char *iv)
{
    return cryptBinaryFile(Cipher::Direction::Decrypt, inPath, outPath, key, iv);
}

int TarnCrypt::do_hide(unsigned char *plain, unsigned char *out, int *outLength, const unsigned char *key,
                       const unsigned char *iv)
{
    const std::size_t length = std::strlen(reinterpret_cast<const char *>(plain));
    if (length > static_cast<std::size_t>(std::numeric_limits<int>::max() - cipherBlockSize))
        return 1;
    Cipher run(Cipher::Direction::Encrypt, key, iv);
    int head = 0;
    int tail = 0;
    if (!run.update(plain, static_cast<int>(length), out, &head))
        return 1;
    if (!run.finish(out + head, &tail))
        return 2;
    *outLength = head + tail;
    return 0;
}

int TarnCrypt::do_show(unsigned char *cipher, int length, unsigned char *out, int *outLength, const unsigned char *key,
                       const unsigned char *iv)
{
    if (length % cipherBlockSize != 0)
        return 1;
    Cipher run(Cipher::Direction::Decrypt, key, iv);
    int head = 0;
    int tail = 0;
    if (!run.update(cipher, length, out, &head))
        return 1;
    if (!run.finish(out + head, &tail))
        return 2;
    *outLength = head + tail;
    return 0;
}

} // namespace Velmora
