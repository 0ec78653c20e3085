#include "transfer/TransferFixture.h"

#include "transfer/PieceName.h"

#include <QFileSystemWatcher>

namespace {

TEST_F(TransferTest, PiecesInAnyOrderAndByAnyMethodJoinByTheirNumbers)
{
    QDir(folder.path()).mkdir("to");
    write("to/res.dat", "old");
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
    ASSERT_TRUE(down.wait());
    down.expect(200, "Download Success", "");
    EXPECT_TRUE(read("to/res.dat") == content);
    EXPECT_EQ(filesIn("to"), QStringList("res.dat"));
    EXPECT_TRUE(down.monotone);
    qint64 cipherSize = 0;
    for (const QByteArray &bytes : qAsConst(stored))
        cipherSize += bytes.size();
    ASSERT_FALSE(down.progress.empty());
    EXPECT_EQ(down.progress.back(), cipherSize);
    for (const ReceivedRequest &request : loopback.server.requests()) {
        if (!request.target.startsWith("/s/"))
            continue;
        EXPECT_EQ(request.header("Accept-Encoding"), "identity");
        EXPECT_EQ(request.header("X-Sig"), "s");
        EXPECT_TRUE(request.header("Authorization").isNull());
        EXPECT_EQ(request.body.contains("name=\"f\"\r\n\r\nv\r\n"), request.verb == "POST");
    }
    EXPECT_EQ(seen(keyPath), 1);
}

TEST_F(TransferTest, HiddenFilesAreListedOnceAndAgainAfterThirtyMinutes)
{
    qint64 now = 0;
    implOf(*api).setClock([&now] { return now; });
    const QString hidden = "sim/rtg/x.bin";
    list({piece(pieceName(1, hidden), "content")}, hidden);
    for (const auto &[passed, listings] : {std::pair(0, 1), {1800000, 1}, {1, 2}}) {
        now += passed;
        down = {};
        download(wanted("to/res.dat", "sim/rtg/x.bin"));
        ASSERT_TRUE(down.wait());
        EXPECT_EQ(down.error.errorCode, 200);
        EXPECT_EQ(read("to/res.dat"), "content");
        EXPECT_EQ(filesIn("to"), QStringList("res.dat"));
        EXPECT_EQ(seen(listPath), listings);
    }
}

TEST_F(TransferTest, TargetThatCannotBeWrittenFailsTheDownload)
{
    list({piece(pieceName(1), "content")});
    QDir(folder.path()).mkpath("to/res.dat"); // a folder
    write("file", "x");
    for (const std::string &target : {at("to/res.dat"), std::string(), at("file/below/res.dat")}) {
        down = {};
        download({target, wanted().cloudFileDetails});
        ASSERT_TRUE(down.wait());
        down.expect(400, "Unable to write to target file", "");
    }
}

TEST_F(TransferTest, SecondDownloadToTheSamePlaceIsRefusedInsideTheCall)
{
    faults["/s/"] = silence();
    list({piece(pieceName(1), "content")});
    download(wanted());
    for (const FileDownloadDetails &second :
         {wanted(), wanted("to/other name"), wanted("to/../to/res.dat", "another")}) {
        Transfer<FileDownloadDetails> late;
        api->downloadFile(second, late.progressed(), late.completed());
        EXPECT_EQ(late.completions, 1);
        late.expect(400, "Unable to Initiate Download", "");
    }
    EXPECT_EQ(down.completions, 0);
    EXPECT_TRUE(api->cancelDownload(wanted()));
}

TEST(PieceName, SuffixCountsAtTheEndOnly)
{
    const std::tuple<const char *, int, const char *> rowsOfNames[] = {
        {"a/b.dat._00012_00034", 12, "a/b.dat"},
        {"b._00001_00002.dat", -1, "b._00001_00002.dat"},
        {"b._0001_00002", -1, "b._0001_00002"},
        {"b._00001_00002\n", -1, "b._00001_00002\n"},
        {"b._00001_00002._00003_00004", 3, "b._00001_00002"}};
    for (const auto &[name, number, whole] : rowsOfNames) {
        EXPECT_EQ(pieceNumber(name), number) << name;
        EXPECT_EQ(withoutPieceSuffix(name), QString(whole)) << name;
    }
}

TEST(PieceName, SafeIsWhatStaysInItsFolder_OnWindowsOnlyWhatItCanHold)
{
    for (const char *name : {"", ".", "..", "a/b", "a\\b", "c:d"})
        EXPECT_FALSE(isSafeFileName(name)) << name;
    for (const char *name :
         {"CON", "con.txt", "Nul ", "aux .b", "COM1", "lpt9.log.gz", "CONIN$", "a.", "a ", "a?b", "a\tb"}) {
        EXPECT_FALSE(isWindowsFileName(name)) << name;
        EXPECT_EQ(isSafeFileName(name), !onWindows) << name;
    }
    for (const char *name :
         {"CONE", "COM", "COM10.dat", "xCON", "a.con", ".b", " a", "gr\xc3\xbc\xc3\x9f \xe6\x96\x87"})
        EXPECT_TRUE(isWindowsFileName(name) && isSafeFileName(name)) << name;
}

TEST_F(TransferTest, TargetHeldOpenByAnother)
{
    QDir(folder.path()).mkdir("to");
    write("to/res.dat", "old");
    list({piece(pieceName(1), "content")});
    const auto downloadWhile = [&](const std::function<void()> &joined) {
        QFileSystemWatcher watcher({qt("to")});
        QObject::connect(&watcher, &QFileSystemWatcher::directoryChanged, &watcher, [&] {
            if (exists("to/UNCONFIRMED_JOIN.res.dat.VELMORA"))
                joined();
        });
        down = {};
        download(wanted());
        EXPECT_TRUE(down.wait());
    };
    QFile holder(qt("to/res.dat"));
    ASSERT_TRUE(holder.open(QIODevice::ReadOnly));
    downloadWhile([] {});
    if (onWindows)
        down.expect(400, "Unable to write to target file", "res.dat could not be put into place");
    else
        EXPECT_EQ(down.error.errorCode, 200);
    EXPECT_EQ(read("to/res.dat"), onWindows ? "old" : "content");
    QFile::remove(qt("to/UNCONFIRMED_JOIN.res.dat.VELMORA"));
    downloadWhile([&] { holder.close(); });
    EXPECT_EQ(down.error.errorCode, 200) << "let go in time: " << down.error.errorMessage;
    EXPECT_EQ(read("to/res.dat"), "content");
}

} // namespace
