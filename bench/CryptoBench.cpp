/// @file CryptoBench.cpp
/// Speed of the file cipher against peers in the same run, as rows of a Markdown table.
///
///     velmora_crypto_bench [--dir DIR] [--size MIB] [--files N] [--rounds N]
///
/// DIR should be on a memory file system, with room for three files of the size. Every round runs ours and
/// the peer one after the other, in turns which of them first; a row shows the medians of the times and the
/// median of the rounds' ratios. Every peer's output is compared with ours once.
#include "transfer/FileCipher.h"

#include <velmora/TarnCrypt.h>

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <openssl/evp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Velmora::TarnCrypt;

const QByteArray key = QByteArrayLiteral("0123456789abcdef0123456789abcdef");
const auto *keyBytes = reinterpret_cast<const unsigned char *>(key.constData());

[[noreturn]] void fail(const std::string &why)
{
    std::fprintf(stderr, "velmora_crypto_bench: %s\n", why.c_str());
    std::exit(1);
}

void require(bool condition, const std::string &what)
{
    if (!condition)
        fail(what);
}

struct Cost {
    double wall = 0; ///< seconds
    double cpu = 0;  ///< seconds of this process and its children, which other load on the machine sways less
};

double cpuSeconds()
{
    double sum = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        struct rusage usage = {};
        ::getrusage(who, &usage);
        for (const timeval &time : {usage.ru_utime, usage.ru_stime})
            sum += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    }
    return sum;
}

Cost measure(const std::function<void()> &work)
{
    const double cpu = cpuSeconds();
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto end = std::chrono::steady_clock::now();
    return {std::chrono::duration<double>(end - start).count(), cpuSeconds() - cpu};
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void row(const char *what, const char *peer, double goal, int rounds, const std::function<void()> &ours,
         const std::function<void()> &theirs)
{
    std::vector<double> ourTimes;
    std::vector<double> peerTimes;
    std::vector<double> ratios;
    std::vector<double> cpuRatios;
    ours(); // the first pass pays for page allocation and library set-up
    theirs();
    for (int round = 0; round < rounds; ++round) {
        const bool oursFirst = round % 2 == 0;
        const Cost first = measure(oursFirst ? ours : theirs);
        const Cost second = measure(oursFirst ? theirs : ours);
        const Cost &mine = oursFirst ? first : second;
        const Cost &other = oursFirst ? second : first;
        ourTimes.push_back(mine.wall);
        peerTimes.push_back(other.wall);
        ratios.push_back(mine.wall / other.wall);
        cpuRatios.push_back(mine.cpu / other.cpu);
    }
    const auto [low, high] = std::minmax_element(ratios.begin(), ratios.end());
    std::printf("| %s | %.3f s | %s: %.3f s | %.2f (%.2f to %.2f) | %.2f | %.2f | %s |\n", what, median(ourTimes), peer,
                median(peerTimes), median(ratios), *low, *high, median(cpuRatios), goal,
                median(ratios) <= goal ? "met" : "missed");
    std::fflush(stdout);
}

void writePlain(const std::string &path, std::size_t size)
{
    std::vector<char> block(1 << 20);
    unsigned int state = 12345;
    for (char &byte : block) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    std::FILE *file = std::fopen(path.c_str(), "wb");
    require(file != nullptr, "cannot create " + path);
    for (std::size_t left = size; left > 0;) {
        const std::size_t part = std::min(left, block.size());
        require(std::fwrite(block.data(), 1, part, file) == part, "cannot write " + path);
        left -= part;
    }
    std::fclose(file);
}

void requireSame(const std::string &a, const std::string &b)
{
    require(std::system(("cmp -s '" + a + "' '" + b + "'").c_str()) == 0, a + " and " + b + " differ");
}

std::string hex(const unsigned char *data, int size)
{
    return QByteArray(reinterpret_cast<const char *>(data), size).toHex().toStdString();
}

void openssl(bool encrypt, const std::string &in, const std::string &out)
{
    const std::string command = std::string("openssl enc ") + (encrypt ? "-e" : "-d") +
                                " -aes-256-cbc -bufsize 1048576 -K " + hex(keyBytes, Velmora::cipherKeySize) + " -iv " +
                                hex(Velmora::fixedIv, Velmora::cipherBlockSize) + " -in '" + in + "' -out '" + out +
                                "'";
    require(std::system(command.c_str()) == 0, "openssl enc failed");
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
        EVP_CipherInit_ex2(context, EVP_aes_256_cbc(), keyBytes, Velmora::fixedIv, encrypt, nullptr) == 1 &&
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
    const int code = encrypt ? TarnCrypt::do_encode_binfile(in.c_str(), out.c_str(), keyBytes, Velmora::fixedIv)
                             : TarnCrypt::do_decode_binfile(in.c_str(), out.c_str(), keyBytes, Velmora::fixedIv);
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

    const std::atomic<bool> stop{false};
    row(
        "upload's local work, source to encrypted file", "one do_encode_binfile pass", 1.05, rounds,
        [&] {
            require(Velmora::encryptFile(key, QFile::decodeName(plain.c_str()), QFile::decodeName(other.c_str()), stop)
                        .ok(),
                    "encryptFile failed");
        },
        [&] { ours(true, plain, mine); });
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
    std::printf(
        "| What | Ours | Peer | Wall ratio (range) | CPU ratio | Goal (wall) | |\n|---|---|---|---|---|---|---|\n");
    largeFile(path, mebibytes << 20, rounds);
    smallFiles(path, files, std::max(rounds, 11));
    return 0;
}
