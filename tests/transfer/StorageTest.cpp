// Uploads against the storage: what goes out byte for byte, what comes back, and what ends an exchange.

#include "support/ProxyServer.h"
#include "transfer/TransferFixture.h"

namespace {

constexpr auto failed = "File Failed to Upload", refused = R"({"message":"no way"})";
// For libcurl, which reads it when it is first used.
const QTemporaryDir secrets;
const ScopedEnvironment keyLog("SSLKEYLOGFILE", secrets.filePath("secrets").toUtf8());

struct StorageTest : TransferTest {
    ScriptedServer &server = loopback.server;
};

TEST_F(StorageTest, answer_anyEnd_givesOneOutcome)
{
    constexpr auto none = "closed the connection before it answered", cut = "before its answer was complete",
                   unknown = "cannot be known to be whole";
    const QByteArray content = noise(300000), title = "HTTP/1.1 200 OK\r\n\r\n";
    list({piece(pieceName(1), content)});
    const QByteArray cipher = stored["/s/p0"];
    const Answer whole = answer(200, cipher);
    const Answer early{"HTTP/1.1 103 Early\r\nLink: <x>\r\n\r\n" + answer(507, refused).bytes};
    const std::tuple<const char *, Answer, int, const char *, int, const char *> rows[] = {
        // what an upload, and what a download, makes of it
        {"a status below 300", answer(201, cipher), 201, "", 400, "status 201"},
        {"no content", answer(204), 204, "", 400, "status 204"},
        {"a part", answer(206, cipher), 206, "", 400, "status 206"},
        {"the first status that is no success", answer(300), 300, "status 300.", 300, "status 300."},
        {"a redirection", answer(302, {}, {}, "Location: /s/else\r\n"), 302, "", 302, "status 302"},
        {"a refusal", answer(403, refused), 403, "no way", 403, "no way"},
        {"trailers", {chunked(cipher) + "0\r\nX-Sum: 1\r\n\r\n"}, 200, "", 200, ""},
        {"an informational one first", early, 507, "no way", 507, "no way"},
        {"only an informational one", early.cut(33), 400, none, 400, none},
        {"none", hangUp(), 400, none, 400, none},
        {"closed afterwards", whole.closed(), 200, "", 200, ""},
        {"a head that was cut", whole.cut(20), 400, "", 400, ""},
        {"a head that was cut between lines", answer(200).cut(answer(200).bytes.size() - 2), 400, cut, 400, unknown},
        {"a body that was cut at a block", whole.cut(whole.bytes.size() - 128 * 1024), 400, cut, 400, cut},
        {"chunks without an end", Answer{chunked(cipher)}.closed(), 400, cut, 400, cut},
        {"a refusal that was cut", answer(403, refused).cut(90), 403, "", 403, ""},
        {"no length", Answer{title + cipher}.closed(), 200, "", 400, unknown},
        {"no length and no body", Answer{title}.closed(), 200, "", 400, unknown},
        {"no body", answer(200), 200, "", 400, "empty piece"},
        {"compressed", answer(200, qCompress(cipher).mid(4), {}, "Content-Encoding: gzip\r\n"), 200, "", 400, ""},
        {"no HTTP", Answer{"nonsense\r\n\r\n"}.closed(), 400, "", 400, ""},
        {"a refusal without a reason", answer(507), 507, "The storage answered with the status 507.", 507, "507"},
        {"a long refusal, of which little is kept",
         answer(500, R"({"a":")" + QByteArray(3 * mebibyte, 'x') + R"(","message":"no way"})"), 500,
         "The storage answered with the status 500.", 500, "The storage answered with the status 500."}};
    const std::string path = write("f", noise(100000));
    for (const auto &[name, scripted, sentCode, sentMessage, code, message] : rows) {
        SCOPED_TRACE(name);
        for (const bool reused : {false, true}) {
            api = std::make_unique<CloudAPI>(); // without connections
            faults.clear();
            if (reused)
                uploadAndWait(path);
            const int connection = reused ? server.requests().last().connection : 0;
            const qint64 before = seen("/s/up");
            faults = {{"/s/up", scripted}, {"/s/p0", scripted}};
            expectUpload(path, sentCode, sentMessage);
            EXPECT_EQ(seen("/s/up"), before + 1) << "no body is sent twice";
            EXPECT_TRUE(!reused || server.requests().last().connection == connection) << "this proves nothing";
        }
        write("to/res.dat", "old");
        expectDownload(wanted(), code, message);
        EXPECT_TRUE(read("to/res.dat") == (code < 300 ? content : "old"));
        ASSERT_TRUE(!scripted.close || EVENTUALLY(server.openConnections() <= 1));
        faults.clear();
        expectUpload(path);
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
                expectUpload(path, 413, "no way");
            }
        }
    }
    server.interrupt("/s/up", {0, answer(200, "{}"), Interruption::Closes});
    expectUpload(path, 400);
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
        {"is replaced", [&] { std::filesystem::rename(write("g", content), at("f")); }}};
    for (const auto &[name, apply] : rows) {
        if (onWindows && std::string(name).find("re") != std::string::npos)
            continue; // an open file stays there
        SCOPED_TRACE(name);
        const std::string path = write("f", content);
        server.interrupt("/s/up", {});
        upload(path);
        ASSERT_TRUE(EVENTUALLY(server.interrupted() == 1 && up.progress > 0)) << up.error.errorMessage;
        apply();
        server.readOn();
        ASSERT_TRUE(up.wait());
        up.expect(400, failed, "changed while it was being uploaded");
        up.expect(400, failed, QDir::toNativeSeparators(qt("f")).toStdString());
        EXPECT_TRUE(EVENTUALLY(server.openConnections() <= 1)) << "the service's own stays";
        EXPECT_EQ(seen("/s/up"), 0);
    }
}

TEST_F(StorageTest, request_anyAddress_goesOutByteForByte)
{
    const std::string path = write("a#b%c.dat", noise(10));
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
        now += 3600000; // asks for the address again
        address = {{"uri", url(QString::fromUtf8(uri))}, {"headers", QJsonObject{{"X-Empty", ""}, {"Expect", "x"}}}};
        expectUpload(path);
        EXPECT_EQ(server.requests().last().head, "POST " + target + " HTTP/1.1\r\nHost: " + server.host() +
                                                     "\r\nUser-Agent: Velmora/" VELMORA_VERSION
                                                     "\r\nX-Empty:\r\nContent-Type: application/octet-stream\r\n"
                                                     "Content-Length: 16\r\n\r\n");
    }
    for (const char *bad : {"https://", "https://ada:pw@127.0.0.1:1/", "ftp://127.0.0.1/", "//127.0.0.1/", ""}) {
        now += 3600000;
        address = {{"uri", bad}};
        expectUpload(path, 400, "address");
    }
    now += 3600000;
    for (const bool usable : {false, true}) { // one that is none is not kept
        address = usable ? QJsonObject{{"uri", url("/s/up")}} : QJsonObject{{"method", "PUT"}};
        uploadAndWait(path);
        up.expect(usable ? 204 : 400, usable ? "" : failed);
    }
}

TEST_F(StorageTest, environment_namesProxiesAndSecrets_isNotRead)
{
    std::list<ScopedEnvironment> set;
    for (const char *name : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        set.emplace_back(name, "http://127.0.0.1:1");
    set.emplace_back("HOME", folder.root().toUtf8());
    write(".netrc", "machine 127.0.0.1 login ada password pw\n");
    expectUpload(write("f", noise(10)));
    EXPECT_FALSE(server.requests().last().head.contains("uthorization"));
    EXPECT_EQ(QFileInfo(secrets.filePath("secrets")).size(), 0);
}

TEST_F(StorageTest, proxy_ofTheApplication_isAskedByName)
{
    for (const bool socks : {true, false}) {
        const ApplicationProxy proxy(server.serverPort(), socks);
        const QByteArray name = "storage.velmora.example:" + QByteArray::number(server.serverPort());
        address = {{"uri", QString("https://" + name + "/s/up")}};
        expectUpload(write("f", noise(mebibyte)));
        EXPECT_TRUE(proxy.asked().contains(name));
        setOptions([&](ClientOptions &changed) { changed.transferRetries = !socks; }); // none helps there, and ends
        partsOf(*api).transfers.setFirstRetryPause(100000);
        api->applyProxy({"127.0.0.1", "ada", "wrong", proxy.serverPort(), socks ? 0 : 1});
        expectUpload(at("f"), 400, socks ? "127.0.0.1" : "roxy");
        setOptions([](ClientOptions &changed) { changed.transferRetries = 0; });
        api->applyProxy({"127.0.0.1", "ada", "p:w", 1, socks ? 0 : 1});
        expectUpload(at("f"), 400, "No connection to " + name.toStdString() + " by the proxy 127.0.0.1: ");
    }
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
    ASSERT_TRUE(EVENTUALLY(seen("/s/up/hang") > 9 && server.interrupted() > 5));
    for (int i = 0; i < 50; ++i)
        upload(write(QStringLiteral("f%1").arg(i), noise(i * 1000)));
    EXPECT_TRUE(up.wait());
    up.expect(204);
    EXPECT_EQ(hanging.completions, 0);
    EXPECT_EQ(seen(keyPath) + seen(addressPath), 2) << "shared";
}

TEST_F(StorageTest, thread_nothingIsUnderWay_endsAndBeginsAnew)
{
    const std::string path = write("f", noise(10));
    StorageClient &storage = partsOf(*api).storage;
    storage.setIdleTime(std::chrono::milliseconds(1));
    for (const bool cancelled : {false, true, false}) {
        faults = {{"/s/up", cancelled ? silence() : answer(204)}};
        const qint64 before = seen("/s/up");
        upload(path);
        ASSERT_TRUE(EVENTUALLY(seen("/s/up") > before));
        EXPECT_TRUE(!cancelled || api->cancelUpload({path, "J1", 0}));
        ASSERT_TRUE(up.wait() && waitForFiles([&] { return !storage.isRunning(); }));
    }
}

TEST_F(StorageTest, cancelAndDestroy_atAnyMoment_completeOnceOrNever)
{
    const FileUploadDetails file{write("f", noise(8 * mebibyte)), "J1", 0};
    list({piece(pieceName(1), noise(1000000)), piece(pieceName(2), noise(1000000))});
    qint64 keys = 0, addresses = 0, storage = 0;
    const Interruption refusal{0, answer(413), Interruption::Resets};
    const std::tuple<const char *, std::function<void()>, std::function<bool()>> moments[] = {
        {"at once", [] {}, [] { return true; }},
        {"asking for the key", [] {}, [&] { return seen(keyPath) > keys; }},
        {"asking for the address", [] {}, [&] { return seen(addressPath) > addresses; }},
        {"connecting", [] {}, [&] { return seen(addressPath) > addresses && server.openConnections() > 1; }},
        {"beginning", [] {}, [&] { return up.progress > 0; }},
        {"sending", [&] { server.interrupt("/s/up", {}); }, [&] { return server.interrupted() == 3; }},
        {"receiving", [&] { faults["/s/up"] = silence(); },
         [&] { return filesIn("to").size() == 2 && server.pausing() == 5; }},
        {"between two tries", [&] { faults["/s/"] = answer(503).closed(); },
         [&] { return seen("/s/") >= storage + 4; }},
        {"refused", [&] { server.interrupt("/s/up", refusal); }, [&] { return up.completions > 0; }}};
    for (const auto &[name, prepare, reached] : moments) {
        for (const bool destroys : {false, true}) {
            SCOPED_TRACE(testing::Message() << name << (destroys ? ", destroyed" : ", cancelled"));
            api = std::make_unique<CloudAPI>(); // asks for the key and the address again
            setOptions([](ClientOptions &changed) { changed.transferRetries = 2; });
            partsOf(*api).transfers.setFirstRetryPause(100000);
            std::tie(keys, addresses, storage) = std::tuple(seen(keyPath), seen(addressPath), seen("/s/"));
            faults.clear();
            for (const char *path : {"/s/p0", "/s/p1"})
                faults[path] = answer(200, stored[path]).paused(700000);
            prepare();
            up = {}; // those of a session that was destroyed do not complete
            down = {};
            for (int i = 0; i < 3; ++i)
                upload(file.localFileLocation);
            download(wanted());
            ASSERT_TRUE(waitForFiles(reached));
            EXPECT_TRUE(!faults.contains("/s/") ||
                        !waitUntil([&] { return up.completions + down.completions > 0; }, 100));
            const int before = up.completions;
            if (destroys) {
                api.reset();
            } else {
                // Where one was refused, the others may be about to complete.
                EXPECT_TRUE(api->cancelDownload(wanted()));
                EXPECT_TRUE(api->cancelUpload(file) || before > 0);
                EXPECT_TRUE(up.completions == 3 || before > 0) << "inside the call";
                EXPECT_FALSE(api->cancelUpload(file) || api->cancelDownload(wanted()));
                down.expect(400, "Download Cancelled");
                if (before == 0)
                    up.expect(400, "Upload Cancelled", "The upload of this file was cancelled.");
            }
            server.readOn();
            EXPECT_TRUE(EVENTUALLY(server.openConnections() <= 1)) << "not ended";
            settle();
            EXPECT_EQ(up.completions, destroys ? before : 3);
            EXPECT_EQ(down.completions, destroys ? 0 : 1);
            EXPECT_EQ(filesIn("to"), QStringList());
        }
    }
}

} // namespace
