/// @file FileCipher.h
/// Encryption and decryption of whole files for the transfers: one pass, constant memory, and a result
/// that says what went wrong. The functions block; call them on pool threads.
///
/// A cancellation flag may be set from any thread. It is read between two buffers and must outlive the call.
#ifndef VELMORA_CRYPTO_FILECIPHER_H
#define VELMORA_CRYPTO_FILECIPHER_H

#include "crypto/Cipher.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <cstddef>

namespace Velmora {

/// Bytes read and written at a time.
constexpr std::size_t fileCipherBufferSize = 256 * 1024;

enum class FileCipherStatus {
    Ok,
    BadKey,          ///< empty, or longer than 32 bytes
    InputNotOpened,  ///< missing, not readable, or a folder
    ReadFailed,      ///< reading the input failed
    OutputNotOpened, ///< not creatable, or the input itself
    WriteFailed,     ///< a full disk, for example
    CipherFailed,    ///< the cipher could not be set up, or memory is short
    Cancelled,       ///< the cancellation flag was set
};

struct FileCipherResult {
    FileCipherStatus status = FileCipherStatus::Ok;
    QString reason; ///< why, for people; the system's text where a file was at fault; empty when ok

    bool ok() const { return status == FileCipherStatus::Ok; }
};

/// Encrypts `source` into `destination`, which is created or replaced. Unless the result is ok, the destination is
/// removed; one that could not be opened stays as it was.
FileCipherResult encryptFile(const QByteArray &key, const QString &source, const QString &destination,
                             const std::atomic<bool> &stop);

/// Replaces the file at `path` by its encryption, or leniently by its decryption. The result grows beside it in `path`
/// + "orig", whose leftover is removed first, and takes its place when it is complete. Unlike the function above it
/// takes an empty key, as 32 zero bytes.
/// @return 0 done, and also when the file could not be read or the sibling not be created; 1 the key
///         is longer than 32 bytes or the cipher failed; 2 the result could not be written in full. The
///         file is unchanged in all cases but success.
int cryptFileInPlace(const QByteArray &key, const QString &path, bool encrypt);

/// What `TarnCrypt::do_encode_binfile` and `do_decode_binfile` do, with their codes. `key` is 32 bytes,
/// `iv` 16 bytes, paths are UTF-8.
int cryptBinaryFile(Cipher::Direction direction, const char *inPath, const char *outPath, const unsigned char *key,
                    const unsigned char *iv);

} // namespace Velmora

#endif
