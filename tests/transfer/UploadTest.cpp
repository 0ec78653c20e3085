#include "transfer/TransferFixture.h"

#include <QRegularExpression>

namespace {

const QByteArray addressPath = "/api/job/files/uploadUrl/J1";

struct AddressRow {
    const char *name;
    QJsonObject extra;
    const char *verb;
    const char *contentType; ///< as a regular expression
};

class UploadByAddress : public TransferTest, public testing::WithParamInterface<AddressRow> {};

TEST_P(UploadByAddress, ArrivesEncryptedAndComplete)
{
    const QByteArray content = noise(3 * 1024 * 1024 + 5);
    const QByteArray path = write(QStringLiteral("b \"x\".trninp"), content);
    address = GetParam().extra;
    address["uri"] = url(QStringLiteral("/s/up/#urlEncodedFileName#?n=#fileSize#"));
    address["headers"] = QJsonObject{{"X-Name", "<#fileName#>"}};
    upload(source(path));
    ASSERT_TRUE(waitUntil([this] { return up.completions > 0; }));
    settle();
    EXPECT_EQ(up.completions, 1);
    EXPECT_EQ(up.error.errorCode, 204);
    EXPECT_EQ(up.error.errorTitle + up.error.errorMessage, "");
    EXPECT_EQ(up.details.totalFileSize, content.size());
    EXPECT_TRUE(up.monotone());

    const ReceivedRequest sent = loopback.server.requests().last();
    EXPECT_EQ(sent.verb, GetParam().verb);
    const int cipherSize = content.size() / 16 * 16 + 16;
    EXPECT_EQ(sent.target, "/s/up/b%20%22x%22.trninp?n=" + QByteArray::number(cipherSize));
    EXPECT_EQ(sent.header("X-Name"), "<b \"x\".trninp>");
    EXPECT_TRUE(sent.header("Authorization").isNull());
    const QString type = QString::fromLatin1(sent.header("Content-Type"));
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^%1$").arg(QLatin1String(GetParam().contentType))).match(type).hasMatch())
        << type.toStdString();
    ASSERT_FALSE(up.progress.empty());
    EXPECT_EQ(up.progress.back(), sent.bodySize);

    QByteArray cipher = sent.body;
    if (!GetParam().extra["formFields"].toObject().isEmpty()) {
        const QByteArray boundary = "--" + sent.header("Content-Type").split('"').value(1);
        const QByteArray head =
            boundary + "\r\nContent-Disposition: form-data; name=\"a%22b\"\r\n\r\none\r\n" + boundary +
            "\r\nContent-Disposition: form-data; name=\"z\"\r\n\r\ntwo\r\n" + boundary +
            "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"b %22x%22.trninp\"\r\n\r\n";
        const QByteArray tail = "\r\n" + boundary + "--\r\n";
        ASSERT_TRUE(cipher.startsWith(head)) << cipher.left(400).toStdString();
        ASSERT_TRUE(cipher.endsWith(tail));
        cipher = cipher.mid(head.size(), cipher.size() - head.size() - tail.size());
    }
    EXPECT_EQ(cipher.size(), cipherSize);
    EXPECT_EQ(crypt(cipher, false), content);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, UploadByAddress,
    testing::Values(AddressRow{"Raw", {{"formFields", QJsonObject{}}}, "POST", "application/octet-stream"},
                    AddressRow{"Put", {{"method", "PUT"}}, "PUT", "application/octet-stream"},
                    AddressRow{"Form",
                               {{"formFields", QJsonObject{{"z", "two"}, {"a\"b", "one"}}}, {"method", "PUT"}},
                               "POST",
                               "multipart/form-data; boundary=\"velmora-[0-9a-f]{32}\""}),
    [](const auto &row) { return row.param.name; });

TEST_F(TransferTest, UploadOfAnEmptyFileIsOneBlock)
{
    upload(source(write(QStringLiteral("empty"), {})));
    ASSERT_TRUE(waitUntil([this] { return up.completions > 0; }));
    EXPECT_EQ(loopback.server.requests().last().bodySize, 16);
}

struct FailureRow {
    const char *name;
    const char *path;
    Answer fault;
    int code;
    const char *title;
    const char *message; ///< contained in the message
};

class UploadFailure : public TransferTest, public testing::WithParamInterface<FailureRow> {};

TEST_P(UploadFailure, CompletesOnceWithTheReason)
{
    const FailureRow &row = GetParam();
    const QByteArray path = write(QStringLiteral("plain.txt"), "PLAINTEXT");
    if (row.path)
        faults[QLatin1String(row.path)] = row.fault;
    else
        QFile::remove(QString::fromUtf8(path));
    upload(source(path));
    EXPECT_EQ(up.completions, 0);
    ASSERT_TRUE(waitUntil([this] { return up.completions > 0; }));
    settle();
    EXPECT_EQ(up.completions, 1);
    EXPECT_EQ(up.error.errorCode, row.code);
    EXPECT_EQ(up.error.errorTitle, row.title);
    EXPECT_NE(up.error.errorMessage.find(row.message), std::string::npos) << up.error.errorMessage;
    EXPECT_EQ(up.error.errorMessage.find("sig="), std::string::npos) << "a signature got out";
    EXPECT_LE(seen("/s/"), 1);
    for (const ReceivedRequest &request : loopback.server.requests())
        EXPECT_FALSE(request.body.contains("PLAINTEXT"));
}

const char *const failedTitle = "File Failed to Upload";
const char *const keyTitle = "Error Requesting Encryption Key";
const char *const refused = R"({"message":"no way"})";

INSTANTIATE_TEST_SUITE_P(
    Rows, UploadFailure,
    testing::Values(
        FailureRow{"KeyRefused", "/api/job/key", answer(403, refused), 403, keyTitle, "no way"},
        FailureRow{"KeyEmpty", "/api/job/key", answer(200, "{}"), 400, keyTitle, ""},
        FailureRow{"KeyUnreadable", "/api/job/key", answer(200, R"({"key":{"plaintextKey":"!!"}})"), 400, keyTitle, ""},
        FailureRow{"KeyTooLong", "/api/job/key",
                   answer(200, R"({"key":{"plaintextKey":")" + QByteArray(48, 'A') + "\"}}"), 400, keyTitle, ""},
        FailureRow{"KeyNeverCame", "/api/job/key", hangUp(), 400, keyTitle, ""},
        FailureRow{"AddressRefused", addressPath, answer(500, refused), 500, "Error Transferring Files", "no way"},
        FailureRow{"AddressNeverCame", addressPath, hangUp(), 400, "Error Transferring Files", ""},
        FailureRow{"AddressEmpty", addressPath, answer(200, "{}"), 400, failedTitle, "address"},
        FailureRow{"AddressIsALocalFile", addressPath, answer(200, R"({"uri":"file:///etc/passwd"})"), 400, failedTitle,
                   "address"},
        FailureRow{"HeaderInjection", addressPath,
                   answer(200, R"({"uri":"https://127.0.0.1:1/s/up","headers":{"X":"a\r\nb: c"}})"), 400, failedTitle,
                   "header"},
        FailureRow{"NobodyListens", addressPath, answer(200, R"({"uri":"https://127.0.0.1:1/s/up?sig=1"})"), 400,
                   failedTitle, "efused"},
        FailureRow{"StorageRefused", "/s/up", answer(403, refused), 403, failedTitle, "no way"},
        FailureRow{"StorageRefusedWithoutReason", "/s/up", answer(503, "<html>"), 503, failedTitle, ""},
        FailureRow{"StorageHungUp", "/s/up", hangUp(), 400, failedTitle, ""},
        FailureRow{"StorageRedirects", "/s/up", answer(302, {}, "text/plain", "Location: /s/else\r\n"), 302,
                   failedTitle, ""},
        FailureRow{"SourceMissing", nullptr, {}, 400, failedTitle, "plain.txt"}),
    [](const auto &row) { return row.param.name; });

TEST_F(TransferTest, UploadIsRefusedAtOnceWithoutPathOrJob)
{
    for (const auto &[file, message] :
         {std::pair{FileUploadDetails{"", "", 0}, "Local File to upload was not provided"},
          std::pair{FileUploadDetails{"x", "", 0}, "No Job ID to upload file into was provided"}}) {
        up = {};
        api->uploadInputFile(file, up.progressed(), up.completed());
        EXPECT_EQ(up.completions, 1);
        EXPECT_EQ(up.error.errorCode, 400);
        EXPECT_EQ(up.error.errorTitle, "Incorrect setup of UploadFile");
        EXPECT_EQ(up.error.errorMessage, message);
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
            upload(source(write(QStringLiteral("f%1").arg(i), noise(i))));
        return waitUntil([&] { return up.completions == expected; });
    };
    ASSERT_TRUE(uploadSome(25)); // more than may be under way at once
    EXPECT_EQ(seen("/api/job/key"), 1);
    EXPECT_EQ(seen(addressPath), 1);
    EXPECT_EQ(seen("/s/up"), 25);
    now += 1800000;
    ASSERT_TRUE(uploadSome(1));
    EXPECT_EQ(seen(addressPath), 1);
    now += 1;
    ASSERT_TRUE(uploadSome(1));
    EXPECT_EQ(seen(addressPath), 2);
    EXPECT_EQ(seen("/api/job/key"), 1);
}

struct StageRow {
    const char *name;
    const char *path; ///< answered never; null: the upload is still encrypting
};

class UploadStage : public TransferTest, public testing::WithParamInterface<StageRow> {
protected:
    void reach()
    {
        const char *path = GetParam().path;
        if (path)
            faults[QLatin1String(path)] = silence();
        file = source(write(QStringLiteral("big"), noise(8 * 1024 * 1024)));
        upload(file);
        upload(file); // side by side
        const char *last = path ? path : "/api/job/key";
        ASSERT_TRUE(waitUntil([&] { return seen(last) > 0; }));
    }
    FileUploadDetails file;
};

TEST_P(UploadStage, CancelEndsAllOfThemInsideTheCall)
{
    reach();
    EXPECT_TRUE(api->cancelUpload(file));
    EXPECT_EQ(up.completions, 2);
    EXPECT_EQ(up.error.errorCode, 400);
    EXPECT_EQ(up.error.errorTitle, "Upload Cancelled");
    EXPECT_EQ(up.error.errorMessage, "The upload of this file was cancelled.");
    EXPECT_FALSE(api->cancelUpload(file));
    settle();
    EXPECT_EQ(up.completions, 2);
}

TEST_P(UploadStage, DestructionEndsItSilently)
{
    reach();
    const int before = up.completions;
    api.reset();
    settle();
    EXPECT_EQ(up.completions, before);
}

TEST_P(UploadStage, CancelCallbackMayDestroyTheSession)
{
    reach();
    up.onEnd = [this] { api.reset(); };
    EXPECT_TRUE(api->cancelUpload(file));
    settle();
    EXPECT_EQ(up.completions, 1); // the other one ended with the session
}

INSTANTIATE_TEST_SUITE_P(Stages, UploadStage,
                         testing::Values(StageRow{"WaitingForKey", "/api/job/key"}, StageRow{"Encrypting", nullptr},
                                         StageRow{"WaitingForAddress", "/api/job/files/uploadUrl/J1"},
                                         StageRow{"Confirming", "/s/up"}),
                         [](const auto &row) { return row.param.name; });

TEST_F(TransferTest, BlockingUploadReturnsAfterItsCompletionOrDestruction)
{
    const FileUploadDetails file = source(write(QStringLiteral("f"), noise(100000)));
    api->uploadInputFile(file, up.progressed(), up.completed());
    EXPECT_EQ(up.completions, 1);
    up.onEnd = [this] { api.reset(); };
    api->uploadInputFile(file, up.progressed(), up.completed());
    EXPECT_EQ(up.completions, 2);
    EXPECT_FALSE(api);

    api = std::make_unique<CloudAPI>();
    up.onEnd = nullptr;
    up.onProgress = [this] { api.reset(); };
    api->uploadInputFile(file, up.progressed(), up.completed());
    EXPECT_EQ(up.completions, 2);
    EXPECT_FALSE(api);
}

} // namespace
