#include "portal/storage/CipherFile.h"

#include <algorithm>
#include <cstring>

namespace VelmoraPortal {
namespace {

constexpr std::size_t bufferSize = 256 * 1024;
constexpr auto block = static_cast<long long>(cipherBlock);

/// The block before the one at `offset`: its initialisation vector.
Block vectorAt(const File &file, long long offset)
{
    if (offset == 0)
        return fixedIv();
    Block vector = {};
    file.read(reinterpret_cast<char *>(vector.data()), vector.size(), offset - block);
    return vector;
}

} // namespace

FileWriter::FileWriter(std::string path)
    : m_path(std::move(path))
    , m_file(m_path, File::Mode::Create)
{
    m_buffer.reserve(bufferSize);
}

FileWriter::~FileWriter()
{
    if (!m_committed)
        removeFile(m_path);
}

void FileWriter::write(const char *data, std::size_t size)
{
    m_size += static_cast<long long>(size);
    if (m_buffer.size() + size > bufferSize) {
        m_file.write(m_buffer.data(), m_buffer.size());
        m_buffer.clear();
    }
    if (size >= bufferSize)
        m_file.write(data, size);
    else
        m_buffer.append(data, size);
}

void FileWriter::commit()
{
    m_file.write(m_buffer.data(), m_buffer.size());
    m_file.close();
    m_committed = true;
}

CipherWriter::CipherWriter(std::string path, const Key &key)
    : m_writer(std::move(path))
    , m_cipher(Cipher::Way::Encrypt, key, fixedIv())
    , m_out(bufferSize + cipherBlock, '\0')
{
}

void CipherWriter::write(const char *data, std::size_t size)
{
    while (size > 0) {
        const std::size_t count = std::min(size, bufferSize);
        m_writer.write(m_out.data(), m_cipher.update(data, count, m_out.data()));
        data += count;
        size -= count;
    }
}

void CipherWriter::commit()
{
    m_writer.write(m_out.data(), m_cipher.finish(m_out.data()).value_or(0));
    m_writer.commit();
}

CipherFacts inspect(const std::string &path, const Key &key)
{
    const File file(path, File::Mode::Read);
    CipherFacts facts;
    facts.size = file.size();
    char last[cipherBlock] = {};
    const long long offset = std::max<long long>(0, facts.size - block);
    const std::size_t count = file.read(last, sizeof last, offset);
    Digest digest;
    const std::string head = std::to_string(facts.size) + ':';
    digest.update(head.data(), head.size());
    digest.update(last, count);
    facts.hash = digest.hex();
    if (facts.size == 0 || facts.size % block != 0)
        return facts;
    Cipher cipher(Cipher::Way::Decrypt, key, vectorAt(file, offset));
    char plain[2 * cipherBlock];
    cipher.update(last, sizeof last, plain);
    if (const auto rest = cipher.finish(plain))
        facts.plainSize = offset + static_cast<long long>(*rest);
    return facts;
}

PlainReader::PlainReader(const std::string &path, const Key &key, long long from, long long size)
    : m_file(path, File::Mode::Read)
    , m_offset(from / block * block)
    , m_left(size)
    , m_skip(static_cast<std::size_t>(from % block))
    , m_cipher(std::make_unique<Cipher>(Cipher::Way::Decrypt, key, vectorAt(m_file, m_offset), Cipher::Padding::None))
    , m_cipherText(bufferSize, '\0')
    , m_plain(bufferSize + cipherBlock, '\0')
{
}

std::size_t PlainReader::read(char *to, std::size_t room)
{
    if (m_left > 0 && m_taken == m_filled) {
        const auto wanted = static_cast<std::size_t>(
            std::min<long long>(bufferSize, cipherSize(m_left + static_cast<long long>(m_skip))));
        const std::size_t count = m_file.read(m_cipherText.data(), wanted, m_offset) / cipherBlock * cipherBlock;
        m_offset += static_cast<long long>(count);
        m_filled = m_cipher->update(m_cipherText.data(), count, m_plain.data());
        m_taken = std::min(m_skip, m_filled);
        m_skip = 0;
    }
    const auto count = static_cast<std::size_t>(
        std::min<long long>({m_left, static_cast<long long>(room), static_cast<long long>(m_filled - m_taken)}));
    std::memcpy(to, m_plain.data() + m_taken, count);
    m_taken += count;
    m_left -= static_cast<long long>(count);
    return count;
}

namespace {

class StoredBytes : public BodySource {
public:
    explicit StoredBytes(const std::string &path)
        : m_file(path, File::Mode::Read)
        , m_size(m_file.size())
    {
    }
    std::uint64_t size() const override { return static_cast<std::uint64_t>(m_size); }
    std::size_t give(char *to, std::size_t room) override
    {
        const std::size_t count = m_file.read(to, room, m_offset);
        m_offset += static_cast<long long>(count);
        return count;
    }
    std::uint64_t skip(std::uint64_t count) override
    {
        m_offset += static_cast<long long>(count);
        return count;
    }

private:
    File m_file;
    long long m_size;
    long long m_offset = 0;
};

class PlainBytes : public BodySource {
public:
    PlainBytes(const std::string &path, const Key &key, long long from, long long size)
        : m_reader(path, key, from, size)
        , m_size(size)
    {
    }
    std::uint64_t size() const override { return static_cast<std::uint64_t>(m_size); }
    std::size_t give(char *to, std::size_t room) override { return m_reader.read(to, room); }

private:
    PlainReader m_reader;
    long long m_size;
};

class EncryptedRange : public BodySource {
public:
    EncryptedRange(const std::string &path, const Key &key, long long from, long long size)
        : m_reader(path, key, from, size)
        , m_cipher(Cipher::Way::Encrypt, key, fixedIv())
        , m_size(size)
        , m_left(size)
        , m_plain(bufferSize, '\0')
    {
    }
    std::uint64_t size() const override { return static_cast<std::uint64_t>(cipherSize(m_size)); }
    std::size_t give(char *to, std::size_t room) override
    {
        std::size_t given = 0;
        while (given == 0 && m_left > 0) { // a few plain bytes may not fill a block yet
            const std::size_t count = m_reader.read(m_plain.data(), std::min(room - cipherBlock, m_plain.size()));
            if (count == 0)
                return 0;
            m_left -= static_cast<long long>(count);
            given = m_cipher.update(m_plain.data(), count, to);
        }
        if (given == 0 && !m_finished) {
            m_finished = true;
            given = m_cipher.finish(to).value_or(0);
        }
        return given;
    }

private:
    PlainReader m_reader;
    Cipher m_cipher;
    long long m_size;
    long long m_left;
    bool m_finished = false;
    std::string m_plain;
};

} // namespace

std::shared_ptr<BodySource> storedBytes(const std::string &path) { return std::make_shared<StoredBytes>(path); }

std::shared_ptr<BodySource> plainBytes(const std::string &path, const Key &key, long long from, long long size)
{
    return std::make_shared<PlainBytes>(path, key, from, size);
}

std::shared_ptr<BodySource> encryptedRange(const std::string &path, const Key &key, long long from, long long size)
{
    return std::make_shared<EncryptedRange>(path, key, from, size);
}

} // namespace VelmoraPortal
