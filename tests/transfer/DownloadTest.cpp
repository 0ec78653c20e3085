#include "transfer/TransferFixture.h"

#include "transfer/PieceName.h"

namespace {

const QString suffix = QStringLiteral("._%1_00003");

QString pieceName(int number, const QString &base = QStringLiteral("out/res.dat"))
{
    return base + suffix.arg(number, 5, 10, QLatin1Char('0'));
}

TEST_F(TransferTest, PiecesInAnyOrderAndByAnyMethodJoinByTheirNumbers)
{
    QDir(folder.path()).mkdir(QStringLiteral("to"));
    write(QStringLiteral("to/res.dat"), "old");
    const QByteArray content = noise(5 * 1024 * 1024);
    const int cuts[] = {0, 2 * 1024 * 1024 + 3, 2 * 1024 * 1024 + 3, content.size()};
    QJsonArray chunks;
    for (const int number : {3, 1, 2}) {
        QJsonObject chunk = piece(pieceName(number), content.mid(cuts[number - 1], cuts[number] - cuts[number - 1]));
        if (number == 2) {
            chunk["method"] = "POST";
            chunk["formFields"] = QJsonObject{{"f", "v"}};
        }
        chunks.append(chunk);
    }
    list(chunks);
    download(wanted());
    ASSERT_TRUE(waitUntil([this] { return down.completions > 0; }));
    settle();
    EXPECT_EQ(down.completions, 1);
    EXPECT_EQ(down.error.errorCode, 200) << down.error.errorMessage;
    EXPECT_EQ(down.error.errorTitle, "Download Success");
    EXPECT_EQ(read(targetPath()), content);
    EXPECT_EQ(filesBeside(), QStringList{QStringLiteral("res.dat")});
    EXPECT_TRUE(down.monotone());
    ASSERT_FALSE(down.progress.empty());
    qint64 cipherSize = 0;
    for (const QByteArray &bytes : qAsConst(stored))
        cipherSize += bytes.size();
    EXPECT_EQ(down.progress.back(), cipherSize);
    for (const ReceivedRequest &request : loopback.server.requests()) {
        if (!request.target.startsWith("/s/"))
            continue;
        EXPECT_EQ(request.header("Accept-Encoding"), "identity");
        EXPECT_EQ(request.header("X-Sig"), "s");
        EXPECT_TRUE(request.header("Authorization").isNull());
        if (request.verb == "POST") {
            EXPECT_TRUE(request.body.contains("name=\"f\"\r\n\r\nv\r\n"));
        }
    }
    EXPECT_EQ(seen("/api/job/key"), 1);
}

TEST_F(TransferTest, HiddenFilesAndOtherNamesArriveAtTheTarget)
{
    const QString hidden = QStringLiteral("sim/rtg/x.bin");
    list({piece(hidden + QStringLiteral("._00001_00001"), "content")}, hidden);
    download(wanted("sim/rtg/x.bin"));
    ASSERT_TRUE(waitUntil([this] { return down.completions > 0; }));
    EXPECT_EQ(down.error.errorCode, 200);
    EXPECT_EQ(read(targetPath()), "content");
    EXPECT_EQ(filesBeside(), QStringList{QStringLiteral("res.dat")});
}

TEST_F(TransferTest, ListingIsAskedForOnceAndAgainAfterThirtyMinutes)
{
    qint64 now = 0;
    implOf(*api).setClock([&now] { return now; });
    list({piece(pieceName(1), "content")});
    const auto fetch = [this](int count) {
        download(wanted());
        return waitUntil([&] { return down.completions == count; }) && down.error.errorCode == 200;
    };
    EXPECT_TRUE(fetch(1));
    now += 1800000;
    EXPECT_TRUE(fetch(2));
    EXPECT_EQ(seen("/api/job/files/list"), 1);
    now += 1;
    EXPECT_TRUE(fetch(3));
    EXPECT_EQ(seen("/api/job/files/list"), 2);
}

const char *const failedTitle = "Unable to download file";
const char *const writeTitle = "Unable to write to target file";
const char *const stitch = "We were unable to stitch the requested file back together from its chunks.";

/// Three good pieces, of which a row spoils something.
class DownloadFailure : public TransferTest, public testing::WithParamInterface<int> {
public:
    struct Row {
        const char *name;
        void (*spoil)(DownloadFailure &);
        int code;
        const char *title;
        const char *message;
    };
    static const std::vector<Row> &rows();

    void fault(const Answer &answer) { faults[QStringLiteral("/s/p1")] = answer; }
    void rename(int index, const QString &name)
    {
        QJsonObject chunk = chunks[index].toObject();
        chunk["fileName"] = name;
        chunks[index] = chunk;
    }
    QByteArray cipher() const { return stored[QStringLiteral("/s/p1")]; }
    void storeInstead(const QByteArray &bytes) { stored[QStringLiteral("/s/p1")] = bytes; }
    /// The whole length is announced, `count` bytes come.
    void cutAt(qint64 count)
    {
        const Answer whole = answer(200, cipher(), "application/octet-stream");
        fault(whole.cut(whole.bytes.size() - cipher().size() + count));
    }

    QJsonArray chunks;
    bool listed = true;
};

const std::vector<DownloadFailure::Row> &DownloadFailure::rows()
{
    using T = DownloadFailure;
    static const std::vector<Row> table = {
        {"ListingRefused", [](T &t) { t.faults["/api/job/files/list"] = answer(403, R"({"message":"m1"})"); }, 403,
         "Error Retrieving File List for Job", "m1"},
        {"ListingNeverCame", [](T &t) { t.faults["/api/job/files/list"] = hangUp(); }, 400, "Error Transferring Files",
         ""},
        {"NotListed", [](T &t) { t.listed = false; }, 404, failedTitle, "out/res.dat"},
        {"NoChunks", [](T &t) { t.chunks = {}; }, 400, failedTitle, stitch},
        {"KeyRefused", [](T &t) { t.faults["/api/job/key"] = answer(403, R"({"message":"m2"})"); }, 403,
         "Error Requesting Encryption Key", "m2"},
        {"WrongKey", [](T &t) { t.key = "another key"; }, 400, failedTitle, ""},
        {"PieceRefused", [](T &t) { t.fault(answer(403, R"({"message":"m3"})")); }, 403, failedTitle, "m3"},
        {"PieceRedirected", [](T &t) { t.fault(answer(302, {}, "text/plain", "Location: /s/p0\r\n")); }, 302,
         failedTitle, ""},
        {"PieceHungUp", [](T &t) { t.fault(hangUp()); }, 400, failedTitle, ""},
        {"CutAtTheStart", [](T &t) { t.cutAt(0); }, 400, failedTitle, ""},
        {"CutAfterOneByte", [](T &t) { t.cutAt(1); }, 400, failedTitle, ""},
        {"CutAtABlock", [](T &t) { t.cutAt(128 * 1024); }, 400, failedTitle, ""},
        {"CutBeforeTheEnd", [](T &t) { t.cutAt(t.cipher().size() - 1); }, 400, failedTitle, ""},
        {"ClosedWithoutLength",
         [](T &t) {
             Answer bare;
             bare.bytes = "HTTP/1.1 200 OK\r\n\r\n" + t.cipher().left(1000);
             t.fault(bare.closed());
         },
         400, failedTitle, ""},
        {"Compressed",
         [](T &t) {
             t.fault(
                 answer(200, qCompress(t.cipher()).mid(4), "application/octet-stream", "Content-Encoding: gzip\r\n"));
         },
         400, failedTitle, ""},
        {"Empty", [](T &t) { t.storeInstead({}); }, 400, failedTitle, ""},
        {"NotWholeBlocks", [](T &t) { t.storeInstead(t.cipher().chopped(1)); }, 400, failedTitle, ""},
        {"BadLastBlock", [](T &t) { t.storeInstead(t.cipher().chopped(16)); }, 400, failedTitle, ""},
        {"PieceWithoutSuffix", [](T &t) { t.rename(1, "other.dat"); }, 400, failedTitle, stitch},
        {"PieceTwice", [](T &t) { t.rename(1, pieceName(1, "x/res.dat")); }, 400, failedTitle, stitch},
        {"PieceNamedAsTheTarget", [](T &t) { t.rename(1, "out/res.dat"); }, 400, writeTitle, ""},
        {"NameGoesUp", [](T &t) { t.rename(1, "out/.."); }, 400, writeTitle, ""},
        {"NameIsEmpty", [](T &t) { t.rename(1, "out/"); }, 400, writeTitle, ""},
        {"NameHasABackslash", [](T &t) { t.rename(1, "a\\..\\b._00002_00003"); }, 400, writeTitle, ""},
        {"NameHasADrive", [](T &t) { t.rename(1, "c:x._00002_00003"); }, 400, writeTitle, ""},
        {"JoinedNameIsEmpty", [](T &t) { t.rename(0, "._00001_00003"); }, 400, writeTitle, ""},
        {"AddressIsALocalFile",
         [](T &t) {
             QJsonObject chunk = t.chunks[1].toObject();
             chunk["uri"] = "file:///etc/passwd";
             t.chunks[1] = chunk;
         },
         400, failedTitle, "address"},
    };
    return table;
}

TEST_P(DownloadFailure, CompletesOnceAndLeavesTheTargetAlone)
{
    const Row &row = rows()[static_cast<std::size_t>(GetParam())];
    QDir(folder.path()).mkdir(QStringLiteral("to"));
    write(QStringLiteral("to/res.dat"), "old");
    for (int number = 1; number <= 3; ++number)
        chunks.append(piece(pieceName(number), noise(300000 + number)));
    row.spoil(*this);
    if (listed)
        list(chunks);
    download(wanted());
    EXPECT_EQ(down.completions, 0);
    ASSERT_TRUE(waitUntil([this] { return down.completions > 0; }));
    settle();
    EXPECT_EQ(down.completions, 1);
    EXPECT_EQ(down.error.errorCode, row.code);
    EXPECT_EQ(down.error.errorTitle, row.title);
    EXPECT_NE(down.error.errorMessage.find(row.message), std::string::npos) << down.error.errorMessage;
    EXPECT_TRUE(down.monotone());
    EXPECT_EQ(read(targetPath()), "old");
    EXPECT_FALSE(filesBeside().contains(QStringLiteral("UNCONFIRMED_JOIN.res.dat.VELMORA")));
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files), QStringList()) << "written outside the target's folder";
}

INSTANTIATE_TEST_SUITE_P(Rows, DownloadFailure, testing::Range(0, static_cast<int>(DownloadFailure::rows().size())),
                         [](const auto &row) {
                             return DownloadFailure::rows()[static_cast<std::size_t>(row.param)].name;
                         });

TEST_F(TransferTest, TargetThatCannotBeWrittenFailsTheDownload)
{
    list({piece(pieceName(1), "content")});
    FileDownloadDetails file = wanted();
    QDir(folder.path()).mkpath(QStringLiteral("to/res.dat")); // a folder
    write(QStringLiteral("file"), "x");
    for (const std::string &target : {targetPath().toStdString(), std::string(),
                                      folder.filePath(QStringLiteral("file/below/res.dat")).toStdString()}) {
        down = {};
        file.localFileLocation = target;
        download(file);
        ASSERT_TRUE(waitUntil([this] { return down.completions > 0; }));
        EXPECT_EQ(down.error.errorCode, 400) << target;
        EXPECT_EQ(down.error.errorTitle, writeTitle) << target;
    }
    QFile::remove(folder.filePath(QStringLiteral("file")));
}

TEST_F(TransferTest, SecondDownloadToTheSamePlaceIsRefusedInsideTheCall)
{
    faults[QStringLiteral("/s/")] = silence();
    list({piece(pieceName(1), "content")});
    download(wanted());
    FileDownloadDetails beside = wanted();
    beside.localFileLocation = folder.filePath(QStringLiteral("to/other name")).toStdString();
    FileDownloadDetails detour = wanted("another");
    detour.localFileLocation = folder.filePath(QStringLiteral("to/../to/res.dat")).toStdString();
    for (const FileDownloadDetails &second : {wanted(), beside, detour}) {
        Transfer<FileDownloadDetails> late;
        api->downloadFile(second, late.progressed(), late.completed());
        EXPECT_EQ(late.completions, 1);
        EXPECT_EQ(late.error.errorCode, 400);
        EXPECT_EQ(late.error.errorTitle, "Unable to Initiate Download");
    }
    EXPECT_EQ(down.completions, 0);
    EXPECT_TRUE(api->cancelDownload(wanted()));
}

std::string stageName(std::size_t index)
{
    const char *const names[] = {"WaitingForListing", "WaitingForKey", "WaitingForAPiece", "ReceivingHalf",
                                 "ReceivingAll"};
    return names[index];
}

class DownloadStage : public TransferTest, public testing::WithParamInterface<const char *> {
protected:
    void reach()
    {
        const QByteArray path = GetParam();
        list({piece(pieceName(1), noise(4 * 1024 * 1024)), piece(pieceName(2), noise(4 * 1024 * 1024))});
        if (path.endsWith("half")) {
            faults[QStringLiteral("/s/p0")] = answer(200, stored[QStringLiteral("/s/p0")]).paused(1000000);
        } else if (!path.isEmpty()) {
            faults[QString::fromLatin1(path)] = silence();
        }
        download(wanted());
        if (path.endsWith("half"))
            ASSERT_TRUE(waitUntil([this] { return !down.progress.empty() && down.progress.back() > 100000; }));
        else
            ASSERT_TRUE(waitUntil([&] { return seen(path.isEmpty() ? "/s/p1" : path.constData()) > 0; }));
    }
};

TEST_P(DownloadStage, CancelCompletesInsideTheCallAndCleansUp)
{
    reach();
    EXPECT_TRUE(api->cancelDownload(wanted()));
    EXPECT_EQ(down.completions, 1);
    EXPECT_EQ(down.error.errorCode, 400);
    EXPECT_EQ(down.error.errorTitle, "Download Cancelled");
    EXPECT_EQ(filesBeside(), QStringList());
    EXPECT_FALSE(api->cancelDownload(wanted()));
    settle();
    EXPECT_EQ(down.completions, 1);
}

TEST_P(DownloadStage, DestructionEndsItSilentlyAndCleansUp)
{
    reach();
    api.reset();
    settle();
    EXPECT_EQ(down.completions, 0);
    EXPECT_EQ(filesBeside(), QStringList());
}

TEST_P(DownloadStage, CallbacksMayDestroyTheSession)
{
    reach();
    down.onProgress = down.onEnd = [this] { api.reset(); };
    loopback.server.resume();
    if (!waitUntil([this] { return !api; }, 200) && api) // stages that never go on by themselves
        api->cancelDownload(wanted());
    EXPECT_FALSE(api);
    settle();
    EXPECT_LE(down.completions, 1);
}

INSTANTIATE_TEST_SUITE_P(Stages, DownloadStage,
                         testing::Values("/api/job/files/list", "/api/job/key", "/s/p1", "/s/half", ""),
                         [](const auto &row) { return stageName(row.index); });

TEST_F(TransferTest, FiftyTransfersEndWithTheSessionWithinASecond)
{
    faults[QStringLiteral("/s/p")] = silence();
    const FileUploadDetails file = source(write(QStringLiteral("big"), noise(16 * 1024 * 1024)));
    QJsonArray files;
    for (int i = 0; i < 25; ++i) {
        const QString name = QStringLiteral("f%1").arg(i);
        files.append(QJsonObject{
            {"jobId", "J1"}, {"fileName", name}, {"downloadRequest", QJsonArray{piece(pieceName(1, name), "x")}}});
    }
    listing = files;
    for (int i = 0; i < 25; ++i) {
        upload(file);
        FileDownloadDetails target = wanted(qPrintable(QStringLiteral("f%1").arg(i)));
        target.localFileLocation = folder.filePath(QStringLiteral("to/f%1").arg(i)).toStdString();
        download(target);
    }
    ASSERT_TRUE(waitUntil([this] { return seen("/s/") > 0; }));
    const int before = up.completions + down.completions;
    api.reset();
    settle();
    EXPECT_EQ(up.completions + down.completions, before);
    EXPECT_EQ(filesBeside(), QStringList());
}

TEST(PieceName, SuffixCountsAtTheEndOnly)
{
    const struct {
        const char *name;
        int number;
        const char *whole;
    } rows[] = {{"a/b.dat._00012_00034", 12, "a/b.dat"},
                {"b._00001_00002.dat", -1, "b._00001_00002.dat"},
                {"b._0001_00002", -1, "b._0001_00002"},
                {"b._00001_00002\n", -1, "b._00001_00002\n"},
                {"b._00001_00002._00003_00004", 3, "b._00001_00002"}};
    for (const auto &row : rows) {
        EXPECT_EQ(pieceNumber(row.name), row.number) << row.name;
        EXPECT_EQ(withoutPieceSuffix(row.name), QString(row.whole)) << row.name;
    }
}

} // namespace
