/// @file Cipher.h
/// AES-256-CBC as job files use it: the fixed initialisation vector, keys and one cipher run.
#ifndef VELMORA_TRANSFER_CIPHER_H
#define VELMORA_TRANSFER_CIPHER_H

#include <velmora/TarnCrypt.h>

#include <QByteArray>

#include <openssl/evp.h>

#include <memory>

namespace Velmora {

constexpr int cipherBlockSize = 16;
constexpr int cipherKeySize = 32;

/// The initialisation vector of every job file.
inline constexpr const auto &fixedIv = jobFileIv;

/// A job's key as the cipher takes it: 32 bytes, a shorter key padded with zero bytes at its end.
/// The bytes are wiped on destruction.
class CipherKey {
public:
    explicit CipherKey(const QByteArray &key);
    ~CipherKey();
    CipherKey(const CipherKey &) = delete;
    CipherKey &operator=(const CipherKey &) = delete;

    /// False for a key of more than 32 bytes: `data` is then all zero and must not be used.
    bool isValid() const { return m_valid; }
    const unsigned char *data() const { return m_bytes; }

private:
    unsigned char m_bytes[cipherKeySize] = {};
    bool m_valid;
};

/// One run of AES-256-CBC with PKCS#7 padding over a stream of bytes. Leaves nothing in the thread's
/// OpenSSL error queue, where the TLS code of the same thread would take it for its own.
class Cipher {
public:
    enum class Direction { Decrypt = 0, Encrypt = 1 };

    /// @param key  32 bytes, read here only
    /// @param iv   16 bytes, read here only
    Cipher(Direction direction, const unsigned char *key, const unsigned char *iv);

    /// False when the cipher could not be set up; the steps below then fail.
    bool isReady() const { return m_context != nullptr; }

    /// @param out       room for `length` plus one block
    /// @param produced  receives the bytes written to `out`, 0 on failure
    bool update(const unsigned char *in, int length, unsigned char *out, int *produced);

    /// Ends the run. Decrypting, it fails when what came in was not whole blocks or when the last one
    /// holds no valid padding.
    /// @param out       room for one block
    /// @param produced  receives the bytes written to `out`, 0 on failure
    bool finish(unsigned char *out, int *produced);

private:
    struct Free {
        void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
    };
    std::unique_ptr<EVP_CIPHER_CTX, Free> m_context;
};

/// Gives back what OpenSSL keeps for the calling thread. A thread of the pool that still had it would free it
/// as it dies, which at the end of the process is while the clean-up of OpenSSL frees it too.
void releaseCipherThread();

} // namespace Velmora

#endif
