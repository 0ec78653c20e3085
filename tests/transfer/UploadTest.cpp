#include "transfer/TransferFixture.h"

#include <QRegularExpression>

namespace {

TEST_F(TransferTest, UploadArrivesEncryptedAndCompleteByEveryKindOfAddress)
{
    const struct {
        QJsonObject extra;
        const char *verb, *contentType; ///< as a regular expression
    } kinds[] = {{{{"formFields", QJsonObject{}}}, "POST", "application/octet-stream"},
                 {{{"method", "PUT"}}, "PUT", "application/octet-stream"},
                 {{{"formFields", QJsonObject{{"z", "two"}, {"a\"b", "one"}}}, {"method", "PUT"}},
                  "POST",
                  "multipart/form-data; boundary=\"velmora-[0-9a-f]{32}\""}};
    const QByteArray content = noise(3 * 1024 * 1024 + 5);
    const QByteArray quote = onWindows ? "'" : "\""; // no name holds the other there
    const std::string path = write("b " + quote + "x" + quote + ".trninp", content);
    for (const auto &[extra, verb, contentType] : kinds) {
        SCOPED_TRACE(contentType);
        address = extra;
        address["uri"] = url("/s/up/#urlEncodedFileName#?n=#fileSize#");
        address["headers"] = QJsonObject{{"X-Name", "<#fileName#>"}};
        api = std::make_unique<CloudAPI>(); // asks for the address again
        api->logUserIn("a@b", "p", "", {});
        ASSERT_TRUE(waitUntil([this] { return api->isUserLoggedIn(); }));
        up = {};
        upload(path);
        ASSERT_TRUE(up.wait());
        up.expect(204, "", "");
        EXPECT_EQ(up.details.totalFileSize, content.size());
        EXPECT_TRUE(up.monotone);

        const ReceivedRequest sent = loopback.server.requests().last();
        const int cipherSize = content.size() / 16 * 16 + 16;
        EXPECT_EQ(sent.verb, verb);
        EXPECT_EQ(sent.target, "/s/up/b%20" + (quote + "x" + quote).toPercentEncoding() +
                                   ".trninp?n=" + QByteArray::number(cipherSize));
        EXPECT_EQ(sent.header("X-Name"), "<b " + quote + "x" + quote + ".trninp>");
        EXPECT_TRUE(sent.header("Authorization").isNull());
        const QString type = sent.header("Content-Type");
        EXPECT_TRUE(QRegularExpression(QStringLiteral("^%1$").arg(contentType)).match(type).hasMatch())
            << type.toStdString();
        ASSERT_FALSE(up.progress.empty());
        EXPECT_EQ(up.progress.back(), sent.body.size());

        QByteArray cipher = sent.body;
        if (type.startsWith("multipart")) {
            const QByteArray boundary = "--" + sent.header("Content-Type").split('"').value(1);
            const QByteArray field = boundary + "\r\nContent-Disposition: form-data; name=";
            const QByteArray head = field + "\"a%22b\"\r\n\r\none\r\n" + field + "\"z\"\r\n\r\ntwo\r\n" + field +
                                    "\"file\"; filename=\"b " + (onWindows ? "'x'" : "%22x%22") + ".trninp\"\r\n\r\n";
            const QByteArray tail = "\r\n" + boundary + "--\r\n";
            EXPECT_EQ(cipher.left(head.size()), head);
            EXPECT_EQ(cipher.right(tail.size()), tail);
            cipher = cipher.mid(head.size(), cipher.size() - head.size() - tail.size());
        }
        EXPECT_EQ(cipher.size(), cipherSize);
        EXPECT_TRUE(crypt(cipher, false) == content);
    }
}

TEST_F(TransferTest, UploadIsRefusedAtOnceWithoutPathOrJob)
{
    for (const auto &[path, message] : {std::pair{"", "Local File to upload was not provided"},
                                        std::pair{"x", "No Job ID to upload file into was provided"}}) {
        up = {};
        api->uploadInputFile({path, "", 0}, up.progressed(), up.completed());
        EXPECT_EQ(up.completions, 1);
        up.expect(400, "Incorrect setup of UploadFile", message);
    }
}

TEST_F(TransferTest, KeyAndAddressAreSharedAndTheAddressLivesThirtyMinutes)
{
    qint64 now = 1000;
    implOf(*api).setClock([&now] { return now; });
    int expected = 0;
    const auto uploadSome = [&](int count) {
        expected += count;
        for (int i = 0; i < count; ++i)
            upload(write(QStringLiteral("f%1").arg(i), noise(i)));
        return up.wait(expected);
    };
    ASSERT_TRUE(uploadSome(25)); // more than may be under way at once
    EXPECT_EQ(seen("/s/up"), 25);
    EXPECT_EQ(seen(addressPath), 1);
    now += 1800000;
    ASSERT_TRUE(uploadSome(1)); // an empty file
    EXPECT_EQ(loopback.server.requests().last().body.size(), 16);
    EXPECT_EQ(seen(addressPath), 1);
    now += 1;
    ASSERT_TRUE(uploadSome(1));
    EXPECT_EQ(seen(addressPath), 2);
    EXPECT_EQ(seen(keyPath), 1);
}

TEST_F(TransferTest, BlockingUploadReturnsAfterItsCompletionOrDestruction)
{
    const FileUploadDetails file{write("f", noise(100000)), "J1", 0};
    api->uploadInputFile(file, up.progressed(), up.completed());
    EXPECT_EQ(up.completions, 1);
    up.onEnd = [this] { api.reset(); };
    api->uploadInputFile(file, up.progressed(), up.completed());
    EXPECT_EQ(up.completions, 2);
    EXPECT_FALSE(api);

    api = std::make_unique<CloudAPI>();
    up.onProgress = std::exchange(up.onEnd, nullptr);
    api->uploadInputFile(file, up.progressed(), up.completed());
    EXPECT_EQ(up.completions, 2);
    EXPECT_FALSE(api);
}

} // namespace
