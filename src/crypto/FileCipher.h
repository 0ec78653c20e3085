/// @file FileCipher.h
/// Encryption and decryption of whole files, in one pass and constant memory. The functions block.
#ifndef VELMORA_CRYPTO_FILECIPHER_H
#define VELMORA_CRYPTO_FILECIPHER_H

#include "crypto/Cipher.h"

#include <QByteArray>
#include <QString>

#include <cstddef>

namespace Velmora {

/// Bytes read and written at a time.
constexpr std::size_t fileCipherBufferSize = 256 * 1024;

/// Replaces the file at `path` by its encryption, or leniently by its decryption. The result grows beside it in `path`
/// + "orig", whose leftover is removed first, and takes its place when it is complete. An
/// empty key counts as 32 zero bytes.
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
