#include "transfer/TransferFixture.h"

#include "base/PoolWork.h"
#include "storage/WorkingFile.h"
#include "transfer/PieceName.h"

namespace {

TEST_F(TransferTest, download_piecesInAnyOrderAndForm_joinsThemByNumber)
{
    write("to/res.dat", "old");
    ASSERT_TRUE(QFile::setPermissions(qt("to/res.dat"), QFile::ReadOwner | QFile::WriteOwner));
    const auto permissions = QFile::permissions(qt("to/res.dat"));
    QByteArray whole;
    QJsonArray chunks;
    qint64 size = 0;
    for (int number = 0; number < 36; ++number) { // from 0, and more than are received ahead of the first
        const QString path = QStringLiteral("/s/p%1").arg(number);
        QJsonObject chunk = piece(pieceName(number), noise(number * 30000));
        chunk["uri"] = url(path + '?');
        if (number % 4 == 3) {
            chunk["method"] = "POST";
            chunk["formFields"] = QJsonObject{{"f", "v"}};
        }
        const Answer plain = answer(200, stored[path]);
        faults[path + '?'] = number == 0       ? plain.paused()
                             : number % 4 == 1 ? Answer{chunked(stored[path]) + "0\r\n\r\n"}
                             : number % 4 == 2 ? Answer{"HTTP/1.1 103 Early\r\nLink: <x>\r\n\r\n" + plain.bytes}
                                               : plain;
        chunks.insert(number % 3 == 1 ? 0 : number / 2, chunk);
        whole += noise(number * 30000);
        size += stored[path].size();
    }
    list(chunks);
    download(wanted());
    ASSERT_TRUE(EVENTUALLY(seen("/s/") == 32));
    EXPECT_FALSE(waitUntil([&] { return seen("/s/") > 32; }, 100)) << "too many open files";
    loopback.server.resume();
    ASSERT_TRUE(down.wait());
    down.expect(200, "Download Success");
    EXPECT_TRUE(read("to/res.dat") == whole);
    EXPECT_EQ(filesIn("to"), QStringList("res.dat"));
    EXPECT_EQ(QFile::permissions(qt("to/res.dat")), permissions);
    EXPECT_EQ(down.progress, size);
    int posts = 0;
    for (const ReceivedRequest &request : loopback.server.requests()) {
        if (!request.target.startsWith("/s/"))
            continue;
        posts += request.verb == "POST";
        EXPECT_EQ(request.header("Accept-Encoding"), "identity");
        EXPECT_EQ(request.header("X-Sig"), "s");
        EXPECT_TRUE(request.header("Authorization").isNull());
        EXPECT_EQ(request.body.contains("name=\"f\"\r\n\r\nv\r\n"), request.verb == "POST");
    }
    EXPECT_EQ(log.lines().filter("Network Request Started with multipart:").size(), posts);
    EXPECT_EQ(seen(keyPath), 1);
    faults["/s/p3?"] = hangUp();
    expectDownload(wanted(), 400);
    EXPECT_EQ(seen("/s/p3?"), 2) << "a form is not sent twice, whatever became of a connection that was kept";
}

// Working files are this download's own: one of a running download stays, one that was left behind is removed.
TEST_F(TransferTest, download_workingNameInUse_takesAnother)
{
    const QString name = "UNCONFIRMED_DOWNLOAD.res.dat._00001_00003", first = name + ".VELMORA";
    write("to/" + first, "left behind");
    write("to/" + name + ".2.VELMORA", "left behind");
    write("to/UNCONFIRMED_DOWNLOAD.res.dat._00002_00003.VELMORA", "left behind");
    write("to/res.dat._00001_00003", "of the user");
    const QByteArray contents[] = {noise(1000000), noise(1000001)};
    list({piece(pieceName(1, "a/res.dat"), contents[0])}, "a/res.dat");
    list({piece(pieceName(1, "b/res.dat"), contents[1]), piece(pieceName(2, "b/res.dat"), "")}, "b/res.dat");
    for (const char *path : {"/s/p0", "/s/p1"})
        faults[path] = answer(200, stored[path]).paused(700000);
    CloudAPI other; // another session; a lock does not distinguish it from another process
    ASSERT_TRUE(signIn(other));
    Transfer<FileDownloadDetails> second;
    download(wanted("to/one", "a/res.dat"));
    ASSERT_TRUE(waitForFiles([&] { return read("to/" + first).size() > 100000; }));
    other.downloadFile(wanted("to/two", "b/res.dat"), second.progressed(), second.completed());
    ASSERT_TRUE(waitForFiles([&] { return read("to/" + name + ".2.VELMORA").size() > 100000; }));
    ASSERT_TRUE(EVENTUALLY(loopback.server.pausing() == 2));
    EXPECT_GT(read("to/" + first).size(), 100000) << "left alone";
    loopback.server.resume();
    ASSERT_TRUE(down.wait() && second.wait());
    EXPECT_TRUE(read("to/one") == contents[0] && read("to/two") == contents[1]);
    for (const int number : {1, 2, 3})
        write(WorkingFile::pathOf("to", "x", number), "left behind");
    WorkingFile::removeAbandoned(qt("to"), "x");
    EXPECT_EQ(filesIn("to"), QStringList({"one", "res.dat._00001_00003", "two"}));
    EXPECT_EQ(read("to/res.dat._00001_00003"), "of the user");
}

TEST_F(TransferTest, download_nameTooLongForAFolder_isShortened)
{
    const QString name = "out/" + (onWindows ? QString(240, 'n') : QString(120, QChar(0xfc)));
    list({piece(pieceName(1, name), "one "), piece(pieceName(2, name), "two")}, name);
    downloadAndWait(wanted("to/res.dat", name.toUtf8()));
    EXPECT_EQ(read("to/res.dat"), "one two") << down.error.errorMessage;
    EXPECT_EQ(filesIn("to"), QStringList("res.dat"));
    const QString pairs = QString::fromUcs4(U"\U0001F30A").repeated(200);
    const QString path = WorkingFile::pathOf("to", 'x' + pairs, 12);
    EXPECT_TRUE(path.endsWith(".12.VELMORA") && path.startsWith("to/UNCONFIRMED_DOWNLOAD.x")) << path.toStdString();
    const int length = onWindows ? path.size() - 3 : path.toUtf8().size() - 3;
    EXPECT_TRUE(length > 250 && length <= 255) << length;
    EXPECT_EQ(QString::fromUtf8(path.toUtf8()), path) << "no half of a pair is left";
}

TEST_F(TransferTest, download_diskTakesNothing_holdsTheSenderUp)
{
    const QByteArray content = noise(8 * mebibyte);
    setOptions([](ClientOptions &changed) { changed.stallTimeout = 1; }); // the storage does not stall
    list({piece(pieceName(1), content)});
    const Answer full = answer(200, stored["/s/p0"]);
    const int head = full.bytes.indexOf("\r\n\r\n") + 4;
    // While the answer is held up, its end comes, or the server sends nothing more, or all that came was taken.
    for (const int pauseAt : {0, 6 * mebibyte, head + mebibyte + 1}) {
        const bool fails = pauseAt > 0;
        faults["/s/p0"] = fails ? full.paused(pauseAt) : full.closed();
        {
            QThreadPool &pool = *partsOf(*api).storage.pool();
            const auto end = std::make_shared<QSemaphore>(); // tasks may hold it for longer
            const auto release = qScopeGuard([&] { end->release(pool.maxThreadCount()); });
            for (int i = 0; i < pool.maxThreadCount(); ++i)
                startOnPool(&pool, [end] { end->acquire(); });
            download(wanted(fails ? "res.dat/below a file" : "res.dat"));
            ASSERT_TRUE(EVENTUALLY(down.progress > 900 * 1024));
            EXPECT_FALSE(waitUntil([&] { return down.progress > mebibyte; }, fails ? 300 : 1500))
                << "memory is bounded";
        }
        ASSERT_TRUE(down.wait());
        down.expect(fails ? 400 : 200, fails ? "Unable to write to target file" : "Download Success",
                    fails ? "could not be created" : "");
    }
    EXPECT_TRUE(read("res.dat") == content);
}

TEST_F(TransferTest, download_targetNotWritableOrInUse_fails)
{
    list({piece(pieceName(1), "content")});
    write("folder/x", "x");
    for (const std::string &target : {at("folder"), std::string(), at("folder/x/below/res.dat")}) {
        downloadAndWait({target, wanted().cloudFileDetails});
        const bool isBelow = target.find("below") != std::string::npos; // of the others nothing is fetched
        down.expect(400, "Unable to write to target file", isBelow ? "could not be created" : "is no file name: ");
    }
    faults["/s/"] = silence();
    download(wanted());
    for (const FileDownloadDetails &second : {wanted(), wanted("to/../to/res.dat", "another")}) {
        Transfer<FileDownloadDetails> late;
        api->downloadFile(second, late.progressed(), late.completed());
        EXPECT_EQ(late.completions, 1) << "inside the call";
        late.expect(400, "Unable to Initiate Download");
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
    write("to/res.dat", "old");
    list({piece(pieceName(1), "content")});
    QFile holder(qt("to/res.dat"));
    ASSERT_TRUE(holder.open(QIODevice::ReadOnly));
    downloadAndWait(wanted());
    down.expect(onWindows ? 400 : 200, onWindows ? "Unable to write to target file" : "Download Success",
                onWindows ? "res.dat could not be put into place" : "");
    EXPECT_EQ(read("to/res.dat"), onWindows ? "old" : "content");
    QTimer::singleShot(300, &loopback.server, [&] { holder.close(); });
    expectDownload(wanted()); // closed in time
    EXPECT_EQ(read("to/res.dat"), "content");
}

} // namespace
