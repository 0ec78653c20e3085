#pragma once

#include "portal/http/Http.h"
#include "portal/os/Crypto.h"
#include "portal/os/File.h"

namespace VelmoraPortal {

/// Writes a new file through a buffer; removes it unless `commit` was reached.
class FileWriter {
public:
    explicit FileWriter(std::string path);
    ~FileWriter();
    void write(const char *data, std::size_t size);
    void commit();
    const std::string &path() const { return m_path; }
    long long size() const { return m_size; }

private:
    std::string m_path;
    File m_file;
    std::string m_buffer;
    long long m_size = 0;
    bool m_committed = false;
};

/// The same for plain bytes, which it encrypts.
class CipherWriter {
public:
    CipherWriter(std::string path, const Key &key);
    void write(const char *data, std::size_t size);
    void write(const std::string &text) { write(text.data(), text.size()); }
    void commit();

private:
    FileWriter m_writer;
    Cipher m_cipher;
    std::string m_out;
};

/// Properties of an encrypted file, found at its end.
struct CipherFacts {
    long long size = 0;
    long long plainSize = -1; ///< -1: not encrypted with that key
    std::string hash;         ///< of size and last block; with CBC the last block depends on the whole file
};
CipherFacts inspect(const std::string &path, const Key &key);

/// Reads a range of the plain bytes of an encrypted file. Decrypts that range only.
class PlainReader {
public:
    PlainReader(const std::string &path, const Key &key, long long from, long long size);
    /// 0 at the end, or when the file has become shorter.
    std::size_t read(char *to, std::size_t room);

private:
    File m_file;
    long long m_offset; ///< in the file
    long long m_left;   ///< plain bytes not read yet
    std::size_t m_skip; ///< bytes of the first block before the range
    std::unique_ptr<Cipher> m_cipher;
    std::string m_cipherText;
    std::string m_plain;
    std::size_t m_taken = 0;
    std::size_t m_filled = 0;
};

/// The bytes of the file as they are stored.
std::shared_ptr<BodySource> storedBytes(const std::string &path);
/// A range of its plain bytes.
std::shared_ptr<BodySource> plainBytes(const std::string &path, const Key &key, long long from, long long size);
/// A range of its plain bytes, encrypted as a file of its own.
std::shared_ptr<BodySource> encryptedRange(const std::string &path, const Key &key, long long from, long long size);

} // namespace VelmoraPortal
