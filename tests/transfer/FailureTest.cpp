// What ends a transfer early: faults of service, storage and disk, cancelling, destruction.

#include "transfer/TransferFixture.h"

namespace {

constexpr auto keyTitle = "Error Requesting Encryption Key", addressTitle = "Error Transferring Files",
               writeTitle = "Unable to write to target file", refused = R"({"message":"no way"})",
               stitch = "We were unable to stitch the requested file back together from its chunks.";

/// An upload, or a download of three good pieces, in which a row spoils something. A row:
///     {"uploadKeyEmpty", [](Test &t) { what is changed }, PART OF THE MESSAGE, CODE, TITLE}
class FailureTest;
struct Row {
    const char *name; ///< an upload's begins with "upload"
    void (*spoil)(FailureTest &);
    const char *message = ""; ///< contained in the message
    int code = 400;
    const char *title = nullptr; ///< null: the direction's own

    friend std::ostream &operator<<(std::ostream &out, const Row &row) { return out << row.name; }
};

class FailureTest : public TransferTest, public testing::WithParamInterface<Row> {
public:
    using TransferTest::address, TransferTest::faults, TransferTest::key, TransferTest::qt;

    void change(int index, const char *member, const char *value)
    {
        QJsonObject chunk = chunks[index].toObject();
        chunk[member] = value;
        chunks[index] = chunk;
    }
    void rename(const char *to, int index = 1) { change(index, "fileName", to); }
    QByteArray &cipher() { return stored["/s/p1"]; }

    QJsonArray chunks;
    QString listedName = "out/res.dat";
};

TEST_P(FailureTest, transfer_fails_completesOnceWithTheReason)
{
    const auto &[name, spoil, message, code, ownTitle] = GetParam();
    const std::string title = ownTitle ? ownTitle : "";
    const bool uploads = QByteArray(name).startsWith("upload");
    const std::string path = write("plain.txt", "PLAINTEXT");
    QDir(folder.path()).mkdir("to");
    write("to/res.dat", "old");
    for (int number = 1; !uploads && number <= 3; ++number)
        chunks.append(piece(pieceName(number), noise(300000 + number)));
    spoil(*this);
    list(chunks, listedName);
    if (uploads) {
        upload(path);
        EXPECT_EQ(up.completions, 0) << "inside the call";
        ASSERT_TRUE(up.wait());
        up.expect(code, ownTitle ? title : "File Failed to Upload", message);
        EXPECT_LE(seen("/s/"), 1);
        for (const ReceivedRequest &request : loopback.server.requests())
            EXPECT_FALSE(request.body.contains("PLAINTEXT"));
    } else {
        download(wanted());
        EXPECT_EQ(down.completions, 0) << "inside the call";
        ASSERT_TRUE(down.wait());
        down.expect(code, ownTitle ? title : "Unable to download file", message);
        EXPECT_TRUE(down.monotone);
        for (const QString &left : filesIn("to"))
            EXPECT_TRUE(left == "res.dat" || left.startsWith("UNCONFIRMED_DOWNLOAD.res.dat")) << left.toStdString();
        const bool namesAreBad = message == std::string(stitch) || title == writeTitle;
        EXPECT_TRUE(!namesAreBad || seen("/s/") == 0) << "fetched before the names were checked";
        EXPECT_EQ(filesIn("."), QStringList({"plain.txt", "tmp", "to"})) << "written outside the target's folder";
    }
    EXPECT_EQ(read("to/res.dat"), "old") << "the target is left alone";
}

using Test = FailureTest;
const Row rows[] = {
    {"uploadKeyRefused", [](Test &t) { t.faults[keyPath] = answer(403, refused); }, "no way", 403, keyTitle},
    {"uploadKeyEmpty", [](Test &t) { t.faults[keyPath] = answer(200, "{}"); }, "", 400, keyTitle},
    {"uploadKeyTooLong", [](Test &t) { t.key += 'x'; }, "", 400, keyTitle},
    {"uploadKeyNeverCame", [](Test &t) { t.faults[keyPath] = hangUp(); }, "", 400, keyTitle},
    {"uploadAddressRefused", [](Test &t) { t.faults[addressPath] = answer(500, refused); }, "no way", 500,
     addressTitle},
    {"uploadAddressNeverCame", [](Test &t) { t.faults[addressPath] = hangUp(); }, "", 400, addressTitle},
    {"uploadAddressIsALocalFile", [](Test &t) { t.address["uri"] = "file:///etc/passwd"; }, "address"},
    {"uploadHeaderInjection",
     [](Test &t) { t.faults[addressPath] = answer(200, R"({"uri":"https://x","headers":{"X":"a\r\nb: c"}})"); },
     "header"},
    {"uploadNobodyListens", [](Test &t) { t.address["uri"] = "https://127.0.0.1:1/s/up?sig=1"; }, "efused"},
    {"uploadStorageRefused", [](Test &t) { t.faults["/s/up"] = answer(403, refused); }, "no way", 403},
    {"uploadStorageRedirects", [](Test &t) { t.faults["/s/up"] = answer(302, {}, {}, "Location: /s/else\r\n"); }, "",
     302},
    {"uploadSourceMissing", [](Test &t) { QFile::remove(t.qt("plain.txt")); }, "plain.txt"},
    {"listingRefused", [](Test &t) { t.faults[listPath] = answer(403, refused); }, "no way", 403,
     "Error Retrieving File List for Job"},
    {"notListed", [](Test &t) { t.listedName = "another"; }, "out/res.dat", 404},
    {"noChunks", [](Test &t) { t.chunks = {}; }, stitch},
    {"keyRefused", [](Test &t) { t.faults[keyPath] = answer(403, refused); }, "no way", 403, keyTitle},
    {"pieceRefused", [](Test &t) { t.faults["/s/p1"] = answer(403, refused); }, "no way", 403},
    {"pieceRedirected", [](Test &t) { t.faults["/s/p1"] = answer(302, {}, {}, "Location: /s/p0\r\n"); }, "status 302",
     302},
    {"pieceIsPartial", [](Test &t) { t.faults["/s/p1"] = answer(206, t.cipher()); }, "status 206"},
    {"pieceWithoutContent", [](Test &t) { t.faults["/s/p1"] = answer(204); }, "status 204"},
    {"informationOnly", [](Test &t) { t.faults["/s/p1"] = Answer{"HTTP/1.1 103 Early\r\n\r\n"}.closed(); },
     "before it answered"},
    {"cutAtABlock",
     [](Test &t) {
         const Answer whole = answer(200, t.cipher(), "application/octet-stream");
         t.faults["/s/p1"] = whole.cut(whole.bytes.size() - t.cipher().size() + 128 * 1024);
     },
     "before its answer was complete"},
    {"cutBetweenChunks", [](Test &t) { t.faults["/s/p1"] = Answer{chunked(t.cipher())}.closed(); },
     "before its answer was complete"},
    {"noLength", [](Test &t) { t.faults["/s/p1"] = Answer{"HTTP/1.1 200 OK\r\n\r\n" + t.cipher()}.closed(); },
     "cannot be known to be whole"},
    {"noLengthAndEmpty", [](Test &t) { t.faults["/s/p1"] = Answer{"HTTP/1.1 200 OK\r\n\r\n"}.closed(); },
     "cannot be known to be whole"},
    {"gzip",
     [](Test &t) { t.faults["/s/p1"] = answer(200, qCompress(t.cipher()).mid(4), {}, "Content-Encoding: gzip\r\n"); }},
    {"empty", [](Test &t) { t.cipher().clear(); }, "empty piece"},
    {"badLastBlock", [](Test &t) { t.cipher().chop(16); }, "does not decrypt"},
    {"cutInABlock", [](Test &t) { t.cipher().chop(5); }, "whole number of blocks"},
    {"pieceWithoutSuffix", [](Test &t) { t.rename("other.dat"); }, stitch},
    {"pieceTwice", [](Test &t) { t.rename("x/res.dat._00001_00003"); }, stitch},
    {"pieceMissing", [](Test &t) { t.rename("out/res.dat._00004_00004"); }, stitch},
    {"firstPieceMissing", [](Test &t) { t.rename("out/res.dat._00004_00004", 0); }, stitch},
    {"pieceNamedAsTheTarget", [](Test &t) { t.rename("out/res.dat"); }, stitch},
    {"nameGoesUp", [](Test &t) { t.rename("out/.."); }, stitch},
    {"nameIsEmpty", [](Test &t) { t.rename("out/"); }, stitch},
    {"nameHasADrive", [](Test &t) { t.rename("out/c:x._00002_00003"); }, "c:x", 400, writeTitle},
    {"nameHasAFolder", [](Test &t) { t.rename("out/..\\x._00002_00003"); }, "x._", 400, writeTitle},
    {"joinedNameGoesUp", [](Test &t) { t.rename("out/..._00002_00003"); }, "...", 400, writeTitle},
    {"joinedNameIsEmpty", [](Test &t) { t.rename("._00001_00003", 0); }, "", 400, writeTitle},
    {"addressIsALocalFile", [](Test &t) { t.change(1, "uri", "file:///etc/passwd"); }, "address"},
};

INSTANTIATE_TEST_SUITE_P(Table, FailureTest, testing::ValuesIn(rows), [](const auto &row) { return row.param.name; });

TEST_F(TransferTest, cancel_transfersUnderWay_completesThemInsideTheCall)
{
    const FileUploadDetails file{write("big", noise(4 * 1024 * 1024)), "J1", 0};
    list({piece(pieceName(1), noise(1000000)), piece(pieceName(2), noise(1000000))});
    faults["/s/up"] = silence();
    for (const char *path : {"/s/p0", "/s/p1"})
        faults[path] = answer(200, stored[path]).paused(700000);
    upload(file.localFileLocation);
    upload(file.localFileLocation); // side by side with the first
    download(wanted());
    ASSERT_TRUE(waitForFiles([&] { return seen("/s/up") == 2 && filesIn("to").size() == 2; })) << "written";
    EXPECT_TRUE(api->cancelUpload(file) && api->cancelDownload(wanted()));
    EXPECT_EQ(up.completions + down.completions, 3) << "inside the calls";
    EXPECT_FALSE(api->cancelUpload(file) || api->cancelDownload(wanted()));
    settle();
    EXPECT_EQ(up.completions + down.completions, 3);
    up.expect(400, "Upload Cancelled", "The upload of this file was cancelled.");
    down.expect(400, "Download Cancelled", "");
    EXPECT_EQ(filesIn("to"), QStringList());
}

TEST_F(TransferTest, session_destroyedWithFiftyTransfers_endsThem)
{
    faults["/s/p"] = silence();
    const std::string big = write("big", noise(16 * 1024 * 1024));
    for (int i = 0; i < 25; ++i)
        list({piece(pieceName(1, QString::number(i)), "x")}, QString::number(i));
    for (int i = 0; i < 25; ++i) {
        const QByteArray name = QByteArray::number(i);
        upload(big);
        download(wanted("to/" + name, name));
    }
    ASSERT_TRUE(waitUntil([this] { return seen("/s/") > 0; }));
    EXPECT_EQ(seen(listPath), 1);
    const int before = up.completions + down.completions;
    api.reset();
    settle();
    EXPECT_EQ(up.completions + down.completions, before);
    EXPECT_EQ(filesIn("to"), QStringList());
}

} // namespace
