#include "transfer/FileCipher.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <new>
#include <system_error>

namespace Velmora {

namespace fs = std::filesystem;

namespace {

enum class Padding { Checked, Unchecked };

using Status = FileCipherStatus;
using Result = FileCipherResult;

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Not through QFile: Qt converts names to the encoding of the host's locale, which need not be able to
// express what a UTF-8 path does.
fs::path utf8Path(const char *path)
{
#ifdef _WIN32
    return QString::fromUtf8(path).toStdWString();
#else
    return path;
#endif
}

fs::path qtPath(const QString &path)
{
#ifdef _WIN32
    return path.toStdWString();
#else
    return QFile::encodeName(path).toStdString();
#endif
}

File openUnbuffered(const fs::path &path, bool forWriting)
{
#ifdef _WIN32
    File file(_wfopen(path.c_str(), forWriting ? L"wb" : L"rb"));
#else
    File file(std::fopen(path.c_str(), forWriting ? "wbe" : "rbe"));
#endif
    if (file)
        std::setvbuf(file.get(), nullptr, _IONBF, 0);
    return file;
}

QString systemText(int error) { return QString::fromStdString(std::generic_category().message(error)); }

Result systemFailure(Status status) { return {status, systemText(errno)}; }

Result cancelled() { return {Status::Cancelled, QStringLiteral("Cancelled")}; }

Result cipherFailure() { return {Status::CipherFailed, QStringLiteral("The cipher could not be run")}; }

Result notWholeBlocks()
{
    return {Status::NotWholeBlocks, QStringLiteral("The encrypted file is not a whole number of blocks")};
}

// The file being written: gone again unless it was completed.
class Output {
public:
    explicit Output(const fs::path &path)
        : m_path(path)
        , m_file(openUnbuffered(path, true))
    {
    }
    ~Output()
    {
        if (!m_file && !m_failedToClose)
            return;
        m_file.reset();
        std::error_code error;
        // A device such as /dev/full may be the output; it is not ours to unlink.
        if (fs::is_regular_file(m_path, error))
            fs::remove(m_path, error);
    }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    bool isOpen() const { return m_file != nullptr; }
    bool write(const unsigned char *data, std::size_t size) { return std::fwrite(data, 1, size, m_file.get()) == size; }
    bool complete()
    {
        m_failedToClose = std::fclose(m_file.release()) != 0;
        return !m_failedToClose;
    }

private:
    const fs::path &m_path;
    File m_file;
    bool m_failedToClose = false;
};

Result stream(std::FILE *source, std::uintmax_t size, Output &output, Cipher &cipher, Padding padding,
              const std::atomic<bool> &stop)
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
        const std::size_t got = std::fread(in, 1, wanted, source);
        if (got < wanted && std::ferror(source))
            return systemFailure(Status::ReadFailed);
        total += got;
        last = got < wanted || total == size;

        int produced = 0;
        if (got > 0 && !cipher.update(in, static_cast<int>(got), out, &produced))
            return cipherFailure();
        if (last) {
            int tail = 0;
            if (!cipher.finish(out + produced, &tail) && padding == Padding::Checked) {
                if (total == 0 || total % cipherBlockSize != 0)
                    return notWholeBlocks();
                return {Status::BadLastBlock, QStringLiteral("The file does not decrypt with this key")};
            }
            produced += tail;
        }
        if (produced > 0 && !output.write(out, static_cast<std::size_t>(produced)))
            return systemFailure(Status::WriteFailed);
    }
    return {};
}

Result cryptFile(Cipher::Direction direction, Padding padding, const unsigned char *key, const unsigned char *iv,
                 const fs::path &inPath, const fs::path &outPath, const std::atomic<bool> &stop)
{
    if (stop.load(std::memory_order_relaxed))
        return cancelled();

    // The C library opens a folder as a file on some platforms and only fails to read it.
    std::error_code error;
    const fs::file_type type = fs::status(inPath, error).type();
    if (type == fs::file_type::directory)
        return {Status::InputNotOpened, systemText(EISDIR)};
    const File source = openUnbuffered(inPath, false);
    if (!source)
        return systemFailure(Status::InputNotOpened);

    std::uintmax_t size = std::numeric_limits<std::uintmax_t>::max();
    if (type == fs::file_type::regular)
        size = fs::file_size(inPath, error);
    if (error)
        return {Status::InputNotOpened, QString::fromStdString(error.message())};
    if (padding == Padding::Checked && type == fs::file_type::regular && (size == 0 || size % cipherBlockSize != 0))
        return notWholeBlocks();

    Cipher cipher(direction, key, iv);
    if (!cipher.isReady())
        return cipherFailure();
    if (fs::equivalent(inPath, outPath, error))
        return {Status::OutputNotOpened, QStringLiteral("The output is the input itself")};
    Output output(outPath);
    if (!output.isOpen())
        return systemFailure(Status::OutputNotOpened);
    Result result = stream(source.get(), size, output, cipher, padding, stop);
    if (result.ok() && !output.complete())
        result = systemFailure(Status::WriteFailed);
    return result;
}

Result cryptFileThroughSibling(Cipher::Direction direction, Padding padding, const CipherKey &key, const QString &path,
                               const std::atomic<bool> &stop)
{
    const fs::path target = qtPath(path);
    const fs::path sibling = qtPath(path + QLatin1String("orig"));
    std::error_code error;
    if (!fs::is_directory(sibling, error))
        fs::remove(sibling, error);

    Result result = cryptFile(direction, padding, key.data(), fixedIv, target, sibling, stop);
    if (!result.ok())
        return result;
    fs::rename(sibling, target, error);
    if (error) {
        result = {Status::WriteFailed, QString::fromStdString(error.message())};
        fs::remove(sibling, error);
    }
    return result;
}

const std::atomic<bool> neverStop{false};

Result badKey() { return {Status::BadKey, QStringLiteral("The key is empty or too long")}; }

} // namespace

FileCipherResult encryptFile(const QByteArray &key, const QString &source, const QString &destination,
                             const std::atomic<bool> &stop)
{
    const CipherKey bytes(key);
    if (key.isEmpty() || !bytes.isValid())
        return badKey();
    return cryptFile(Cipher::Direction::Encrypt, Padding::Unchecked, bytes.data(), fixedIv, qtPath(source),
                     qtPath(destination), stop);
}

FileCipherResult decryptFileInPlace(const QByteArray &key, const QString &path, const std::atomic<bool> &stop)
{
    const CipherKey bytes(key);
    if (key.isEmpty() || !bytes.isValid())
        return badKey();
    return cryptFileThroughSibling(Cipher::Direction::Decrypt, Padding::Checked, bytes, path, stop);
}

int cryptFileInPlace(const QByteArray &key, const QString &path, bool encrypt)
{
    const CipherKey bytes(key);
    if (!bytes.isValid())
        return 1;
    const auto direction = encrypt ? Cipher::Direction::Encrypt : Cipher::Direction::Decrypt;
    switch (cryptFileThroughSibling(direction, Padding::Unchecked, bytes, path, neverStop).status) {
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
    switch (cryptFile(direction, Padding::Unchecked, key, iv, utf8Path(inPath), utf8Path(outPath), neverStop).status) {
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
