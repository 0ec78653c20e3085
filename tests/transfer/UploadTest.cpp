#include "transfer/TransferFixture.h"

namespace {

TEST_F(TransferTest, upload_everyKindOfAddress_arrivesEncryptedAndComplete)
{
    const QJsonObject fields{{"z", "two"}, {"a\"b", "one"}};
    const std::tuple<QJsonObject, const char *, bool> kinds[] = {
        {{{"formFields", QJsonObject{}}}, "POST", false},
        {{{"method", "PUT"}}, "PUT", false},
        {{{"formFields", fields}, {"method", "PUT"}}, "POST", true}};
    const QByteArray content = noise(3 * mebibyte + 5);
    const QByteArray name = onWindows ? "b 'x'.trninp" : "b \"x\".trninp"; // no name holds the other there
    const std::string path = write(name, content);
    for (const auto &[extra, verb, multipart] : kinds) {
        now += 3600000; // asks for the address again
        address = extra;
        address["uri"] = url("/s/up/#urlEncodedFileName#?n=#fileSize#");
        address["headers"] = QJsonObject{{"X-Name", "<#fileName#>"}};
        log.clear();
        expectUpload(path);
        const QString lines = log.lines().join('\n');
        EXPECT_TRUE(lines.contains(multipart ? "Started with multipart:" : "Started with stream data:"));
        EXPECT_TRUE(lines.contains("in CloudAPIImpl::uploadFile(): "));

        const ReceivedRequest sent = loopback.server.requests().last();
        const int cipherSize = content.size() / 16 * 16 + 16;
        EXPECT_EQ(sent.verb, verb);
        EXPECT_EQ(sent.target, "/s/up/" + name.toPercentEncoding() + "?n=" + QByteArray::number(cipherSize));
        EXPECT_EQ(sent.header("X-Name"), '<' + name + '>');
        EXPECT_TRUE(sent.header("Authorization").isNull());
        const QByteArray type = sent.header("Content-Type");
        EXPECT_EQ(up.progress, sent.body.size());

        QByteArray cipher = sent.body;
        if (multipart) {
            const QByteArray boundary = "--" + type.split('"').value(1);
            EXPECT_EQ(type, "multipart/form-data; boundary=\"" + boundary.mid(2) + '"');
            const QByteArray field = boundary + "\r\nContent-Disposition: form-data; name=";
            const QByteArray head = field + "\"a%22b\"\r\n\r\none\r\n" + field + "\"z\"\r\n\r\ntwo\r\n" + field +
                                    "\"file\"; filename=\"" + QByteArray(name).replace('"', "%22") + "\"\r\n\r\n";
            const QByteArray tail = "\r\n" + boundary + "--\r\n";
            EXPECT_EQ(cipher.left(head.size()), head);
            EXPECT_EQ(cipher.right(tail.size()), tail);
            cipher = cipher.mid(head.size(), cipher.size() - head.size() - tail.size());
        } else {
            EXPECT_EQ(type, "application/octet-stream");
        }
        EXPECT_EQ(cipher.size(), cipherSize);
        EXPECT_TRUE(crypt(cipher, false) == content);
    }
}

TEST_F(TransferTest, transfer_completed_releasesItsCallbackAndIsNotCounted)
{
    list({piece(pieceName(1), noise(10))});
    for (const bool uploads : {true, false}) {
        const auto held = std::make_shared<int>();
        faults = {{"/s/up", answer(204).paused()}, {"/s/p0", answer(200, stored["/s/p0"]).paused()}};
        log.clear();
        if (uploads)
            api->uploadFile({write("f", noise(10)), "J1", 0}, {}, [held](const auto &...) { ++*held; });
        else
            api->downloadFile(wanted(), {}, [held](const auto &...) { ++*held; });
        ASSERT_TRUE(EVENTUALLY(loopback.server.pausing() == 1));
        EXPECT_TRUE(log.lines().last().contains("Network Request Started")) << log.text();
        loopback.server.resume();
        ASSERT_TRUE(waitUntil([&] { return *held == 1; }));
        EXPECT_TRUE(log.lines().last().endsWith("Network Manager Cleared")) << log.text();
        settle();
        EXPECT_EQ(held.use_count(), 1) << uploads;
    }
}

TEST_F(TransferTest, sharedRequest_allItsTransfersCancelled_isAbortedAndAskedAnew)
{
    list({piece(pieceName(1), noise(10))});
    const std::string paths[] = {write("one", noise(10)), write("two", noise(10))};
    const FileDownloadDetails targets[] = {wanted("to/one"), wanted("elsewhere/two")};
    for (const char *hung : {keyPath, addressPath, listPath}) {
        now += 3600000; // what the last round asked for has run out
        const bool uploads = hung != listPath;
        const qint64 before = seen(hung);
        faults = {{hung, silence()}};
        for (int i = 0; i < 2; ++i)
            uploads ? upload(paths[i]) : download(targets[i]);
        ASSERT_TRUE(EVENTUALLY(loopback.server.pausing() == 1)) << hung;
        const int open = loopback.server.openConnections();
        for (int i = 0; i < 2; ++i) {
            settle();
            EXPECT_EQ(loopback.server.openConnections(), open) << "somebody still waits for " << hung;
            EXPECT_TRUE(uploads ? api->cancelUpload({paths[i], "J1", 0}) : api->cancelDownload(targets[i]));
        }
        EXPECT_TRUE(EVENTUALLY(loopback.server.openConnections() < open)) << hung;
        EXPECT_EQ(seen(hung), before + 1);
        faults.clear();
        uploads ? upload(paths[0]) : download(targets[0]);
        EXPECT_TRUE(uploads ? up.wait() : down.wait());
        EXPECT_EQ(uploads ? up.error.errorCode : down.error.errorCode, uploads ? 204 : 200) << hung;
        EXPECT_EQ(seen(hung), before + 2);
    }
}

TEST_F(TransferTest, blockingUpload_anyEnd_returnsAfterwards)
{
    const FileUploadDetails file{write("f", noise(100000)), "J1", 0};
    for (const auto &[path, message] : {std::pair{"", "Local File to upload was not provided"},
                                        std::pair{"x", "No Job ID to upload file into was provided"}}) {
        api->uploadInputFile({path, "", 0}, up.progressed(), up.completed());
        EXPECT_EQ(up.completions, 1);
        up.expect(400, "Incorrect setup of UploadFile", message);
    }
    api->uploadInputFile(file, up.progressed(), up.completed());
    EXPECT_EQ(up.completions, 1);
    api->uploadInputFile(file, {}, [this](const ApiError &, const FileUploadDetails &) { api.reset(); });
    EXPECT_FALSE(api);
    api = std::make_unique<CloudAPI>();
    api->uploadInputFile(
        file, [this](const FileUploadDetails &, std::int64_t) { api.reset(); }, up.completed());
    EXPECT_EQ(up.completions, 0);
    EXPECT_FALSE(api);
}

} // namespace
