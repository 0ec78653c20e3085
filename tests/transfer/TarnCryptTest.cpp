// The crypto helpers against published vectors, the openssl command, and damaged input.
#include "transfer/TransferFixture.h"

#include "torture/DiskCalls.h"

#include <velmora/TarnCrypt.h>

#if QT_VERSION_MAJOR < 6
#include <QTextCodec>
#endif

#include <openssl/err.h>

#include <filesystem>

namespace {

using Bytes = QByteArray;

// Key and plain text of AES-256-CBC in NIST SP 800-38A, F.2.5.
const Bytes nistKey = Bytes::fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
const Bytes nistIv = Bytes::fromHex("000102030405060708090a0b0c0d0e0f");
const Bytes nistPlain = Bytes::fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
                                       "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
const Bytes nistCipher = Bytes::fromHex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
                                        "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b");
const Bytes wrongKey(32, 'k');
constexpr int buffer = static_cast<int>(fileCipherBufferSize);

unsigned char *raw(Bytes &bytes) { return reinterpret_cast<unsigned char *>(bytes.data()); }
const unsigned char *raw(const Bytes &bytes) { return reinterpret_cast<const unsigned char *>(bytes.constData()); }

struct TarnCryptFileTest : FolderTest {
    // An OpenSSL error left in a thread would show up in its next TLS call; one of the application stays.
    TarnCryptFileTest() { ERR_raise(ERR_LIB_USER, 7); }
    void TearDown() override
    {
        EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 7);
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }

    int encode(const char *in, const char *out, const Bytes &key = nistKey) const
    {
        return TarnCrypt::do_encode_binfile(at(in).c_str(), at(out).c_str(), raw(key), fixedIv);
    }
    int decode(const char *in, const char *out, const Bytes &key = nistKey) const
    {
        return TarnCrypt::do_decode_binfile(at(in).c_str(), at(out).c_str(), raw(key), fixedIv);
    }
    int cryptInPlace(const char *name, bool hide) { return cryptFileInPlace(nistKey, qt(name), hide); }
    Bytes encrypted(const Bytes &plain) const
    {
        write("encrypted.in", plain);
        EXPECT_EQ(encode("encrypted.in", "encrypted.out"), 0);
        return read("encrypted.out");
    }
};

TEST(TarnCryptTest, base64AndSha256_anyInput_matchOthers)
{
    for (const int size : {0, 1, 47, 48, 49, 96, 97, 5000}) {
        const Bytes bytes = noise(size);
        Bytes expected = bytes.toBase64();
        for (int cut = 64; cut < expected.size(); cut += 65)
            expected.insert(cut, '\n');
        const std::unique_ptr<char, decltype(&std::free)> text(TarnCrypt::base64(raw(bytes), size), &std::free);
        EXPECT_EQ(text.get(), expected) << size << ": lines, but none ended at the end";
    }
    EXPECT_EQ(TarnCrypt::sha_256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(TarnCrypt::sha_256(std::string("\0", 1)),
              "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d");
}

TEST(TarnCryptTest, hmac_vectorsOfRfc4231_matchInEveryForm)
{
    const std::tuple<Bytes, std::string, const char *> cases[] = {
        {"Jefe", "what do ya want for nothing?", "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {Bytes(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {"", "", "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad"}};
    constexpr auto binary = TarnCrypt::Raw, hex = TarnCrypt::Hex, other = static_cast<TarnCrypt::KeyType>(7);
    for (const auto &[bytes, message, digest] : cases) {
        const std::string key = bytes.toStdString(), hexKey = bytes.toHex().toStdString();
        const std::string base64 = Bytes::fromHex(digest).toBase64().toStdString();
        EXPECT_EQ(TarnCrypt::hmac_sha_256(binary, key, message, hex), digest);
        EXPECT_EQ(TarnCrypt::hmac_sha_256(hex, hexKey, message, hex), digest);
        EXPECT_EQ(TarnCrypt::hmac_sha_256(hex, hexKey, message, binary), base64);
        EXPECT_EQ(TarnCrypt::hmac_sha_256(other, key, message, other), base64);
    }
    const auto hmac = [=](const char *key) { return TarnCrypt::hmac_sha_256(hex, key, "m", hex); };
    for (const char *same : {"4a-65 zz\n66:65", "4A656665"})
        EXPECT_EQ(hmac(same), hmac("4a656665")) << "what is no hex digit is skipped";
    EXPECT_EQ(hmac("a6566"), hmac("0a6566"));
}

TEST(TarnCryptTest, hideAndShow_nistVector_matchesAndOtherInputIsRefused)
{
    Bytes plain = nistPlain, out(plain.size() + 16, '\0');
    int length = -1;
    ASSERT_EQ(TarnCrypt::do_hide(raw(plain), raw(out), &length, raw(nistKey), raw(nistIv)), 0);
    ASSERT_EQ(length, plain.size() + 16);
    EXPECT_EQ(out.left(plain.size()), nistCipher);

    Bytes shown(length, '\0');
    ASSERT_EQ(TarnCrypt::do_show(raw(out), length, raw(shown), &length, raw(nistKey), raw(nistIv)), 0);
    EXPECT_EQ(shown.left(length), nistPlain);

    const Bytes untouched(80, '?');
    for (const auto &[size, key, result] :
         {std::tuple(15, nistKey, 1), {17, nistKey, 1}, {-16, nistKey, 1}, {80, wrongKey, 2}, {0, wrongKey, 2}}) {
        shown = untouched;
        length = 4711;
        EXPECT_EQ(TarnCrypt::do_show(raw(out), size, raw(shown), &length, raw(key), raw(nistIv)), result) << size;
        EXPECT_EQ(length, 4711);
        EXPECT_TRUE(result == 2 || shown == untouched);
    }
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

TEST_F(TarnCryptFileTest, encryption_everySize_givesTheBytesOfTheOpensslCommand)
{
    const QString openssl = QStandardPaths::findExecutable("openssl");
    if (openssl.isEmpty())
        GTEST_SKIP() << "no openssl command";
    for (const int size : {0, 1, 15, 16, 17, buffer - 1, buffer, buffer + 1, 3 * buffer + 16}) {
        SCOPED_TRACE(size);
        const Bytes plain = noise(size);
        write("plain", plain);
        ASSERT_EQ(QProcess::execute(openssl, {"enc", "-aes-256-cbc", "-K", nistKey.toHex(), "-iv",
                                              "5C19E307A24F6BD0913E28C7F40A66B5", // as the service's files
                                              "-in", qt("plain"), "-out", qt("peer")}),
                  0);
        const Bytes cipher = read("peer");
        EXPECT_EQ(cipher.size(), size / 16 * 16 + 16);
        ASSERT_EQ(encode("plain", "cipher"), 0);
        EXPECT_TRUE(read("cipher") == cipher);
        ASSERT_EQ(decode("cipher", "shown"), 0);
        EXPECT_TRUE(read("shown") == plain);
    }
}

TEST_F(TarnCryptFileTest, decryption_damagedCipherText_keepsTheIntactPrefix)
{
    const Bytes plain = noise(2 * buffer + 5), cipher = encrypted(plain);
    Bytes flipped = cipher;
    flipped[2 * buffer + 3] = static_cast<char>(flipped.at(2 * buffer + 3) ^ 0x80);
    for (const auto &[damaged, size] : {std::pair(Bytes(), 0),
                                        {cipher.left(33), 32},
                                        {cipher.left(buffer + 1), buffer},
                                        {cipher.left(buffer), buffer - 16},
                                        {flipped, 2 * buffer}}) {
        write("cipher", damaged);
        ASSERT_EQ(decode("cipher", "shown"), 0);
        EXPECT_TRUE(read("shown") == plain.left(size)) << read("shown").size();
    }
}

TEST_F(TarnCryptFileTest, cipher_unusableFile_changesNothing)
{
    write("plain", "text");
    write("kept", "kept");
    for (const char *bad : {"missing", ""}) { // "" is the folder itself
        EXPECT_EQ(encode(bad, "kept"), 1);
        EXPECT_EQ(decode(bad, "kept"), 1);
    }
    EXPECT_EQ(read("kept"), "kept");
    for (const char *bad : {"no/such/folder", ""})
        EXPECT_EQ(encode("plain", bad), 2);
    std::filesystem::create_hard_link(at("plain"), at("twin"));
    for (const char *same : {"plain", "./plain", "twin"}) {
        EXPECT_EQ(encode("plain", same), 2) << same;
        EXPECT_EQ(read("plain"), "text");
    }
    EXPECT_EQ(cryptInPlace("missing", true), 0);
    EXPECT_EQ(filesIn("."), QStringList({"kept", "plain", "twin"}));
    if (std::filesystem::exists("/dev/full")) {
        EXPECT_EQ(TarnCrypt::do_encode_binfile(at("plain").c_str(), "/dev/full", raw(nistKey), fixedIv), 2);
        EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
    }
}

TEST_F(TarnCryptFileTest, cipher_withoutItsArguments_isRefused)
{
    const Bytes in(32, 'i');
    Bytes text = "text", block(16, 'b'), out(64, '\0');
    write("plain", "");
    for (const auto &[key, iv] :
         {std::pair(raw(nistKey), static_cast<const unsigned char *>(nullptr)), {nullptr, raw(nistIv)}}) {
        int produced = 7;
        Cipher cipher(Cipher::Direction::Encrypt, key, iv);
        EXPECT_FALSE(cipher.isReady() || cipher.update(raw(in), 16, raw(out), &produced) || produced != 0);
        produced = 7;
        EXPECT_FALSE(cipher.finish(raw(out), &produced) || produced != 0);
        EXPECT_EQ(TarnCrypt::do_hide(raw(text), raw(out), &produced, key, iv), 1);
        EXPECT_EQ(TarnCrypt::do_show(raw(block), 16, raw(out), &produced, key, iv), 1);
        EXPECT_EQ(TarnCrypt::do_encode_binfile(at("plain").c_str(), at("out").c_str(), key, iv), 1);
    }
    int produced = 7;
    EXPECT_FALSE(
        Cipher(Cipher::Direction::Encrypt, raw(nistKey), raw(nistIv)).update(raw(in), -1, raw(out), &produced));
    EXPECT_EQ(TarnCrypt::do_decode_binfile(nullptr, at("out").c_str(), raw(nistKey), fixedIv), 1);
    EXPECT_EQ(TarnCrypt::do_decode_binfile(at("plain").c_str(), nullptr, raw(nistKey), fixedIv), 2);
    EXPECT_EQ(filesIn("."), QStringList("plain"));
}

#ifndef Q_OS_WIN
TEST_F(TarnCryptFileTest, disk_fails_leavesNothingButTheInput)
{
    using Torture::DiskCall;
    static DiskCall failing;
    const std::tuple<DiskCall, int, int> table[] = {{DiskCall::Open, 1, 0},
                                                    {DiskCall::Read, 1, 0},
                                                    {DiskCall::Write, 2, 2},
                                                    {DiskCall::Close, 2, 2},
                                                    {DiskCall::Rename, 0, 2}};
    const Bytes content = noise(5000);
    write("plain", content);
    const auto openFiles = [] { return QDir("/proc/self/fd").count(); };
    const auto opened = openFiles();
    for (const auto &[call, code, inPlace] : table) {
        SCOPED_TRACE(static_cast<int>(call));
        failing = call;
        Torture::watchDisk(folder.root().toStdString(),
                           [](const Torture::DiskUse &use) { return use.call == failing ? EIO : 0; });
        EXPECT_EQ(encode("plain", "cipher"), code);
        EXPECT_EQ(decode("plain", "shown"), code);
        EXPECT_EQ(cryptInPlace("plain", true), inPlace);
        Torture::watchDisk({}, nullptr);
        EXPECT_EQ(openFiles(), opened);
        EXPECT_TRUE(read("plain") == content);
        EXPECT_EQ(filesIn("."), code ? QStringList("plain") : QStringList({"cipher", "plain", "shown"}));
    }
}
#endif

#if QT_VERSION_MAJOR < 6 // later ones have no codec to set
TEST_F(TarnCryptFileTest, path_anyLocaleOfQt_isUtf8)
{
    write("plain", "text");
    const char *const name = "gr\xc3\xbc\xc3\x9f \xe6\x96\x87.bin";
    QTextCodec *const codec = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    const int encoded = encode("plain", name), decoded = decode(name, "shown");
    QTextCodec::setCodecForLocale(codec);
    EXPECT_EQ(encoded + decoded, 0);
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::u8path(at(name))));
    EXPECT_EQ(read("shown"), "text");
}
#endif

TEST_F(TarnCryptFileTest, inPlace_siblingOfACrash_isRemovedNotWrittenInto)
{
    write("kept", noise(buffer));
    for (const bool hide : {true, false}) {
        write("file", hide ? Bytes("text") : encrypted("text"));
        std::filesystem::create_hard_link(at("kept"), at("fileorig"));
        EXPECT_EQ(cryptInPlace("file", hide), 0);
        EXPECT_EQ(read("file"), hide ? encrypted("text") : Bytes("text"));
        EXPECT_FALSE(QFileInfo::exists(qt("fileorig")));
        EXPECT_TRUE(read("kept") == noise(buffer));
    }
}

TEST_F(TarnCryptFileTest, key_wrongLength_isPaddedOrRefused)
{
    write("plain", "text");
    write("padded", "text");
    ASSERT_EQ(cryptFileInPlace("short", qt("padded"), true), 0);
    ASSERT_EQ(encode("plain", "cipher", "short" + Bytes(27, '\0')), 0);
    EXPECT_EQ(read("cipher"), read("padded"));
    write("kept", "kept");
    EXPECT_EQ(cryptFileInPlace(Bytes(33, 'k'), qt("kept"), true), 1);
    EXPECT_EQ(read("kept"), "kept");
    ASSERT_EQ(cryptFileInPlace({}, qt("kept"), true), 0);
    ASSERT_EQ(decode("kept", "shown", Bytes(32, '\0')), 0);
    EXPECT_EQ(read("shown"), "kept");
}

} // namespace
