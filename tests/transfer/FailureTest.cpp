// What ends a transfer early: faults of service, storage and disk.

#include "transfer/TransferFixture.h"

#ifndef Q_OS_WIN
#include "torture/DiskCalls.h"
#include <sys/stat.h>
#endif

namespace {

constexpr auto keyTitle = "Error Requesting Encryption Key", addressTitle = "Error Transferring Files",
               writeTitle = "Unable to write to target file", refused = R"({"message":"no way"})",
               stitch = "We were unable to stitch the requested file back together from its chunks.";
const Answer refusal = answer(300, refused);

/// An upload, or a download of three good pieces, in which a row spoils something.
class FailureTest;
struct Row {
    const char *name; ///< an upload's begins with "upload"
    void (*spoil)(FailureTest &);
    const char *message = ""; ///< contained in the message
    int code = 400;
    const char *title = nullptr; ///< null: the direction's own

    friend std::ostream &operator<<(std::ostream &out, const Row &row) { return out << row.name; }
};

struct FailureTest : TransferTest, testing::WithParamInterface<Row> {
    void rename(const char *to, int index = 1) { change(chunks, index, "fileName", to); }
    QByteArray &cipher() { return stored["/s/p1"]; }

    QJsonArray chunks;
    QString listedName = "out/res.dat";
    std::string source = write("plain.txt", "PLAINTEXT");
};

TEST_P(FailureTest, transfer_fails_completesOnceWithTheReason)
{
    const auto &[name, spoil, message, code, ownTitle] = GetParam();
    const bool uploads = QByteArray(name).startsWith("upload");
    write("to/res.dat", "old");
    for (int number = 1; !uploads && number <= 3; ++number)
        chunks.append(piece(pieceName(number), noise(300000 + number)));
    spoil(*this);
    list(chunks, listedName);
    const auto verify = [&, code = code, title = ownTitle, message = message](auto &transfer, const char *usual) {
        EXPECT_EQ(transfer.completions, 0) << "inside the call";
        EXPECT_TRUE(transfer.wait());
        transfer.expect(code, title ? title : usual, message);
    };
    uploads ? upload(source) : download(wanted());
    uploads ? verify(up, "File Failed to Upload") : verify(down, "Unable to download file");
    if (uploads) {
        EXPECT_EQ(seen("/s/"), 0);
        for (const ReceivedRequest &request : loopback.server.requests())
            EXPECT_FALSE(request.body.contains("PLAINTEXT"));
    } else {
        for (const QString &left : filesIn("to"))
            EXPECT_TRUE(left == "res.dat" || left.startsWith("UNCONFIRMED_DOWNLOAD.res.dat")) << left.toStdString();
        EXPECT_TRUE(QByteArray(message) != "does not decrypt" || filesIn("to").size() > 1) << "what came is kept";
        const bool namesAreBad = message == stitch || ownTitle == writeTitle;
        EXPECT_TRUE(!namesAreBad || seen("/s/") == 0) << "fetched before the names were checked";
        EXPECT_EQ(filesIn("."), QStringList({"plain.txt", "tmp", "to"})) << "written outside the target's folder";
    }
    EXPECT_EQ(read("to/res.dat"), "old") << "the target is left alone";
}

using Test = FailureTest;
const Row rows[] = {
    {"uploadKeyRefused", [](Test &t) { t.faults[keyPath] = refusal; }, "no way", 300, keyTitle},
    {"uploadKeyEmpty", [](Test &t) { t.faults[keyPath] = answer(200, "{}"); }, "", 400, keyTitle},
    {"uploadKeyIsNoBase64", [](Test &t) { t.faults[keyPath] = answer(200, R"({"key":{"plaintextKey":"QUJD*kVG"}})"); },
     "no usable encryption key", 400, keyTitle},
    {"uploadKeyTooLong", [](Test &t) { t.key += 'x'; }, "", 400, keyTitle},
    {"uploadKeyNeverCame", [](Test &t) { t.faults[keyPath] = hangUp(); }, "", 400, keyTitle},
    {"uploadAddressRefused", [](Test &t) { t.faults[addressPath] = refusal; }, "no way", 300, addressTitle},
    {"uploadAddressNeverCame", [](Test &t) { t.faults[addressPath] = hangUp(); }, "", 400, addressTitle},
    {"uploadAddressIsALocalFile", [](Test &t) { t.address["uri"] = "file:///etc/passwd"; }, "address"},
    {"uploadHeaderInjection",
     [](Test &t) {
         t.address["headers"] = QJsonObject{{"X", "a\r\nb: c"}};
     },
     "header"},
    {"uploadNobodyListens", [](Test &t) { t.address["uri"] = "https://127.0.0.1:1/s/up?sig=1"; }, "efused"},
    {"uploadSourceMissing", [](Test &t) { t.source = t.at("none"); }, "none"},
    {"uploadSourceIsAFolder", [](Test &t) { t.source = t.at("to"); }, "folder"},
#ifndef Q_OS_WIN
    {"uploadSourceIsADevice", [](Test &t) { t.source = "/dev/zero"; },
     "/dev/zero could not be read for upload: It is not a regular file."},
    {"uploadSourceIsAPipe", [](Test &t) { mkfifo((t.source = t.at("tmp/pipe")).c_str(), 0600); }, "regular file"},
#endif
    {"listingRefused", [](Test &t) { t.faults[listPath] = refusal; }, "no way", 300,
     "Error Retrieving File List for Job"},
    {"notListed", [](Test &t) { t.listedName = "another"; }, "out/res.dat", 404},
    {"noChunks", [](Test &t) { t.chunks = {}; }, stitch},
    {"keyRefused", [](Test &t) { t.faults[keyPath] = refusal; }, "no way", 300, keyTitle},
    {"keyEmpty", [](Test &t) { t.faults[keyPath] = answer(200, "{}"); }, "no usable", 400, keyTitle},
    {"keyOfAnotherJob", [](Test &t) { t.key = "another key"; }, "does not decrypt"},
    {"pieceRefusedWhileOthersHang",
     [](Test &t) {
         t.faults = {{"/s/p0", silence()}, {"/s/p1", answer(403, refused)}, {"/s/p2", silence()}};
     },
     "no way", 403},
    {"badLastBlock", [](Test &t) { t.cipher().chop(16); }, "does not decrypt"},
    {"noLengthAndNoEnd",
     [](Test &t) { t.faults["/s/p1"] = Answer{"HTTP/1.1 200 OK\r\n\r\n" + t.cipher()}.paused(100000); }, "be whole"},
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
    {"addressIsALocalFile", [](Test &t) { change(t.chunks, 1, "uri", "file:///etc/passwd"); }, "address"}};

INSTANTIATE_TEST_SUITE_P(Table, FailureTest, testing::ValuesIn(rows), [](const auto &row) { return row.param.name; });

#ifndef Q_OS_WIN
using Torture::DiskCall;
TEST_F(TransferTest, disk_fails_isTheReason)
{
    static std::atomic<DiskCall> failing;
    static std::atomic<int> skipped;
    const auto strike = [](const Torture::DiskUse &use) {
        const bool isMeant = use.call == failing || (use.call == DiskCall::Copy && failing == DiskCall::Read);
        return isMeant && --skipped < 0 ? EIO : 0;
    };
    const std::tuple<const char *, DiskCall, int> table[] = {
        {"upload: look", DiskCall::Open, 0}, {"upload: open", DiskCall::Open, 1}, {"upload: read", DiskCall::Read, 1},
        {"create", DiskCall::Open, 0},       {"write", DiskCall::Write, 2},       {"read back", DiskCall::Read, 0},
        {"sync", DiskCall::Sync, 0},         {"close", DiskCall::Close, 0},       {"rename", DiskCall::Rename, 0}};
    const std::string path = write("f", noise(900000)), reason = std::generic_category().message(EIO);
    list({piece(pieceName(1), noise(900000)), piece(pieceName(2), noise(900001))});
    for (const auto &[name, call, skip] : table) {
        SCOPED_TRACE(name);
        const bool uploads = QByteArray(name).startsWith("upload");
        write("to/res.dat", "old");
        std::tie(failing, skipped) = std::tuple(call, skip);
        Torture::watchDisk(folder.root().toStdString(), strike);
        uploads ? upload(path) : download(wanted());
        const bool completed = uploads ? up.wait() : down.wait();
        Torture::watchDisk({}, nullptr);
        ASSERT_TRUE(completed);
        uploads ? up.expect(400, "File Failed to Upload", path + " could not be read for upload: " + reason)
                : down.expect(400, writeTitle, reason);
        EXPECT_EQ(read("to/res.dat"), "old");
        uploads ? expectUpload(path) : expectDownload(wanted());
        EXPECT_EQ(filesIn("to"), QStringList("res.dat"));
    }
}

TEST_F(TransferTest, cancelDownload_itsFileMoves_isTooLate)
{
    static QSemaphore moves, goOn;
    list({piece(pieceName(1), "new")});
    const auto hold = [](const Torture::DiskUse &use) {
        if (use.call == DiskCall::Rename)
            moves.release(), goOn.acquire();
        return 0;
    };
    Torture::watchDisk(folder.root().toStdString(), hold);
    download(wanted());
    const bool moved = waitForFiles([] { return moves.tryAcquire(); });
    goOn.release();
    EXPECT_FALSE(api->cancelDownload(wanted()));
    Torture::watchDisk({}, nullptr);
    EXPECT_TRUE(moved);
    ASSERT_TRUE(down.wait());
    down.expect(200, "Download Success");
    EXPECT_EQ(read("to/res.dat"), "new");
}
#endif

} // namespace
