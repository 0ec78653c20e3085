// What a session may take of the network, and whom it trusts there.

#include "transfer/TransferFixture.h"

#include "portal/http/Certificates.h"
#include "storage/Route.h"

namespace {

// Only too fast is a failure: how slow it is depends on the machine.
TEST_F(TransferTest, bytesPerSecond_ofAllTransfersTogether_areKept)
{
    for (const bool uploads : {true, false}) {
        for (const auto &[rate, transfers, size] : {std::tuple(2 * mebibyte, 3, mebibyte), {3500, 8, 1500}}) {
            SCOPED_TRACE(testing::Message() << (uploads ? "up " : "down ") << rate);
            options = {};
            setOptions([&, limit = rate](ClientOptions &changed) {
                changed.stallTimeout = 2; // to wait for a share, here for longer at times, is no stall
                (uploads ? changed.uploadBytesPerSecond : changed.downloadBytesPerSecond) = limit;
            });
            for (int i = 0; i < transfers && !uploads; ++i)
                list({piece(pieceName(1), noise(size))}, QString::number(i));
            partsOf(*api).grants.forget();
            std::set<std::string> moved; // before the first one completed
            const auto moves = [&, up_ = uploads](const auto &file, std::int64_t) {
                if ((up_ ? up.completions : down.completions) == 0)
                    moved.insert(file.localFileLocation);
            };
            QElapsedTimer time;
            time.start();
            for (int i = 0; i < transfers; ++i) {
                const QByteArray name = QByteArray::number(i);
                if (uploads)
                    api->uploadFile({write(name, noise(size)), "J1", 0}, moves, up.completed());
                else
                    api->downloadFile(wanted(name, name), moves, down.completed());
            }
            ASSERT_TRUE(uploads ? up.wait() : down.wait());
            uploads ? up.expect(204) : down.expect(200, "Download Success");
            EXPECT_GT(moved.size(), uploads ? 1U : 0U) << "one had two shares while others waited";
            const double expected = 1000.0 * transfers * size / rate;
            EXPECT_GT(double(time.elapsed()), 0.85 * expected) << "a tenth of a second's worth may come at once";
            listing = {};
        }
    }
    // A limit that goes while transfers wait for their share ends the waiting.
    setOptions([](ClientOptions &changed) { changed.uploadBytesPerSecond = 1000; });
    upload(write("f", noise(mebibyte)));
    ASSERT_TRUE(EVENTUALLY(up.progress > 0));
    api->setClientOptions({});
    ASSERT_TRUE(up.wait());
    up.expect(204);
}

TEST_F(TransferTest, connectionsPerHost_isTheMostThatMoveBytesAtATime)
{
    address = {{"uri", url("/s/up/#fileName#")}};
    for (const auto &[most, begun] : {std::pair(1, 1), {2, 2}, {8, 8}, {-1, 6}}) {
        api = std::make_unique<CloudAPI>();
        loopback.server.interrupt("/s/up/large", {});
        setOptions([most = most](ClientOptions &changed) { changed.connectionsPerHost = most; });
        for (int i = 0; i < 10; ++i)
            upload(write(QStringLiteral("large%1").arg(i), noise(6 * mebibyte)));
        ASSERT_TRUE(waitUntil([&, wanted = begun] { return loopback.server.interrupted() == wanted; })) << most;
        // An upload that does not go on gives its turn away after two seconds.
        EXPECT_FALSE(waitUntil([&, wanted = begun] { return loopback.server.interrupted() > wanted; }, 300)) << most;
        EXPECT_TRUE(api->cancelUpload({at("large9"), "J1", 0})) << "while it waits";
        loopback.server.readOn();
        ASSERT_TRUE(up.wait());
        up.expect(204);
        EXPECT_EQ(seen("/s/up/large9"), 0);
    }
}

TEST_F(TransferTest, trust_changes_isFollowedAtOnce)
{
    const std::string path = write("f", noise(10)), authority = write("ca.pem", testAuthority()), none = at("none.pem"),
                      other = write("other.pem", QByteArray::fromStdString(VelmoraPortal::makeCertificates().caPem));
    uploadAndWait(path); // has the key and the address
    EXPECT_EQ(TrustReader().read().authorities, testAuthority());
    const std::string native = QDir::toNativeSeparators(qt("none.pem")).toStdString();
    const std::tuple<bool, std::string, bool, int, std::string> rows[] = {
        // whether the process trusts the server, the file of others, whether nobody is asked for a certificate
        {true, "", false, 204, ""},
        {false, "", false, 400, "is not trusted: "},
        {false, "", true, 204, ""},
        {false, authority, false, 204, ""},
        {false, other, false, 400, "is not trusted: "},
        {false, none, false, 400, "The file of certificate authorities " + native + " could not be read: "},
        {false, path, false, 400, "holds no certificate in PEM form"},
        {false, authority, false, 204, ""},
        {true, "", false, 204, ""}};
    for (const auto &[trusts, caFile, isCareless, code, message] : rows) {
        SCOPED_TRACE(testing::Message() << trusts << caFile << isCareless);
        const ScopedTrust trust{trusts ? testAuthority() : QByteArray(),
                                isCareless ? QSslSocket::VerifyNone : QSslSocket::AutoVerifyPeer};
        setOptions([file = caFile](ClientOptions &fresh) { fresh.caFile = file; });
        expectUpload(path, code, message);
    }
    const ScopedTrust nobody{QByteArray()};
    std::filesystem::last_write_time(other, std::filesystem::last_write_time(authority) - std::chrono::hours(1));
    setOptions([&](ClientOptions &fresh) { fresh.caFile = authority; });
    for (const auto &[from, to, code] : {std::tuple("ca.pem", "ca.pem", 204),
                                         {"ca.pem", "away.pem", 400},
                                         {"away.pem", "ca.pem", 204},
                                         {"other.pem", "ca.pem", 400}}) {
        std::filesystem::rename(at(from), at(to));
        expectUpload(path, code);
    }
}

TEST(TrustTest, read_defaultConfiguration_hasTheSystemsAuthorities)
{
    EXPECT_EQ(TrustReader().read().authorities.count("BEGIN CERTIFICATE"),
              QSslConfiguration::systemCaCertificates().size());
}

} // namespace
