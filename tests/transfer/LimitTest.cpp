// What a session may take of the network, and whom it trusts there.

#include "transfer/TransferFixture.h"

#include <QElapsedTimer>

namespace {

constexpr int mebibyte = 1024 * 1024;

class LimitTest : public TransferTest {
protected:
    void setOptions(const std::function<void(ClientOptions &)> &change)
    {
        ClientOptions options;
        change(options);
        api->setClientOptions(options);
    }
};

// Only too fast is a failure: how slow it is depends on the machine.
TEST_F(LimitTest, bytesPerSecond_ofAllTransfersTogether_areKept)
{
    struct Row {
        int rate;
        int transfers;
        int size; ///< bytes, each
    };
    for (const bool uploads : {true, false}) {
        for (const auto &[rate, transfers, size] : {Row{2 * mebibyte, 3, mebibyte}, Row{3500, 8, 1500}}) {
            SCOPED_TRACE(testing::Message() << (uploads ? "up " : "down ") << rate);
            setOptions([&, limit = rate](ClientOptions &options) {
                options.stallTimeout = 2; // to wait for a share, here for longer at times, is no stall
                (uploads ? options.uploadBytesPerSecond : options.downloadBytesPerSecond) = limit;
            });
            for (int i = 0; i < transfers && !uploads; ++i)
                list({piece(pieceName(1), noise(size))}, QString::number(i));
            partsOf(*api).grants.forget();
            up = {};
            down = {};
            QElapsedTimer time;
            time.start();
            for (int i = 0; i < transfers; ++i) {
                const QByteArray name = QByteArray::number(i);
                uploads ? upload(write(name, noise(size))) : download(wanted(name, name));
            }
            ASSERT_TRUE(uploads ? up.wait(transfers) : down.wait(transfers));
            uploads ? up.expect(204, "", "") : down.expect(200, "Download Success", "");
            const double expected = 1000.0 * transfers * size / rate;
            EXPECT_GT(double(time.elapsed()), 0.85 * expected) << "a tenth of a second's worth may come at once";
            RecordProperty(uploads ? "up" : "down", int(time.elapsed() * 100 / expected)); // per cent
            listing = {};
        }
    }
    // A limit that goes while transfers wait for their share ends the waiting.
    setOptions([](ClientOptions &options) { options.uploadBytesPerSecond = 1000; });
    up = {};
    upload(write("f", noise(mebibyte)));
    ASSERT_TRUE(waitUntil([this] { return up.progress > 0; }));
    api->setClientOptions({});
    ASSERT_TRUE(up.wait());
    up.expect(204, "", "");
}

TEST_F(LimitTest, connectionsPerHost_isTheMostThatMoveBytesAtATime)
{
    address = {{"uri", url("/s/up/#fileName#")}};
    for (const auto &[most, begun] : {std::pair(1, 1), {2, 2}, {8, 8}, {-1, 6}}) {
        api = std::make_unique<CloudAPI>();
        loopback.server.interrupt("/s/up/large", {});
        setOptions([most = most](ClientOptions &options) { options.connectionsPerHost = most; });
        up = {};
        for (int i = 0; i < 10; ++i)
            upload(write(QStringLiteral("large%1").arg(i), noise(6 * mebibyte)));
        ASSERT_TRUE(waitUntil([&, wanted = begun] { return loopback.server.interrupted() == wanted; })) << most;
        // An upload that does not go on gives its turn away after two seconds.
        EXPECT_FALSE(waitUntil([&, wanted = begun] { return loopback.server.interrupted() > wanted; }, 300)) << most;
        loopback.server.readOn();
        ASSERT_TRUE(up.wait(10));
        up.expect(204, "", "");
    }
}

TEST_F(LimitTest, caFile_isTrustedBesidesTheOthers)
{
    const std::string path = write("f", noise(10)), authority = write("ca.pem", testAuthority());
    const auto uploadWith = [&](const std::string &caFile) {
        setOptions([&](ClientOptions &options) { options.caFile = caFile; });
        up = {};
        upload(path);
        EXPECT_TRUE(up.wait());
    };
    uploadWith({}); // has the key and the address
    up.expect(204, "", "");
    const ScopedTrust nobody{QByteArray()};
    const std::string native = QDir::toNativeSeparators(qt("none.pem")).toStdString();
    const std::tuple<std::string, int, std::string> rows[] = {
        {"", 400, "is not trusted: "},
        {authority, 204, ""},
        {at("none.pem"), 400, "The file of certificate authorities " + native + " could not be read: "},
        {path, 400, "holds no certificate in PEM form"},
        {authority, 204, ""},
    };
    for (const auto &[caFile, code, message] : rows) {
        uploadWith(caFile);
        up.expect(code, code < 300 ? "" : "File Failed to Upload", message);
    }
}

} // namespace
