// The crypto helpers against published vectors, the openssl command, and damaged input.
#include "transfer/FileCipher.h"

#include <velmora/TarnCrypt.h>

#include <QByteArray>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextCodec>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#ifdef __unix__
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#endif

using namespace Velmora;

namespace {

using Bytes = QByteArray;

// Key and plain text of AES-256-CBC in NIST SP 800-38A, F.2.5.
const Bytes nistKey = Bytes::fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
const Bytes nistIv = Bytes::fromHex("000102030405060708090a0b0c0d0e0f");
const Bytes nistPlain = Bytes::fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                                       "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
const Bytes nistCipher = Bytes::fromHex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                                        "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");
const std::atomic<bool> go{false};

unsigned char *raw(Bytes &bytes) { return reinterpret_cast<unsigned char *>(bytes.data()); }
const unsigned char *raw(const Bytes &bytes) { return reinterpret_cast<const unsigned char *>(bytes.constData()); }

Bytes pattern(std::size_t size)
{
    Bytes bytes(static_cast<int>(size), '\0');
    unsigned int state = 1;
    for (char &byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

std::string takeBase64(const Bytes &bytes)
{
    char *text = TarnCrypt::base64(raw(bytes), bytes.size());
    const std::string result = text;
    std::free(text);
    return result;
}

class TarnCryptFiles : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_folder.isValid()); }
    // A thread's stale OpenSSL errors would surface in its next TLS call.
    void TearDown() override { EXPECT_EQ(ERR_peek_error(), 0UL); }

    std::string at(const char *name) const { return m_folder.path().toStdString() + "/" + name; }
    QString qt(const char *name) const { return QString::fromStdString(at(name)); }

    static void put(const std::string &path, const Bytes &bytes)
    {
        std::ofstream file(std::filesystem::u8path(path), std::ios::binary);
        ASSERT_TRUE(file.write(bytes.constData(), bytes.size()));
    }
    static Bytes get(const std::string &path)
    {
        std::ifstream file(std::filesystem::u8path(path), std::ios::binary);
        EXPECT_TRUE(file.is_open()) << path;
        return Bytes::fromStdString(std::string(std::istreambuf_iterator<char>(file), {}));
    }
    static bool exists(const std::string &path) { return std::filesystem::exists(std::filesystem::u8path(path)); }
    int encode(const std::string &in, const std::string &out, const Bytes &key = nistKey) const
    {
        return TarnCrypt::do_encode_binfile(in.c_str(), out.c_str(), raw(key), fixedIv);
    }
    int decode(const std::string &in, const std::string &out, const Bytes &key = nistKey) const
    {
        return TarnCrypt::do_decode_binfile(in.c_str(), out.c_str(), raw(key), fixedIv);
    }
    Bytes encrypted(const Bytes &plain) const
    {
        put(at("encrypted.in"), plain);
        EXPECT_EQ(encode(at("encrypted.in"), at("encrypted.out")), 0);
        return get(at("encrypted.out"));
    }

    QTemporaryDir m_folder;
};

} // namespace

TEST(TarnCrypt, Base64BreaksLinesButNotAtTheEnd)
{
    EXPECT_EQ(takeBase64(""), "");
    EXPECT_EQ(takeBase64("f"), "Zg==");
    EXPECT_EQ(takeBase64("fooba"), "Zm9vYmE=");
    for (const int size : {1, 32, 47, 48, 49, 96, 97, 1023, 1024, 1025, 5000}) {
        const Bytes bytes = pattern(static_cast<std::size_t>(size));
        Bytes expected = bytes.toBase64();
        for (int cut = 64; cut < expected.size(); cut += 65)
            expected.insert(cut, '\n');
        EXPECT_EQ(takeBase64(bytes), expected.toStdString()) << size;
    }
    EXPECT_EQ(takeBase64(pattern(49)).find('\n'), 64U);
    EXPECT_EQ(takeBase64(pattern(49)).size(), 68U + 1U);
    char *negative = TarnCrypt::base64(raw(nistKey), -1);
    EXPECT_STREQ(negative, "");
    std::free(negative);
}

TEST(TarnCrypt, Sha256)
{
    EXPECT_EQ(TarnCrypt::sha_256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(TarnCrypt::sha_256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(TarnCrypt::sha_256(std::string("\0", 1)),
              "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d");
}

TEST(TarnCrypt, HmacOfRfc4231)
{
    const struct {
        Bytes key;
        std::string message;
        const char *digest;
    } cases[] = {
        {Bytes(20, '\x0b'), "Hi There", "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {"Jefe", "what do ya want for nothing?", "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {Bytes(20, '\xaa'), std::string(50, '\xdd'),
         "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
        {Bytes(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {"", "", "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad"},
    };
    for (const auto &test : cases) {
        const std::string key = test.key.toStdString();
        const std::string hexKey = test.key.toHex().toStdString();
        const std::string base64 = Bytes::fromHex(test.digest).toBase64().toStdString();
        EXPECT_EQ(TarnCrypt::hmac_sha_256(TarnCrypt::Raw, key, test.message, TarnCrypt::Hex), test.digest);
        EXPECT_EQ(TarnCrypt::hmac_sha_256(TarnCrypt::Hex, hexKey, test.message, TarnCrypt::Hex), test.digest);
        EXPECT_EQ(TarnCrypt::hmac_sha_256(TarnCrypt::Hex, hexKey, test.message, TarnCrypt::Raw), base64);
        const auto other = static_cast<TarnCrypt::KeyType>(7);
        EXPECT_EQ(TarnCrypt::hmac_sha_256(other, key, test.message, other), base64);
    }
}

TEST(TarnCrypt, HmacSkipsWhatIsNoHexDigitInAHexKey)
{
    const auto hmac = [](const char *key) { return TarnCrypt::hmac_sha_256(TarnCrypt::Hex, key, "m", TarnCrypt::Hex); };
    EXPECT_EQ(hmac("4a-65 zz\n66:65"), hmac("4a656665"));
    EXPECT_EQ(hmac("4A656665"), hmac("4a656665"));
    EXPECT_EQ(hmac("a6566"), hmac("0a6566"));
    EXPECT_NE(hmac("4a656665"), hmac("4a6566"));
}

TEST(TarnCrypt, HideAndShowTheNistVector)
{
    Bytes plain = nistPlain;
    Bytes out(plain.size() + 16, '\0');
    int length = -1;
    ASSERT_EQ(TarnCrypt::do_hide(raw(plain), raw(out), &length, raw(nistKey), raw(nistIv)), 0);
    ASSERT_EQ(length, plain.size() + 16);
    EXPECT_EQ(out.left(plain.size()), nistCipher);

    Bytes shown(length, '\0');
    ASSERT_EQ(TarnCrypt::do_show(raw(out), length, raw(shown), &length, raw(nistKey), raw(nistIv)), 0);
    EXPECT_EQ(shown.left(length), nistPlain);
}

TEST(TarnCrypt, ShowRefusesWhatItCannotDecrypt)
{
    Bytes plain = "some text";
    Bytes cipher(64, '\0');
    int length = 0;
    ASSERT_EQ(TarnCrypt::do_hide(raw(plain), raw(cipher), &length, raw(nistKey), fixedIv), 0);
    ASSERT_EQ(length, 16);

    const Bytes untouched(64, '?');
    for (const int bad : {15, 17, 1, -1, -16}) {
        Bytes out = untouched;
        int outLength = 4711;
        EXPECT_EQ(TarnCrypt::do_show(raw(cipher), bad, raw(out), &outLength, raw(nistKey), fixedIv), 1) << bad;
        EXPECT_EQ(out, untouched);
        EXPECT_EQ(outLength, 4711);
    }
    Bytes out = untouched;
    const Bytes wrongKey(32, 'k');
    int outLength = 4711;
    EXPECT_EQ(TarnCrypt::do_show(raw(cipher), 16, raw(out), &outLength, raw(wrongKey), fixedIv), 2);
    EXPECT_EQ(TarnCrypt::do_show(raw(cipher), 0, raw(out), &outLength, raw(nistKey), fixedIv), 2);
    EXPECT_EQ(outLength, 4711);
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

TEST_F(TarnCryptFiles, SameBytesAsTheOpensslCommandForEverySize)
{
    const QString openssl = QStandardPaths::findExecutable(QStringLiteral("openssl"));
    if (openssl.isEmpty())
        GTEST_SKIP() << "no openssl command";
    const QString iv = QStringLiteral("5C19E307A24F6BD0913E28C7F40A66B5"); // what the service's files are made with
    const std::size_t buffer = fileCipherBufferSize;
    const std::vector<std::size_t> sizes = {0, 1, 15, 16, 17, buffer - 1, buffer, buffer + 1, 3 * buffer + 16};
    for (const std::size_t size : sizes) {
        SCOPED_TRACE(size);
        const Bytes plain = pattern(size);
        put(at("plain"), plain);
        const QString options =
            QStringLiteral("enc -aes-256-cbc -K %1 -iv %2 -in").arg(QString::fromLatin1(nistKey.toHex()), iv);
        const QStringList files = {qt("plain"), QStringLiteral("-out"), qt("peer")};
        ASSERT_EQ(QProcess::execute(openssl, options.split(QLatin1Char(' ')) + files), 0);
        ASSERT_EQ(encode(at("plain"), at("cipher")), 0);
        const Bytes cipher = get(at("cipher"));
        EXPECT_EQ(static_cast<std::size_t>(cipher.size()), size / 16 * 16 + 16);
        EXPECT_TRUE(cipher == get(at("peer")));
        ASSERT_EQ(decode(at("cipher"), at("shown")), 0);
        EXPECT_TRUE(get(at("shown")) == plain);

        ASSERT_TRUE(encryptFile(nistKey, qt("plain"), qt("mine"), go).ok());
        EXPECT_TRUE(get(at("mine")) == cipher);
        ASSERT_TRUE(decryptFile(nistKey, qt("mine"), qt("shown"), go).ok());
        EXPECT_TRUE(get(at("shown")) == plain);
        ASSERT_EQ(cryptFileInPlace(nistKey, qt("plain"), true), 0);
        EXPECT_TRUE(get(at("plain")) == cipher);
        ASSERT_EQ(cryptFileInPlace(nistKey, qt("plain"), false), 0);
        EXPECT_TRUE(get(at("plain")) == plain);
        ASSERT_TRUE(decryptFileInPlace(nistKey, qt("mine"), go).ok());
        EXPECT_TRUE(get(at("mine")) == plain);
        EXPECT_FALSE(exists(at("plainorig")) || exists(at("mineorig")));
    }
}

// Lenient decryption keeps what the block-wise cipher gave out; strict decryption keeps nothing.
TEST_F(TarnCryptFiles, DamagedCipherText)
{
    const int buffer = static_cast<int>(fileCipherBufferSize);
    const int size = 2 * buffer + 5;
    const Bytes plain = pattern(static_cast<std::size_t>(size));
    const Bytes cipher = encrypted(plain);
    ASSERT_EQ(cipher.size(), 2 * buffer + 16);
    const auto flipped = [&](int position) {
        Bytes copy = cipher;
        copy[position] = static_cast<char>(copy.at(position) ^ 0x80);
        return copy;
    };
    const struct {
        const char *what;
        Bytes cipher;
        FileCipherStatus strict;
        int lenientSize; // of an intact prefix of the plain text
    } cases[] = {
        {"empty", {}, FileCipherStatus::NotWholeBlocks, 0},
        {"less than a block", cipher.left(15), FileCipherStatus::NotWholeBlocks, 0},
        {"cut inside a block", cipher.left(33), FileCipherStatus::NotWholeBlocks, 32},
        {"one byte short", cipher.left(cipher.size() - 1), FileCipherStatus::NotWholeBlocks, 2 * buffer},
        {"one byte over a buffer", cipher.left(buffer + 1), FileCipherStatus::NotWholeBlocks, buffer},
        {"cut at a buffer's edge", cipher.left(buffer), FileCipherStatus::BadLastBlock, buffer - 16},
        {"cut at a block's edge", cipher.left(cipher.size() - 16), FileCipherStatus::BadLastBlock, 2 * buffer - 16},
        {"last block flipped", flipped(2 * buffer + 3), FileCipherStatus::BadLastBlock, 2 * buffer},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.what);
        put(at("cipher"), test.cipher);
        ASSERT_EQ(decode(at("cipher"), at("lenient")), 0);
        EXPECT_TRUE(get(at("lenient")) == plain.left(test.lenientSize)) << get(at("lenient")).size();
        const FileCipherResult result = decryptFile(nistKey, qt("cipher"), qt("strict"), go);
        EXPECT_EQ(result.status, test.strict);
        EXPECT_FALSE(result.reason.isEmpty());
        EXPECT_FALSE(exists(at("strict")));
        EXPECT_EQ(decryptFileInPlace(nistKey, qt("cipher"), go).status, test.strict);
        EXPECT_TRUE(get(at("cipher")) == test.cipher);
        EXPECT_FALSE(exists(at("cipherorig")));
    }

    // A bit flipped before the last two blocks garbles one block and flips the same bit of the next one.
    put(at("cipher"), flipped(32));
    ASSERT_TRUE(decryptFile(nistKey, qt("cipher"), qt("strict"), go).ok());
    const Bytes shown = get(at("strict"));
    EXPECT_TRUE(shown.left(32) == plain.left(32));
    EXPECT_NE(shown.mid(32, 16), plain.mid(32, 16));
    EXPECT_EQ(shown.at(48), static_cast<char>(plain.at(48) ^ 0x80));
    EXPECT_TRUE(shown.mid(49) == plain.mid(49));

    const Bytes wrongKey(32, 'k');
    put(at("cipher"), cipher);
    EXPECT_EQ(decode(at("cipher"), at("lenient"), wrongKey), 0);
    EXPECT_EQ(get(at("lenient")).size(), cipher.size() - 16);
    EXPECT_EQ(decryptFile(wrongKey, qt("cipher"), qt("strict"), go).status, FileCipherStatus::BadLastBlock);
}

TEST_F(TarnCryptFiles, PathsThatCannotBeUsed)
{
    put(at("plain"), "text");
    put(at("kept"), "kept");
    const std::string missing = at("missing");
    const std::string noFolder = at("no/such/folder");
    for (const std::string &bad : {missing, at("")}) { // at("") is the folder itself
        EXPECT_EQ(encode(bad, at("kept")), 1);
        EXPECT_EQ(decode(bad, at("kept")), 1);
        EXPECT_EQ(encryptFile(nistKey, QString::fromStdString(bad), qt("kept"), go).status,
                  FileCipherStatus::InputNotOpened);
    }
    EXPECT_EQ(get(at("kept")), "kept");
    for (const std::string &bad : {noFolder, at("")}) {
        EXPECT_EQ(encode(at("plain"), bad), 2);
        const FileCipherResult result = encryptFile(nistKey, qt("plain"), QString::fromStdString(bad), go);
        EXPECT_EQ(result.status, FileCipherStatus::OutputNotOpened);
        EXPECT_FALSE(result.reason.isEmpty());
    }
    std::filesystem::create_hard_link(at("plain"), at("twin"));
    for (const char *same : {"plain", "./plain", "twin"}) {
        EXPECT_EQ(encode(at("plain"), at(same)), 2) << same;
        EXPECT_EQ(get(at("plain")), "text");
    }
    EXPECT_EQ(cryptFileInPlace(nistKey, qt("missing"), true), 0);
    EXPECT_FALSE(exists(missing) || exists(at("missingorig")));
    EXPECT_EQ(decryptFileInPlace(nistKey, qt("missing"), go).status, FileCipherStatus::InputNotOpened);
}

TEST_F(TarnCryptFiles, PathsAreUtf8WhateverTheLocaleOfQt)
{
    put(at("plain"), "text");
    const std::string name = at("gr\xc3\xbc\xc3\x9f \xe6\x96\x87.bin");
    QTextCodec *const codec = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    const int encoded = encode(at("plain"), name);
    const int decoded = decode(name, at("shown"));
    QTextCodec::setCodecForLocale(codec);
    EXPECT_EQ(encoded, 0);
    EXPECT_EQ(decoded, 0);
    EXPECT_TRUE(exists(name));
    EXPECT_EQ(get(at("shown")), "text");
    ASSERT_TRUE(decryptFileInPlace(nistKey, QString::fromStdString(name), go).ok());
    EXPECT_EQ(get(name), "text");
}

TEST_F(TarnCryptFiles, SiblingLeftByACrashIsRemovedNotWrittenInto)
{
    const Bytes longer = pattern(fileCipherBufferSize);
    put(at("kept"), longer);
    for (const bool encrypt : {true, false}) {
        put(at("file"), encrypt ? Bytes("text") : encrypted("text"));
        std::filesystem::create_hard_link(at("kept"), at("fileorig"));
        EXPECT_EQ(cryptFileInPlace(nistKey, qt("file"), encrypt), 0);
        EXPECT_EQ(get(at("file")), encrypt ? encrypted("text") : Bytes("text"));
        EXPECT_FALSE(exists(at("fileorig")));
        EXPECT_TRUE(get(at("kept")) == longer);
    }
}

TEST_F(TarnCryptFiles, KeysArePaddedOrRefused)
{
    put(at("plain"), "text");
    const Bytes shortKey = "short";
    ASSERT_TRUE(encryptFile(shortKey, qt("plain"), qt("cipher"), go).ok());
    ASSERT_EQ(encode(at("plain"), at("padded"), shortKey + Bytes(27, '\0')), 0);
    EXPECT_EQ(get(at("cipher")), get(at("padded")));

    put(at("kept"), "kept");
    for (const Bytes &key : {Bytes(), Bytes(33, 'k')}) {
        EXPECT_EQ(encryptFile(key, qt("plain"), qt("kept"), go).status, FileCipherStatus::BadKey);
        EXPECT_EQ(decryptFile(key, qt("cipher"), qt("kept"), go).status, FileCipherStatus::BadKey);
        EXPECT_EQ(decryptFileInPlace(key, qt("kept"), go).status, FileCipherStatus::BadKey);
    }
    EXPECT_EQ(cryptFileInPlace(Bytes(33, 'k'), qt("kept"), true), 1);
    EXPECT_EQ(get(at("kept")), "kept");
    ASSERT_EQ(cryptFileInPlace({}, qt("kept"), true), 0);
    ASSERT_EQ(decode(at("kept"), at("shown"), Bytes(32, '\0')), 0);
    EXPECT_EQ(get(at("shown")), "kept");
}

TEST_F(TarnCryptFiles, StopMarkSetBefore)
{
    const std::atomic<bool> stop{true};
    const Bytes cipher = encrypted("text");
    put(at("cipher"), cipher);
    EXPECT_EQ(encryptFile(nistKey, qt("cipher"), qt("out"), stop).status, FileCipherStatus::Cancelled);
    EXPECT_EQ(decryptFile(nistKey, qt("cipher"), qt("out"), stop).status, FileCipherStatus::Cancelled);
    EXPECT_EQ(decryptFileInPlace(nistKey, qt("cipher"), stop).status, FileCipherStatus::Cancelled);
    EXPECT_FALSE(exists(at("out")) || exists(at("cipherorig")));
    EXPECT_EQ(get(at("cipher")), cipher);
}

#ifdef __unix__
// The writer of the pipe sets the mark after the first buffer; at the latest the second one is the last taken.
TEST_F(TarnCryptFiles, StopMarkSetBetweenTwoBuffers)
{
    std::signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    std::atomic<bool> stop{false};
    bool opened = false;
    std::thread writer([&] {
        std::ofstream pipe(at("pipe"), std::ios::binary);
        const Bytes part = pattern(fileCipherBufferSize);
        pipe.write(part.constData(), part.size());
        opened = exists(at("out"));
        stop = true;
        for (int more = 0; more < 4; ++more)
            pipe.write(part.constData(), part.size());
    });
    const FileCipherResult result = encryptFile(nistKey, qt("pipe"), qt("out"), stop);
    writer.join();
    EXPECT_EQ(result.status, FileCipherStatus::Cancelled);
    EXPECT_TRUE(opened);
    EXPECT_FALSE(exists(at("out")));
}

TEST_F(TarnCryptFiles, FullDiskIsAnErrorAndLeavesNoOutput)
{
    std::signal(SIGXFSZ, SIG_IGN);
    put(at("plain"), pattern(3 * fileCipherBufferSize));
    put(at("cipher"), encrypted(pattern(3 * fileCipherBufferSize)));
    struct rlimit old = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
    struct rlimit limit = old;
    limit.rlim_cur = fileCipherBufferSize + 4096;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const int encoded = encode(at("plain"), at("encoded"));
    const int decoded = decode(at("cipher"), at("decoded"));
    const FileCipherResult uploaded = encryptFile(nistKey, qt("plain"), qt("uploaded"), go);
    const FileCipherResult inPlace = decryptFileInPlace(nistKey, qt("cipher"), go);
    const int cryptedInPlace = cryptFileInPlace(nistKey, qt("plain"), true);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &old), 0);

    EXPECT_EQ(encoded, 2);
    EXPECT_EQ(decoded, 2);
    EXPECT_EQ(uploaded.status, FileCipherStatus::WriteFailed);
    EXPECT_EQ(uploaded.reason, QStringLiteral("File too large"));
    EXPECT_EQ(inPlace.status, FileCipherStatus::WriteFailed);
    EXPECT_EQ(cryptedInPlace, 2);
    for (const char *name : {"encoded", "decoded", "uploaded", "cipherorig", "plainorig"})
        EXPECT_FALSE(exists(at(name))) << name;
    EXPECT_TRUE(get(at("plain")) == pattern(3 * fileCipherBufferSize));
    EXPECT_EQ(get(at("cipher")).size(), static_cast<int>(3 * fileCipherBufferSize + 16));

    if (exists("/dev/full")) {
        EXPECT_EQ(encode(at("plain"), "/dev/full"), 2);
        EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
    }
}
#endif
