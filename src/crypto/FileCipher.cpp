#include "crypto/FileCipher.h"

#include "base/DiskFile.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>

namespace Velmora {

namespace {

enum class Status {
    Ok,
    InputFailed,     ///< missing, not readable, or a folder
    OutputNotOpened, ///< not creatable, or the input itself
    WriteFailed,     ///< a full disk, for example
    CipherFailed,    ///< the cipher could not be set up, or memory is short
};

// The file being written: gone again unless it was completed.
class Output {
public:
    explicit Output(DiskFile &file)
        : m_file(file)
        , m_incomplete(m_file.openToWrite())
    {
    }
    ~Output()
    {
        if (!m_incomplete)
            return;
        if (m_file.isOpen())
            m_file.close();
        // A device such as /dev/full may be the output; it is not ours to unlink.
        if (m_file.kind() == DiskFile::Kind::Regular)
            m_file.remove();
    }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    bool complete()
    {
        m_incomplete = !m_file.close();
        return !m_incomplete;
    }

private:
    DiskFile &m_file;
    bool m_incomplete;
};

Status stream(DiskFile &source, std::uintmax_t size, DiskFile &output, Cipher &cipher)
{
    const auto bufferSize = static_cast<std::size_t>(std::min<std::uintmax_t>(size, fileCipherBufferSize));
    // One block for what an update holds back, one for the padding.
    const std::unique_ptr<unsigned char[]> buffers(
        new (std::nothrow) unsigned char[2 * bufferSize + 2 * cipherBlockSize]);
    if (!buffers)
        return Status::CipherFailed;
    unsigned char *const in = buffers.get();
    unsigned char *const out = in + bufferSize;

    std::uintmax_t total = 0;
    bool last = false;
    while (!last) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uintmax_t>(size - total, bufferSize));
        const qint64 read = source.read(in, wanted);
        if (read < 0)
            return Status::InputFailed;
        const auto got = static_cast<std::size_t>(read);
        total += got;
        last = got < wanted || total == size;

        int produced = 0;
        if (got > 0 && !cipher.update(in, static_cast<int>(got), out, &produced))
            return Status::CipherFailed;
        if (last) {
            int tail = 0;
            cipher.finish(out + produced, &tail); // decrypting, what has no padding ends where its blocks end
            produced += tail;
        }
        if (produced > 0 && !output.write(out, static_cast<std::size_t>(produced)))
            return Status::WriteFailed;
    }
    return Status::Ok;
}

Status cryptFile(Cipher::Direction direction, const unsigned char *key, const unsigned char *iv, DiskFile &source,
                 DiskFile &target)
{
    // The C library opens a folder as a file on some platforms and only fails to read it.
    const DiskFile::Kind kind = source.kind();
    if (kind == DiskFile::Kind::Folder)
        return Status::InputFailed;
    if (!source.openToRead())
        return Status::InputFailed;

    std::uintmax_t size = std::numeric_limits<std::uintmax_t>::max();
    if (const qint64 known = source.size(); kind == DiskFile::Kind::Regular && known >= 0)
        size = static_cast<std::uintmax_t>(known);

    Cipher cipher(direction, key, iv);
    if (!cipher.isReady())
        return Status::CipherFailed;
    if (source.isSameAs(target))
        return Status::OutputNotOpened;
    Output output(target);
    if (!target.isOpen())
        return Status::OutputNotOpened;
    const Status status = stream(source, size, target, cipher);
    return status == Status::Ok && !output.complete() ? Status::WriteFailed : status;
}

Status cryptFileThroughSibling(Cipher::Direction direction, const CipherKey &key, const QString &path)
{
    static const std::atomic<bool> never{false};
    const QString siblingPath = path + QLatin1String("orig");
    DiskFile sibling(siblingPath);
    if (sibling.kind() != DiskFile::Kind::Folder)
        sibling.remove();
    Status status;
    {
        DiskFile source(path); // closed before it is replaced
        status = cryptFile(direction, key.data(), fixedIv, source, sibling);
    }
    if (status != Status::Ok || replaceFile(siblingPath, path, never).isEmpty())
        return status;
    sibling.remove();
    return Status::WriteFailed;
}

} // namespace

int cryptFileInPlace(const QByteArray &key, const QString &path, bool encrypt)
{
    const CipherKey bytes(key);
    if (!bytes.isValid())
        return 1;
    const auto direction = encrypt ? Cipher::Direction::Encrypt : Cipher::Direction::Decrypt;
    switch (cryptFileThroughSibling(direction, bytes, path)) {
    case Status::CipherFailed:
        return 1;
    case Status::WriteFailed:
        return 2;
    default:
        return 0;
    }
}

int cryptBinaryFile(Cipher::Direction direction, const char *inPath, const char *outPath, const unsigned char *key,
                    const unsigned char *iv)
{
    if (!inPath)
        return 1;
    if (!outPath)
        return 2;
    DiskFile input{Utf8Path{inPath}};
    DiskFile output{Utf8Path{outPath}};
    switch (cryptFile(direction, key, iv, input, output)) {
    case Status::Ok:
        return 0;
    case Status::OutputNotOpened:
    case Status::WriteFailed:
        return 2;
    default:
        return 1;
    }
}

} // namespace Velmora
