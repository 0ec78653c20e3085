/// @file TarnCrypt.h
/// Hashing, signing and the AES file and buffer encryption that protects job files.
#ifndef VELMORA_TARNCRYPT_H
#define VELMORA_TARNCRYPT_H

#include <velmora/Export.h>

#include <string>

namespace Velmora {

/// The initialisation vector that every job file is encrypted with. With the job's key it is all that
/// `TarnCrypt::do_decode_binfile` needs for a file as the service stores it. It is the same for every
/// file, so two files that begin alike have cipher texts that begin alike.
inline constexpr unsigned char jobFileIv[16] = {0x5C, 0x19, 0xE3, 0x07, 0xA2, 0x4F, 0x6B, 0xD0,
                                                0x91, 0x3E, 0x28, 0xC7, 0xF4, 0x0A, 0x66, 0xB5};

/// Static functions without state. All of them are re-entrant, may be called on any thread, need no
/// application object and log nothing. Only their result reports a failure.
///
/// The cipher is AES-256 in CBC mode with PKCS#7 padding. Cipher text is a whole number of 16-byte blocks,
/// 1 to 16 bytes longer than the plain text. It has no header, salt, length or signature, so decryption
/// cannot prove that cipher text is genuine. A `key` is always 32 bytes, an `iv` 16 bytes; the caller owns
/// both, and they must not be null.
///
/// Paths are UTF-8 on every platform, whatever the process's locale is.
class VELMORA_EXPORT TarnCrypt {
public:
    /// How key text is read and how a digest is written. Any value but `Hex` counts as `Raw`.
    enum KeyType : int {
        Hex = 0, ///< key: hexadecimal digits; result: lower-case hexadecimal digits
        Raw = 1, ///< key: the bytes of the string; result: base64
    };

    TarnCrypt() = default;

    /// Base64 with a newline after every 64 characters, but none at the end: 32 bytes give 44
    /// characters, 49 bytes give 64, a newline and 4 more.
    /// @param length  in bytes; 0 or less gives an empty text
    /// @return NUL-terminated text that the caller releases with `free`; null when memory is short
    static char *base64(const unsigned char *data, int length);

    /// SHA-256 of all bytes of `text`, NUL bytes included, as 64 lower-case hexadecimal digits.
    static std::string sha_256(const std::string &text);

    /// HMAC with SHA-256 of all bytes of `message`.
    /// @param keyType     how `key` is read. In a `Hex` key every character that is not a hexadecimal
    ///                    digit is skipped; of an odd number of digits the first is a byte of its own.
    /// @param outputType  `Hex` gives 64 lower-case hexadecimal digits, `Raw` 44 base64 characters
    static std::string hmac_sha_256(const KeyType &keyType, const std::string &key, const std::string &message,
                                    const KeyType &outputType);

    /// Encrypts one file into another, in constant memory. The output is created or replaced. The
    /// input is read up to the size that it had when it was opened.
    /// @return 0 done; 1 the input could not be opened or read, or is a folder; 2 the output could not be
    ///         opened or written in full, or is the input itself. On failure an output that was opened is
    ///         removed, and one that was not opened is unchanged.
    static int do_encode_binfile(const char *inPath, const char *outPath, const unsigned char *key,
                                 const unsigned char *iv);

    /// Decrypts one file into another. It is lenient: with a wrong key, or an input that is not whole
    /// blocks, it still returns 0. The content of the last block is then missing from the output, and the
    /// rest may be garbled.
    /// @return as `do_encode_binfile`
    static int do_decode_binfile(const char *inPath, const char *outPath, const unsigned char *key,
                                 const unsigned char *iv);

    /// Encrypts a NUL-terminated text.
    /// @param out        room for the text's length plus 16 bytes
    /// @param outLength  receives the number of bytes written; unchanged on failure
    /// @return 0 done; 1 encryption failed; 2 its last step failed
    static int do_hide(unsigned char *plain, unsigned char *out, int *outLength, const unsigned char *key,
                       const unsigned char *iv);

    /// Decrypts a buffer.
    /// @param length     of `cipher` in bytes, a multiple of 16
    /// @param out        room for `length` bytes; the plain text is not NUL-terminated
    /// @param outLength  receives the number of bytes of plain text; unchanged on failure
    /// @return 0 done; 1 `length` is negative or no multiple of 16 (`out` is unchanged), or decryption
    ///         failed; 2 the last block is no valid padding (wrong key, damaged cipher text, or none)
    static int do_show(unsigned char *cipher, int length, unsigned char *out, int *outLength, const unsigned char *key,
                       const unsigned char *iv);
};

} // namespace Velmora

#endif
