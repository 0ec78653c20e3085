#include "crypto/FileCipher.h"

#include "base/DiskFile.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>

namespace Velmora {

namespace {

using Status = FileCipherStatus;
using Result = FileCipherResult;

Result failure(Status status, const DiskFile &file) { return {status, file.problem()}; }

Result cancelled() { return {Status::Cancelled, QStringLiteral("Cancelled")}; }

Result cipherFailure() { return {Status::CipherFailed, QStringLiteral("The cipher could not be run")}; }

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

Result stream(DiskFile &source, std::uintmax_t size, DiskFile &output, Cipher &cipher, const std::atomic<bool> &stop)
{
    const auto bufferSize = static_cast<std::size_t>(std::min<std::uintmax_t>(size, fileCipherBufferSize));
    // One block for what an update holds back, one for the padding.
    const std::unique_ptr<unsigned char[]> buffers(
        new (std::nothrow) unsigned char[2 * bufferSize + 2 * cipherBlockSize]);
    if (!buffers)
        return cipherFailure();
    unsigned char *const in = buffers.get();
    unsigned char *const out = in + bufferSize;

    std::uintmax_t total = 0;
    bool last = false;
    while (!last) {
        if (stop.load(std::memory_order_relaxed))
            return cancelled();

        const auto wanted = static_cast<std::size_t>(std::min<std::uintmax_t>(size - total, bufferSize));
        const qint64 read = source.read(in, wanted);
        if (read < 0)
            return failure(Status::ReadFailed, source);
        const auto got = static_cast<std::size_t>(read);
        total += got;
        last = got < wanted || total == size;

        int produced = 0;
        if (got > 0 && !cipher.update(in, static_cast<int>(got), out, &produced))
            return cipherFailure();
        if (last) {
            int tail = 0;
            cipher.finish(out + produced, &tail); // decrypting, what has no padding ends where its blocks end
            produced += tail;
        }
        if (produced > 0 && !output.write(out, static_cast<std::size_t>(produced)))
            return failure(Status::WriteFailed, output);
    }
    return {};
}

Result cryptFile(Cipher::Direction direction, const unsigned char *key, const unsigned char *iv, DiskFile &source,
                 DiskFile &target, const std::atomic<bool> &stop)
{
    if (stop.load(std::memory_order_relaxed))
        return cancelled();

    // The C library opens a folder as a file on some platforms and only fails to read it.
    const DiskFile::Kind kind = source.kind();
    if (kind == DiskFile::Kind::Folder)
        return {Status::InputNotOpened, QStringLiteral("Is a directory")};
    if (!source.openToRead())
        return failure(Status::InputNotOpened, source);

    std::uintmax_t size = std::numeric_limits<std::uintmax_t>::max();
    if (kind == DiskFile::Kind::Regular) {
        const qint64 known = source.size();
        if (known < 0)
            return failure(Status::InputNotOpened, source);
        size = static_cast<std::uintmax_t>(known);
    }

    Cipher cipher(direction, key, iv);
    if (!cipher.isReady())
        return cipherFailure();
    if (source.isSameAs(target))
        return {Status::OutputNotOpened, QStringLiteral("The output is the input itself")};
    Output output(target);
    if (!target.isOpen())
        return failure(Status::OutputNotOpened, target);
    Result result = stream(source, size, target, cipher, stop);
    if (result.ok() && !output.complete())
        result = failure(Status::WriteFailed, target);
    return result;
}

Result cryptFileThroughSibling(Cipher::Direction direction, const CipherKey &key, const QString &path,
                               const std::atomic<bool> &stop)
{
    const QString siblingPath = path + QLatin1String("orig");
    DiskFile sibling(siblingPath);
    if (sibling.kind() != DiskFile::Kind::Folder)
        sibling.remove();
    Result result;
    {
        DiskFile source(path); // closed before it is replaced
        result = cryptFile(direction, key.data(), fixedIv, source, sibling, stop);
    }
    if (!result.ok())
        return result;
    const QString problem = replaceFile(siblingPath, path, stop);
    if (!problem.isEmpty()) {
        sibling.remove();
        result = {Status::WriteFailed, problem};
    }
    return result;
}

const std::atomic<bool> neverStop{false};

Result badKey() { return {Status::BadKey, QStringLiteral("The key is empty or too long")}; }

} // namespace

FileCipherResult encryptFile(const QByteArray &key, const QString &source, const QString &destination,
                             const std::atomic<bool> &stop)
{
    const CipherThreadState state; // first: released when the cipher and its key have gone
    const CipherKey bytes(key);
    if (key.isEmpty() || !bytes.isValid())
        return badKey();
    DiskFile input(source);
    DiskFile output(destination);
    return cryptFile(Cipher::Direction::Encrypt, bytes.data(), fixedIv, input, output, stop);
}

int cryptFileInPlace(const QByteArray &key, const QString &path, bool encrypt)
{
    const CipherKey bytes(key);
    if (!bytes.isValid())
        return 1;
    const auto direction = encrypt ? Cipher::Direction::Encrypt : Cipher::Direction::Decrypt;
    switch (cryptFileThroughSibling(direction, bytes, path, neverStop).status) {
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
    switch (cryptFile(direction, key, iv, input, output, neverStop).status) {
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
