#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace VelmoraPortal {

constexpr std::size_t cipherBlock = 16;
using Key = std::array<unsigned char, 32>;
using Block = std::array<unsigned char, cipherBlock>;

/// The initialisation vector of every file.
const Block &fixedIv();

/// The encrypted size of so many plain bytes: whole blocks, 1 to 16 bytes more.
constexpr long long cipherSize(long long plainSize)
{
    constexpr auto block = static_cast<long long>(cipherBlock);
    return plainSize / block * block + block;
}

/// AES-256 in CBC mode, piece by piece. Throws std::runtime_error when OpenSSL fails.
class Cipher {
public:
    enum class Way { Encrypt, Decrypt };
    enum class Padding { Pkcs7, None };
    Cipher(Way way, const Key &key, const Block &iv, Padding padding = Padding::Pkcs7);

    /// `out` has room for `size` + 16 bytes; returns the number of bytes written.
    std::size_t update(const char *in, std::size_t size, char *out);
    /// The last block; no value when the decrypted data has no valid padding or is not whole blocks.
    std::optional<std::size_t> finish(char *out);

private:
    struct Free {
        void operator()(void *context) const;
    };
    std::unique_ptr<void, Free> m_context;
};

/// SHA-256, piece by piece.
class Digest {
public:
    Digest();
    void update(const char *data, std::size_t size);
    std::string hex(); ///< call it once, last

private:
    struct Free {
        void operator()(void *context) const;
    };
    std::unique_ptr<void, Free> m_context;
};

std::string hmacHex(const std::string &key, const std::string &text);
/// The time of the comparison does not depend on where the texts differ.
bool sameSecret(const std::string &a, const std::string &b);
std::string randomBytes(std::size_t count);
std::string hexOf(const std::string &bytes);
std::string randomHex(std::size_t bytes); ///< two digits a byte
std::string base64(const std::string &bytes);
/// Empty when it is not base64.
std::string fromBase64(const std::string &text);

} // namespace VelmoraPortal
