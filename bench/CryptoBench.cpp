/// @file CryptoBench.cpp
/// Speed of the file cipher against peers in the same run, as rows of a Markdown table.
///
///     velmora_crypto_bench [--dir DIR] [--size MIB] [--files N] [--rounds N]
///
/// DIR should be on a memory file system, with room for three files of the size. Every peer's output is compared
/// with ours once.
#include "Rows.h"
#include "crypto/FileCipher.h"

#include <velmora/TarnCrypt.h>

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Velmora::TarnCrypt;
using namespace Bench;

const QByteArray key = QByteArrayLiteral("0123456789abcdef0123456789abcdef");
const auto *keyBytes = reinterpret_cast<const unsigned char *>(key.constData());

std::string hex(const unsigned char *data, int size)
{
    return QByteArray(reinterpret_cast<const char *>(data), size).toHex().toStdString();
}

void openssl(bool encrypt, const std::string &in, const std::string &out)
{
    const std::string command = std::string("openssl enc ") + (encrypt ? "-e" : "-d") +
                                " -aes-256-cbc -bufsize 1048576 -K " + hex(keyBytes, Velmora::cipherKeySize) + " -iv " +
                                hex(Velmora::jobFileIv, Velmora::cipherBlockSize) + " -in '" + in + "' -out '" + out +
                                "'";
    run(command);
}

// The peer of small files: the input mapped, the cipher called once over the whole, one write. (Mapping the
// output as well makes the peer several times slower: a fault for every page.)
void oneShotMapped(bool encrypt, const std::string &in, const std::string &out)
{
    const int source = ::open(in.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info = {};
    require(source >= 0 && ::fstat(source, &info) == 0, "cannot open " + in);
    const auto size = static_cast<std::size_t>(info.st_size);
    void *from = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, source, 0);
    require(from != MAP_FAILED, "cannot map " + in);
    ::close(source);

    std::vector<unsigned char> result(size + Velmora::cipherBlockSize);
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    int head = 0;
    int tail = 0;
    const bool done =
        EVP_CipherInit_ex2(context, EVP_aes_256_cbc(), keyBytes, Velmora::jobFileIv, encrypt, nullptr) == 1 &&
        EVP_CipherUpdate(context, result.data(), &head, static_cast<unsigned char *>(from), static_cast<int>(size)) ==
            1 &&
        EVP_CipherFinal_ex(context, result.data() + head, &tail) == 1;
    EVP_CIPHER_CTX_free(context);
    ::munmap(from, size);
    require(done, "one-shot cipher failed");

    const int target = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    require(target >= 0 && ::write(target, result.data(), static_cast<std::size_t>(head + tail)) == head + tail,
            "cannot write " + out);
    ::close(target);
}

void ours(bool encrypt, const std::string &in, const std::string &out)
{
    const int code = encrypt ? TarnCrypt::do_encode_binfile(in.c_str(), out.c_str(), keyBytes, Velmora::jobFileIv)
                             : TarnCrypt::do_decode_binfile(in.c_str(), out.c_str(), keyBytes, Velmora::jobFileIv);
    require(code == 0, "file cipher returned " + std::to_string(code));
}

void largeFile(const std::string &folder, std::size_t size, int rounds)
{
    const std::string plain = folder + "/plain";
    const std::string mine = folder + "/ours";
    const std::string other = folder + "/peer";
    writePlain(plain, size);
    row(
        "do_encode_binfile, large file", "openssl enc", 0.8, rounds, [&] { ours(true, plain, mine); },
        [&] { openssl(true, plain, other); });
    requireSame(mine, other);

    require(std::rename(mine.c_str(), plain.c_str()) == 0, "cannot rename");
    row(
        "do_decode_binfile, large file", "openssl enc -d", 0.55, rounds, [&] { ours(false, plain, mine); },
        [&] { openssl(false, plain, other); });
    requireSame(mine, other);
    for (const std::string &path : {plain, mine, other})
        std::remove(path.c_str());
}

void smallFiles(const std::string &folder, int count, int rounds)
{
    const auto name = [&](const char *kind, int index) { return folder + "/" + kind + std::to_string(index); };
    const auto each = [&](const std::function<void(int)> &work) {
        for (int index = 0; index < count; ++index)
            work(index);
    };
    each([&](int index) { writePlain(name("plain", index), 4096); });
    row(
        "do_encode_binfile, small files", "one-shot EVP over mapped files", 1.2, rounds,
        [&] { each([&](int index) { ours(true, name("plain", index), name("ours", index)); }); },
        [&] { each([&](int index) { oneShotMapped(true, name("plain", index), name("peer", index)); }); });
    requireSame(name("ours", count - 1), name("peer", count - 1));
    row(
        "do_decode_binfile, small files", "one-shot EVP over mapped files", 1.2, rounds,
        [&] { each([&](int index) { ours(false, name("peer", index), name("ours", index)); }); },
        [&] { each([&](int index) { oneShotMapped(false, name("peer", index), name("plain", index)); }); });
    requireSame(name("ours", count - 1), name("plain", count - 1));
}

} // namespace

int main(int argc, char **argv)
{
    std::string folder = "/dev/shm";
    std::size_t mebibytes = 1024;
    int files = 1000;
    int rounds = 5;
    for (int index = 1; index + 1 < argc; index += 2) {
        const std::string option = argv[index];
        const char *value = argv[index + 1];
        if (option == "--dir")
            folder = value;
        else if (option == "--size")
            mebibytes = std::strtoul(value, nullptr, 10);
        else if (option == "--files")
            files = std::atoi(value);
        else if (option == "--rounds")
            rounds = std::atoi(value);
        else
            fail("unknown option " + option);
    }
    require(mebibytes > 0 && files > 0 && rounds > 0 && argc % 2 == 1, "bad arguments");

    QTemporaryDir scratch(QString::fromStdString(folder) + QLatin1String("/velmora-crypto-XXXXXX"));
    require(scratch.isValid(), "cannot create a folder in " + folder);
    const std::string path = scratch.path().toStdString();
    std::printf("%zu MiB, %d files of 4 KiB, median of %d rounds, buffer %zu KiB\n\n", mebibytes, files, rounds,
                Velmora::fileCipherBufferSize / 1024);
    head();
    largeFile(path, mebibytes << 20, rounds);
    smallFiles(path, files, std::max(rounds, 11));
    return 0;
}
