#include "transfer/TransferFixture.h"

#include "transfer/PieceName.h"

#include <QTimer>

namespace {

TEST_F(TransferTest, download_piecesInAnyOrderAndMethod_joinsThemByNumber)
{
    const QByteArray parts[] = {noise(2 * 1024 * 1024 + 3), {}, noise(3 * 1024 * 1024)};
    QJsonArray chunks;
    for (const int number : {3, 1, 2}) {
        QJsonObject chunk = piece(pieceName(number), parts[number - 1]);
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
    EXPECT_TRUE(read("to/res.dat") == parts[0] + parts[2]);
    EXPECT_EQ(filesIn("to"), QStringList("res.dat"));
    EXPECT_TRUE(down.monotone);
    EXPECT_EQ(down.progress, stored["/s/p0"].size() + stored["/s/p1"].size() + stored["/s/p2"].size());
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

TEST_F(TransferTest, download_hiddenFile_asksForTheListingEveryThirtyMinutes)
{
    qint64 now = 0;
    partsOf(*api).grants.setClock([&now] { return now; });
    const QString hidden = "sim/rtg/x.bin";
    list({piece(pieceName(1, hidden), "content")}, hidden);
    for (const auto &[passed, listings] : {std::pair(0, 1), {1800000, 1}, {1, 2}}) {
        now += passed;
        down = {};
        download(wanted("to/res.dat", "sim/rtg/x.bin"));
        ASSERT_TRUE(down.wait());
        EXPECT_EQ(down.error.errorCode, 200);
        EXPECT_EQ(read("to/res.dat"), "content");
        EXPECT_EQ(seen(listPath), listings);
    }
}

TEST_F(TransferTest, download_targetNotWritable_fails)
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

TEST_F(TransferTest, download_targetInUse_isRefusedInsideTheCall)
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

TEST(PieceNameTest, pieceNumber_suffixNotAtTheEnd_isNone)
{
    const QString name = "a/b._00001_00002._00003_00004";
    EXPECT_EQ(pieceNumber(name), 3);
    EXPECT_EQ(withoutPieceSuffix(name), QString("a/b._00001_00002"));
    for (const char *none : {"b._00001_00002.dat", "b._0001_00002", "b._00001_00002\n"})
        EXPECT_EQ(pieceNumber(none), -1) << none;
}

TEST_F(TransferTest, download_targetOpenElsewhere_failsOnWindowsUnlessClosedInTime)
{
    QDir(folder.path()).mkdir("to");
    write("to/res.dat", "old");
    list({piece(pieceName(1), "content")});
    QFile holder(qt("to/res.dat"));
    ASSERT_TRUE(holder.open(QIODevice::ReadOnly));
    download(wanted());
    ASSERT_TRUE(down.wait());
    if (onWindows)
        down.expect(400, "Unable to write to target file", "res.dat could not be put into place");
    else
        EXPECT_EQ(down.error.errorCode, 200);
    EXPECT_EQ(read("to/res.dat"), onWindows ? "old" : "content");
    down = {};
    download(wanted());
    QTimer::singleShot(300, &loopback.server, [&] { holder.close(); });
    ASSERT_TRUE(down.wait());
    EXPECT_EQ(down.error.errorCode, 200) << "closed in time: " << down.error.errorMessage;
    EXPECT_EQ(read("to/res.dat"), "content");
}

} // namespace
