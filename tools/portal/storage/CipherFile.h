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

/// The same for plain bytes that are kept as cipher text.
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

/// What the end of a cipher text tells about the whole.
struct CipherFacts {
    long long size = 0;
    long long plainSize = -1; ///< -1: this is no cipher text of that key
    std::string hash;         ///< of size and last block, which CBC makes depend on all that comes before
};
CipherFacts inspect(const std::string &path, const Key &key);

/// Reads a range of the plain bytes of a cipher file, decrypting no more than that.
class PlainReader {
public:
    PlainReader(const std::string &path, const Key &key, long long from, long long size);
    /// 0 at the end, or when the file is shorter than it was.
    std::size_t read(char *to, std::size_t room);

private:
    File m_file;
    long long m_offset; ///< in the file
    long long m_left;   ///< plain bytes still to be given
    std::size_t m_skip; ///< bytes of the first block in front of the range
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
/// A range of its plain bytes, encrypted as a cipher text of its own.
std::shared_ptr<BodySource> encryptedRange(const std::string &path, const Key &key, long long from, long long size);

} // namespace VelmoraPortal
