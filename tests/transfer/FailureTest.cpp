// What ends a transfer before its time: faults of portal, storage and disk, cancelling, destruction.

#include "transfer/TransferFixture.h"

namespace {

constexpr auto keyTitle = "Error Requesting Encryption Key", addressTitle = "Error Transferring Files",
               writeTitle = "Unable to write to target file", refused = R"({"message":"no way"})",
               stitch = "We were unable to stitch the requested file back together from its chunks.";

Answer keyed(const QByteArray &text) { return answer(200, R"({"key":{"plaintextKey":")" + text + "\"}}"); }
Answer addressed(const char *uri) { return answer(200, R"({"uri":")" + QByteArray(uri) + "\"}"); }

/// An upload, or a download of three good pieces, of which a row spoils something.
class Failure;
struct Row {
    const char *name; ///< begins with the direction
    void (*spoil)(Failure &);
    const char *message = ""; ///< contained in the message
    int code = 400;
    const char *title = nullptr; ///< null: the direction's own

    bool uploads() const { return name[0] == 'U'; }
    friend std::ostream &operator<<(std::ostream &out, const Row &row) { return out << row.name; }
};

class Failure : public TransferTest, public testing::WithParamInterface<Row> {
public:
    using TransferTest::faults;
    using TransferTest::key;
    using TransferTest::qt;

    void fault(const Answer &answer) { faults["/s/p1"] = answer; }
    void change(int index, const char *member, const char *value)
    {
        QJsonObject chunk = chunks[index].toObject();
        chunk[member] = value;
        chunks[index] = chunk;
    }
    void rename(const char *to, int index = 1) { change(index, "fileName", to); }
    QByteArray &cipher() { return stored["/s/p1"]; }
    /// The whole length is announced, `count` bytes come.
    void cutAt(int count)
    {
        const Answer whole = answer(200, cipher(), "application/octet-stream");
        fault(whole.cut(whole.bytes.size() - cipher().size() + count));
    }

    QJsonArray chunks;
    QString listedName = "out/res.dat";
};

TEST_P(Failure, CompletesOnceWithTheReason)
{
    const Row &row = GetParam();
    const std::string path = write("plain.txt", "PLAINTEXT");
    QDir(folder.path()).mkdir("to");
    write("to/res.dat", "old");
    for (int number = 1; !row.uploads() && number <= 3; ++number)
        chunks.append(piece(pieceName(number), noise(300000 + number)));
    row.spoil(*this);
    list(chunks, listedName);
    if (row.uploads())
        upload(path);
    else
        download(wanted());
    EXPECT_EQ(up.completions + down.completions, 0);
    if (row.uploads()) {
        ASSERT_TRUE(up.wait());
        up.expect(row.code, row.title ? row.title : "File Failed to Upload", row.message);
        EXPECT_LE(seen("/s/"), 1);
        for (const ReceivedRequest &request : loopback.server.requests())
            EXPECT_FALSE(request.body.contains("PLAINTEXT"));
    } else {
        ASSERT_TRUE(down.wait());
        down.expect(row.code, row.title ? row.title : "Unable to download file", row.message);
        EXPECT_TRUE(down.monotone);
        EXPECT_FALSE(filesIn("to").contains("UNCONFIRMED_JOIN.res.dat.VELMORA"));
        EXPECT_EQ(filesIn("."), QStringList({"plain.txt", "tmp", "to"})) << "written outside the target's folder";
    }
    EXPECT_EQ(read("to/res.dat"), "old") << "the target is left alone";
}

using T = Failure;
const Row rows[] = {
    {"UpKeyRefused", [](T &t) { t.faults[keyPath] = answer(403, refused); }, "no way", 403, keyTitle},
    {"UpKeyEmpty", [](T &t) { t.faults[keyPath] = answer(200, "{}"); }, "", 400, keyTitle},
    {"UpKeyUnreadable", [](T &t) { t.faults[keyPath] = keyed("!!"); }, "", 400, keyTitle},
    {"UpKeyTooLong", [](T &t) { t.faults[keyPath] = keyed(QByteArray(48, 'A')); }, "", 400, keyTitle},
    {"UpKeyNeverCame", [](T &t) { t.faults[keyPath] = hangUp(); }, "", 400, keyTitle},
    {"UpAddressRefused", [](T &t) { t.faults[addressPath] = answer(500, refused); }, "no way", 500, addressTitle},
    {"UpAddressNeverCame", [](T &t) { t.faults[addressPath] = hangUp(); }, "", 400, addressTitle},
    {"UpAddressEmpty", [](T &t) { t.faults[addressPath] = answer(200, "{}"); }, "address"},
    {"UpAddressIsALocalFile", [](T &t) { t.faults[addressPath] = addressed("file:///etc/passwd"); }, "address"},
    {"UpHeaderInjection",
     [](T &t) { t.faults[addressPath] = addressed(R"(https://x","headers":{"X":"a\r\nb: c"},"y":")"); }, "header"},
    {"UpNobodyListens", [](T &t) { t.faults[addressPath] = addressed("https://127.0.0.1:1/s/up?sig=1"); }, "efused"},
    {"UpStorageRefused", [](T &t) { t.faults["/s/up"] = answer(403, refused); }, "no way", 403},
    {"UpStorageRefusedWithoutReason", [](T &t) { t.faults["/s/up"] = answer(503, "<html>"); }, "", 503},
    {"UpStorageHungUp", [](T &t) { t.faults["/s/up"] = hangUp(); }},
    {"UpStorageRedirects", [](T &t) { t.faults["/s/up"] = answer(302, {}, {}, "Location: /s/else\r\n"); }, "", 302},
    {"UpSourceMissing", [](T &t) { QFile::remove(t.qt("plain.txt")); }, "plain.txt"},
    {"ListingRefused", [](T &t) { t.faults[listPath] = answer(403, refused); }, "no way", 403,
     "Error Retrieving File List for Job"},
    {"ListingNeverCame", [](T &t) { t.faults[listPath] = hangUp(); }, "", 400, addressTitle},
    {"NotListed", [](T &t) { t.listedName = "another"; }, "out/res.dat", 404},
    {"NoChunks", [](T &t) { t.chunks = {}; }, stitch},
    {"KeyRefused", [](T &t) { t.faults[keyPath] = answer(403, refused); }, "no way", 403, keyTitle},
    {"WrongKey", [](T &t) { t.key = "another key"; }},
    {"PieceRefused", [](T &t) { t.fault(answer(403, refused)); }, "no way", 403},
    {"PieceRedirected", [](T &t) { t.fault(answer(302, {}, {}, "Location: /s/p0\r\n")); }, "", 302},
    {"PieceHungUp", [](T &t) { t.fault(hangUp()); }},
    {"CutAtTheStart", [](T &t) { t.cutAt(0); }},
    {"CutAfterOneByte", [](T &t) { t.cutAt(1); }},
    {"CutAtABlock", [](T &t) { t.cutAt(128 * 1024); }},
    {"CutBeforeTheEnd", [](T &t) { t.cutAt(t.cipher().size() - 1); }},
    {"NoLength", [](T &t) { t.fault(Answer{"HTTP/1.1 200 OK\r\n\r\n" + t.cipher().left(1000)}.closed()); }},
    {"Gzip", [](T &t) { t.fault(answer(200, qCompress(t.cipher()).mid(4), {}, "Content-Encoding: gzip\r\n")); }},
    {"Empty", [](T &t) { t.cipher().clear(); }},
    {"NotWholeBlocks", [](T &t) { t.cipher().chop(1); }},
    {"BadLastBlock", [](T &t) { t.cipher().chop(16); }},
    {"PieceWithoutSuffix", [](T &t) { t.rename("other.dat"); }, stitch},
    {"PieceTwice", [](T &t) { t.rename("x/res.dat._00001_00003"); }, stitch},
    {"PieceNamedAsTheTarget", [](T &t) { t.rename("out/res.dat"); }, "", 400, writeTitle},
    {"NameGoesUp", [](T &t) { t.rename("out/.."); }, "", 400, writeTitle},
    {"NameIsEmpty", [](T &t) { t.rename("out/"); }, "", 400, writeTitle},
    {"NameHasABackslash", [](T &t) { t.rename("a\\..\\b._00002_00003"); }, "", 400, writeTitle},
    {"NameHasADrive", [](T &t) { t.rename("c:x._00002_00003"); }, "", 400, writeTitle},
    {"JoinedNameIsEmpty", [](T &t) { t.rename("._00001_00003", 0); }, "", 400, writeTitle},
    {"AddressIsALocalFile", [](T &t) { t.change(1, "uri", "file:///etc/passwd"); }, "address"},
};

INSTANTIATE_TEST_SUITE_P(Rows, Failure, testing::ValuesIn(rows), [](const auto &row) { return row.param.name; });

/// A transfer stopped where it waits for an answer that never comes, or while it goes on.
struct Stage {
    const char *name;
    bool uploads; ///< two of one file, side by side
    const char *path;
    bool goesOn = false;

    friend std::ostream &operator<<(std::ostream &out, const Stage &stage) { return out << stage.name; }
};

class AtEveryStage : public TransferTest, public testing::WithParamInterface<Stage> {
protected:
    void SetUp() override
    {
        const auto &[name, uploads, path, goesOn] = GetParam();
        const QByteArray content = noise(4 * 1024 * 1024);
        if (!goesOn)
            faults[path] = silence();
        if (uploads) {
            file.localFileLocation = write("big", content);
            upload(file.localFileLocation);
            upload(file.localFileLocation);
        } else {
            list({piece(pieceName(1), content), piece(pieceName(2), content)});
            if (QByteArray(name) == "DownloadReceivingHalf")
                faults["/s/p0"] = answer(200, stored["/s/p0"]).paused(1000000);
            download(wanted());
        }
        ASSERT_TRUE(waitUntil([this, reached = path] { return seen(reached) > 0; }));
        if (faults.contains("/s/p0")) {
            ASSERT_TRUE(waitUntil([this] { return !down.progress.empty() && down.progress.back() > 100000; }));
        }
    }
    bool cancel() { return GetParam().uploads ? api->cancelUpload(file) : api->cancelDownload(wanted()); }
    int completions() const { return up.completions + down.completions; }

    FileUploadDetails file{"", "J1", 0};
};

TEST_P(AtEveryStage, CancelCompletesInsideTheCallAndCleansUp)
{
    EXPECT_TRUE(cancel());
    EXPECT_EQ(completions(), GetParam().uploads ? 2 : 1);
    if (GetParam().uploads)
        up.expect(400, "Upload Cancelled", "The upload of this file was cancelled.");
    else
        down.expect(400, "Download Cancelled", "");
    EXPECT_EQ(filesIn("to"), QStringList());
    EXPECT_FALSE(cancel());
    settle();
    EXPECT_EQ(completions(), GetParam().uploads ? 2 : 1);
}

TEST_P(AtEveryStage, DestructionEndsItSilentlyAndCleansUp)
{
    const int before = completions();
    api.reset();
    settle();
    EXPECT_EQ(completions(), before);
    EXPECT_EQ(filesIn("to"), QStringList());
}

INSTANTIATE_TEST_SUITE_P(
    Table, AtEveryStage,
    testing::Values(Stage{"UploadWaitingForKey", true, keyPath}, Stage{"UploadEncrypting", true, keyPath, true},
                    Stage{"UploadWaitingForAddress", true, addressPath}, Stage{"UploadConfirming", true, "/s/up"},
                    Stage{"DownloadWaitingForListing", false, listPath}, Stage{"DownloadWaitingForKey", false, keyPath},
                    Stage{"DownloadWaitingForAPiece", false, "/s/p1"},
                    Stage{"DownloadReceivingHalf", false, "/s/p1", true},
                    Stage{"DownloadReceivingAll", false, "/s/p1", true}),
    [](const auto &row) { return row.param.name; });

TEST_F(TransferTest, FiftyTransfersEndWithTheSession)
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
