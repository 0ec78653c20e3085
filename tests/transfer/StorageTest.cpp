// Uploads against the storage: what goes out byte for byte, what comes back, and what ends an exchange.

#include "support/ProxyServer.h"
#include "transfer/TransferFixture.h"

#include "storage/Route.h"

#include <QNetworkProxy>

#ifndef Q_OS_WIN
#include <sys/stat.h>
#endif

namespace {

constexpr auto failed = "File Failed to Upload", refused = R"({"message":"no way"})";
constexpr int mebibyte = 1024 * 1024;

class StorageTest : public TransferTest {
protected:
    ScriptedServer &server = loopback.server;

    /// An upload from its start to its end.
    void uploadAndWait(const std::string &path)
    {
        up = {};
        upload(path);
        ASSERT_TRUE(up.wait());
        EXPECT_TRUE(up.monotone);
    }
};

TEST_F(StorageTest, answer_anyEnd_givesOneOutcome)
{
    constexpr auto none = "closed the connection before it answered", cut = "before its answer was complete";
    const Answer whole = answer(200, R"({"a":1})");
    const Answer early{"HTTP/1.1 103 Early\r\nLink: <x>\r\n\r\n" + answer(507, refused).bytes};
    const std::tuple<const char *, Answer, int, const char *> rows[] = {
        {"a status below 300", answer(201, "{}"), 201, ""},
        {"a refusal", answer(403, refused), 403, "no way"},
        {"trailers", {chunked("{}") + "0\r\nX-Sum: 1\r\n\r\n"}, 200, ""},
        {"an informational one first", early, 507, "no way"},
        {"only an informational one", early.cut(33), 400, none},
        {"none", hangUp(), 400, none},
        {"a head that was cut", whole.cut(20), 400, ""},
        {"a head that was cut between lines", answer(200).cut(answer(200).bytes.size() - 2), 400, cut},
        {"a body that was cut", whole.cut(whole.bytes.size() - 3), 400, cut},
        {"a refusal that was cut", answer(403, refused).cut(90), 403, ""},
        {"no HTTP", Answer{"nonsense\r\n\r\n"}.closed(), 400, ""},
        {"a refusal without a reason", answer(507), 507, "The storage answered with the status 507."},
        {"a long refusal", answer(500, '"' + noise(3 * mebibyte).toHex() + '"'), 500, ""}};
    const std::string path = write("f", noise(100000));
    for (const auto &[name, scripted, code, message] : rows) {
        for (const bool reused : {false, true}) {
            SCOPED_TRACE(testing::Message() << name << (reused ? ", reused" : ", fresh"));
            api = std::make_unique<CloudAPI>(); // without connections
            faults.clear();
            if (reused)
                uploadAndWait(path);
            const int connection = reused ? server.requests().last().connection : 0;
            const qint64 before = seen("/s/up");
            faults = {{"/s/up", scripted}};
            uploadAndWait(path);
            up.expect(code, code < 300 ? "" : failed, message);
            EXPECT_EQ(seen("/s/up"), before + 1) << "no body is sent twice";
            if (reused) {
                EXPECT_EQ(server.requests().last().connection, connection) << "this proves nothing";
            }
        }
    }
}

TEST_F(StorageTest, keptConnection_closedByTheServer_isReplaced)
{
    const std::string path = write("f", noise(100000));
    for (int i = 0; i < 3; ++i) {
        faults = {{"/s/up", answer(200, "{}").closed()}};
        uploadAndWait(path);
        ASSERT_TRUE(waitUntil([this] { return server.openConnections() <= 1; })) << "the service's own stays";
        up.expect(200, "", "");
    }
}

TEST_F(StorageTest, refusal_beforeTheWholeBody_isReportedWhateverFollows)
{
    const std::string path = write("f", noise(16 * mebibyte));
    for (const auto end : {Interruption::Closes, Interruption::Resets, Interruption::StopsReading}) {
        for (const int after : {0, 1, 3 * mebibyte}) {
            for (int round = 0; round < 5; ++round) {
                SCOPED_TRACE(testing::Message() << "end " << end << " after " << after);
                server.interrupt("/s/up", {after, answer(413, refused), end});
                uploadAndWait(path);
                up.expect(413, failed, "no way");
            }
        }
    }
    server.interrupt("/s/up", {0, answer(200, "{}"), Interruption::Closes});
    uploadAndWait(path);
    up.expect(400, failed, "");
    EXPECT_EQ(seen("/s/up"), 0);
}

TEST_F(StorageTest, source_changesWhileItIsRead_failsAndIsNeverWhole)
{
    const QByteArray content = noise(24 * mebibyte);
    const auto change = [this](qint64 at, const char *bytes) {
        QFile file(qt("f"));
        EXPECT_TRUE(file.open(QIODevice::ReadWrite) && file.seek(at) && file.write(bytes) > 0);
    };
    const std::pair<const char *, std::function<void()>> rows[] = {
        {"grows", [&] { change(content.size(), "x"); }},
        {"shrinks", [&] { QFile::resize(qt("f"), 20 * mebibyte); }},
        {"shrinks to what was read", [&] { QFile::resize(qt("f"), mebibyte); }},
        {"is written to where it was read", [&] { change(0, "x"); }},
        {"is written to where it was not", [&] { change(content.size() - 1, "x"); }},
        {"is removed", [&] { QFile::remove(qt("f")); }},
        {"is replaced", [&] {
             write("g", content);
             QFile::remove(qt("f"));
             QFile::rename(qt("g"), qt("f"));
         }}};
    for (const auto &[name, apply] : rows) {
        if (onWindows && std::string(name).find("re") != std::string::npos)
            continue; // an open file stays there
        SCOPED_TRACE(name);
        const std::string path = write("f", content);
        server.interrupt("/s/up", {});
        up = {};
        upload(path);
        ASSERT_TRUE(waitUntil([&] { return server.interrupted() == 1 && up.progress > 0; })) << up.error.errorMessage;
        apply();
        server.readOn();
        ASSERT_TRUE(up.wait());
        up.expect(400, failed, "changed while it was being uploaded");
        up.expect(400, failed, QDir::toNativeSeparators(qt("f")).toStdString());
        EXPECT_TRUE(waitUntil([this] { return server.openConnections() <= 1; })) << "the service's own stays";
        EXPECT_EQ(seen("/s/up"), 0);
    }
}

TEST_F(StorageTest, source_noRegularFile_isRefused)
{
    QDir(folder.path()).mkdir("sub");
    std::vector<std::pair<std::string, const char *>> rows = {{at("sub"), "folder"}, {at("none"), ""}};
#ifndef Q_OS_WIN
    ASSERT_EQ(mkfifo(at("pipe").c_str(), 0600), 0);
    rows.insert(rows.end(), {{at("pipe"), "regular file"}, {"/dev/zero", "regular file"}});
#endif
    for (const auto &[path, reason] : rows) {
        uploadAndWait(path);
        up.expect(400, failed, reason);
        const std::string native = QDir::toNativeSeparators(QString::fromStdString(path)).toStdString();
        EXPECT_NE(up.error.errorMessage.find(native), std::string::npos) << up.error.errorMessage;
    }
    EXPECT_EQ(seen("/s/"), 0);
}

TEST_F(StorageTest, request_anyAddress_goesOutByteForByte)
{
    const std::string path = write("a#b%c.dat", noise(10));
    qint64 now = 0;
    partsOf(*api).grants.setClock([&now] { return now += 3600000; }); // asks for the address again
    const std::pair<const char *, QByteArray> rows[] = {
        {"/s/up?sig=%2f%2F+a&b=%zz", "/s/up?sig=%2f%2F+a&b=%zz"},
        {"/s/up//a/../b/./c", "/s/up//a/../b/./c"},
        {"/s/up/{a}|^`\"<>\\'[]*~;,!$()", "/s/up/{a}|^`\"<>\\'[]*~;,!$()"},
        {"/s/up/a b\u00fc\t\x7f", "/s/up/a%20b%C3%BC%09%7F"},
        {"/s/up?a?b=//c#part", "/s/up?a?b=//c"},
        {"?/s/up", "/?/s/up"},
        {"/s/up/#fileName#?#urlEncodedFileName#", "/s/up/a%23b%25c.dat?a%23b%25c.dat"}};
    faults = {{"/?", answer(204)}};
    for (const auto &[uri, target] : rows) {
        address = {{"uri", url(QString::fromUtf8(uri))}, {"headers", QJsonObject{{"X-Empty", ""}, {"Expect", "x"}}}};
        uploadAndWait(path);
        up.expect(204, "", "");
        EXPECT_EQ(server.requests().last().head, "POST " + target + " HTTP/1.1\r\nHost: " + server.host() +
                                                     "\r\nUser-Agent: Velmora/" VELMORA_VERSION
                                                     "\r\nX-Empty:\r\nContent-Type: application/octet-stream\r\n"
                                                     "Content-Length: 16\r\n\r\n");
    }
    for (const char *bad : {"https://", "https://ada:pw@127.0.0.1:1/", "ftp://127.0.0.1/", "//127.0.0.1/", ""}) {
        address = {{"uri", bad}};
        uploadAndWait(path);
        up.expect(400, failed, "address");
    }
}

TEST_F(StorageTest, environment_namesProxiesAndSecrets_isNotRead)
{
    std::list<ScopedEnvironment> set;
    for (const char *name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        set.emplace_back(name, "http://127.0.0.1:1");
    set.emplace_back("SSLKEYLOGFILE", qt("secrets").toUtf8());
    set.emplace_back("HOME", folder.path().toUtf8());
    write(".netrc", "machine 127.0.0.1 login ada password pw\n");
    uploadAndWait(write("f", noise(10)));
    up.expect(204, "", "");
    EXPECT_FALSE(server.requests().last().head.contains("uthorization"));
    EXPECT_EQ(read("secrets"), "");
}

TEST_F(StorageTest, proxy_ofTheApplication_isAskedByName)
{
    const QNetworkProxy before = QNetworkProxy::applicationProxy();
    QSslConfiguration careless = QSslConfiguration::defaultConfiguration();
    careless.setPeerVerifyMode(QSslSocket::VerifyNone); // the certificate is for another name
    QSslConfiguration::setDefaultConfiguration(careless);
    for (const bool socks : {true, false}) {
        ProxyServer proxy(socks);
        ProxyDefinition definition;
        definition.proxyType = socks ? 0 : 1;
        definition.proxyHost = "127.0.0.1";
        definition.proxyPort = proxy.serverPort();
        definition.proxyUser = "ada";
        definition.proxyPassword = "p:w";
        api->applyProxy(definition);
        const QByteArray name = "storage.velmora.example:" + QByteArray::number(server.serverPort());
        address = {{"uri", QString("https://" + name + "/s/up")}};
        uploadAndWait(write("f", noise(mebibyte)));
        up.expect(204, "", "");
        EXPECT_TRUE(proxy.asked().contains(name));
        definition.proxyPassword = "wrong";
        api->applyProxy(definition);
        uploadAndWait(at("f"));
        up.expect(400, failed, socks ? "127.0.0.1" : "roxy");
        proxy.close();
    }
    QNetworkProxy::setApplicationProxy(before);
}

TEST_F(StorageTest, certificate_trustChanges_isFollowedAtOnce)
{
    const std::string path = write("f", noise(10));
    uploadAndWait(path);
    up.expect(204, "", "");
    {
        const ScopedTrust nobody{QByteArray()};
        EXPECT_EQ(TrustReader().read().authorities, "");
        uploadAndWait(path);
        up.expect(400, failed, "is not trusted: ");
        QSslConfiguration careless = QSslConfiguration::defaultConfiguration();
        careless.setPeerVerifyMode(QSslSocket::VerifyNone);
        QSslConfiguration::setDefaultConfiguration(careless);
        uploadAndWait(path);
        up.expect(204, "", "");
    }
    uploadAndWait(path);
    up.expect(204, "", "");
    EXPECT_EQ(TrustReader().read().authorities, testAuthority());
}

TEST(TrustTest, read_defaultConfiguration_hasTheSystemsAuthorities)
{
    EXPECT_EQ(TrustReader().read().authorities.count("BEGIN CERTIFICATE"),
              QSslConfiguration::systemCaCertificates().size());
}

TEST_F(StorageTest, upload_othersHang_completes)
{
    address = {{"uri", url("/s/up/#fileName#")}};
    faults = {{"/s/up/hang", silence()}};
    server.interrupt("/s/up/large", {});
    Transfer<FileUploadDetails> hanging;
    const auto hang = [&](const QString &name, int size) {
        api->uploadFile({write(name, noise(size)), "J1", 0}, {}, hanging.completed());
    };
    for (int i = 0; i < 15; ++i) {
        hang(QStringLiteral("hang%1").arg(i), 100);
        hang(QStringLiteral("large%1").arg(i), 8 * mebibyte);
    }
    ASSERT_TRUE(waitUntil([&] { return seen("/s/up/hang") > 9 && server.interrupted() > 5; }));
    for (int i = 0; i < 50; ++i)
        upload(write(QStringLiteral("f%1").arg(i), noise(i * 1000)));
    EXPECT_TRUE(up.wait(50));
    up.expect(204, "", "");
    EXPECT_EQ(hanging.completions, 0);
}

TEST_F(StorageTest, cancelAndDestroy_atAnyMoment_completeOnceOrNever)
{
    const FileUploadDetails file{write("f", noise(8 * mebibyte)), "J1", 0};
    qint64 keys = 0, addresses = 0;
    const std::tuple<const char *, std::function<void()>, std::function<bool()>> moments[] = {
        {"at once", [] {}, [] { return true; }},
        {"asking for the key", [] {}, [&] { return seen(keyPath) > keys; }},
        {"asking for the address", [] {}, [&] { return seen(addressPath) > addresses; }},
        {"connecting", [] {}, [&] { return seen(addressPath) > addresses && server.openConnections() > 1; }},
        {"beginning", [] {}, [&] { return up.progress > 0; }},
        {"sending", [&] { server.interrupt("/s/up", {}); }, [&] { return server.interrupted() == 3; }},
        {"waiting for the answer", [&] { faults["/s/up"] = silence(); }, [&] { return server.pausing() == 3; }},
        {"refused",
         [&] {
             server.interrupt("/s/up", {0, answer(413), Interruption::Resets});
         },
         [&] { return up.completions > 0; }}};
    for (const auto &[name, prepare, reached] : moments) {
        for (const bool destroys : {false, true}) {
            SCOPED_TRACE(testing::Message() << name << (destroys ? ", destroyed" : ", cancelled"));
            api = std::make_unique<CloudAPI>(); // asks for the key and the address again
            keys = seen(keyPath);
            addresses = seen(addressPath);
            faults.clear();
            prepare();
            up = {};
            for (int i = 0; i < 3; ++i)
                upload(file.localFileLocation);
            ASSERT_TRUE(waitUntil(reached));
            if (destroys)
                api.reset();
            else
                api->cancelUpload(file);
            const int completions = up.completions;
            EXPECT_TRUE(destroys || completions > 0);
            server.readOn();
            EXPECT_TRUE(waitUntil([this] { return server.openConnections() <= 1; })) << "not ended";
            settle();
            EXPECT_LE(up.completions, 3);
            EXPECT_EQ(up.completions, destroys ? completions : 3);
        }
    }
}

} // namespace
