// Transfers that break and go on: what the storage answers to each try, and what becomes of the file.

#include "transfer/TransferFixture.h"

#include "storage/Sink.h"
#include "storage/WorkingFile.h"

namespace {

constexpr int retries = 2;
constexpr auto etag = "\"a\"";

/// What a path answers to one request; `bytes` is what is stored there.
using Reply = std::function<Answer(const ReceivedRequest &request, const QByteArray &bytes)>;
using Replies = QList<Reply>;

QByteArray tagged(const QByteArray &tag) { return tag.isEmpty() ? QByteArray() : "ETag: " + tag + "\r\n"; }

Reply always(const Answer &same)
{
    return [same](const auto &, const auto &) { return same; };
}
Reply status(int code) { return always(answer(code)); }
/// All of the file.
Reply whole(const QByteArray &tag = etag)
{
    return [tag](const auto &, const QByteArray &bytes) { return answer(200, bytes, "x/y", tagged(tag)); };
}
/// Of another file with the same length.
Answer another(const ReceivedRequest &, const QByteArray &bytes)
{
    return answer(200, QByteArray(bytes.size(), 'x'), "x/y", tagged("\"b\""));
}
/// What an answer holds but its last `missing` bytes; then the connection closes, or nothing more comes.
Reply cut(const Reply &reply, int missing, bool stalls = false)
{
    return [=](const ReceivedRequest &request, const QByteArray &bytes) {
        const Answer full = reply(request, bytes);
        const int end = full.bytes.size() - missing;
        return stalls ? full.paused(end) : full.cut(end);
    };
}
/// From `shift` bytes behind what was asked for, with a range that says `total` (%1 is the real one).
Reply rest(const QByteArray &tag = etag, int shift = 0, const char *total = "%1")
{
    return [=](const ReceivedRequest &request, const QByteArray &bytes) {
        const int from = request.header("Range").mid(6).chopped(1).toInt() + shift; // bytes=FROM-
        const QString range = QString("bytes %1-%2/").arg(from).arg(bytes.size() - 1) +
                              QString(total).replace("%1", QString::number(bytes.size()));
        return answer(206, bytes.mid(from), "x/y", tagged(tag) + "Content-Range: " + range.toLatin1() + "\r\n");
    };
}
struct RetryTest : TransferTest {
    RetryTest()
    {
        loopback.server.setHandler([this](const ReceivedRequest &request) {
            Replies &left = script[request.target];
            return left.isEmpty() ? serve(request) : left.takeFirst()(request, stored.value(request.target));
        });
        setRetries(retries);
    }
    void setRetries(int count, int stallTimeout = 0)
    {
        options.transferRetries = count;
        options.stallTimeout = stallTimeout;
        api->setClientOptions(options);
        partsOf(*api).transfers.setFirstRetryPause(1);
    }

    QMap<QString, Replies> script; ///< by the target, what its next requests get
};

TEST_F(RetryTest, piece_breaks_goesOnOrStartsAgain)
{
    constexpr int late = 100000, early = 650000; // bytes that are missing: some had been written, none had
    constexpr auto cutText = "before its answer was complete";
    struct Row {
        const char *name;
        Replies replies;
        QByteArray ranged; ///< of each request: whether it asked for a part
        int code = 200;
        const char *message = "";
        int listings = 0;
    };
    const Row rows[] = {
        {"the rest, late", {cut(whole(), late), rest()}, "-r"},
        {"the rest, early", {cut(whole(), early), rest()}, "-r"},
        {"the last block", {cut(whole(), 16), rest()}, "-r"},
        {"within a block", {cut(whole(), late + 5), rest()}, "-r"},
        {"twice", {cut(whole(), early), cut(rest(), late), rest()}, "-rr"},
        {"nothing came", {always(hangUp()), whole()}, "--"},
        {"no ETag", {cut(whole({}), late), whole()}, "--"},
        {"a weak ETag", {cut(whole("W/\"a\""), late), whole()}, "--"},
        {"ranges ignored", {cut(whole(), late), whole()}, "-r"},
        {"another file, late", {cut(another, late), whole()}, "-r"},
        {"another file, early", {cut(another, early), whole()}, "-r"},
        {"another file, and it breaks", {cut(another, late), cut(whole(), early), rest()}, "-rr"},
        {"another file, empty", {cut(whole(), late), always(answer(200))}, "-r", 400, "empty piece"},
        {"another range", {cut(whole(), late), rest(etag, -16), whole()}, "-r-"},
        {"a range without its length", {cut(whole(), late), rest(etag, 0, "*"), whole()}, "-r-"},
        {"a longer file", {cut(whole(), late), rest(etag, 0, "9%1"), whole()}, "-r-"},
        {"a range of another file", {cut(whole(), late), rest("\"b\""), whole()}, "-r-"},
        {"no such range", {cut(whole(), 700015), status(416), whole()}, "-r-"}, // behind the first byte
        {"refused, then another address", {cut(whole(), late), status(403), rest()}, "-rr", 200, "", 1},
        {"gone", {status(410), status(404), whole()}, "---", 200, "", 2},
        {"busy", {status(503), status(429), whole()}, "---"},
        {"busy later", {cut(whole(), late), status(408), rest()}, "-rr"},
        {"stalled", {cut(whole(), late, true), rest()}, "-r"},
        {"breaks each time", {cut(whole(), 3), cut(rest(), 2), cut(rest(), 1)}, "-rr", 400, cutText},
        {"busy each time", {status(500), status(500), status(500)}, "---", 500, "status 500"},
        {"refused for good", {status(400)}, "-", 400, "status 400"},
        {"no such thing", {status(416)}, "-", 416, "status 416"}, // fails at once: the other request may come late
    };
    for (const auto &[name, replies, ranged, code, message, listings] : rows) {
        SCOPED_TRACE(name);
        setRetries(retries, QByteArray(name).startsWith("stalled"));
        stored.clear();
        listing = {};
        const QByteArray contents[] = {noise(700000), noise(700001), noise(700002)};
        QJsonArray chunks;
        for (int number = 1; number <= 3; ++number)
            chunks.append(piece(pieceName(number), contents[number - 1]));
        list(chunks);
        // The first piece goes straight into the joined file, the last one into a file of its own.
        for (const char *path : {"/s/p0", "/s/p2"})
            script[path] = replies;
        const int before = loopback.server.requests().size();
        const qint64 listed = seen(listPath);
        partsOf(*api).grants.forget();
        expectDownload(wanted(), code, message);
        EXPECT_TRUE(code >= 300 || read("to/res.dat") == contents[0] + contents[1] + contents[2]) << "a wrong file";
        bool asExpected = false;
        for (const char *path : {"/s/p0", "/s/p2"}) {
            QByteArray seenRanges;
            for (const ReceivedRequest &request : loopback.server.requests().mid(before)) {
                if (request.target != path)
                    continue;
                const bool isPart = !request.header("Range").isNull();
                seenRanges += isPart ? 'r' : '-';
                EXPECT_EQ(request.header("If-Range").isNull(), !isPart);
            }
            asExpected = asExpected || seenRanges == ranged;
            EXPECT_TRUE(seenRanges == ranged || code >= 300) << seenRanges.toStdString();
        }
        EXPECT_TRUE(asExpected) << "one of the pieces failed by itself, not as its neighbour did";
        const qint64 fresh = seen(listPath) - listed - 1; // of the two pieces, which may share them
        EXPECT_TRUE(fresh >= listings && fresh <= 2 * listings) << fresh;
        QFile::remove(qt("to/res.dat"));
    }
}

TEST_F(RetryTest, upload_breaks_startsAgain)
{
    const Reply taken = status(201), none = always(hangUp()), hung = always(silence());
    struct Row {
        const char *name, *path; ///< what is answered so
        Replies replies;
        int code = 201;
        const char *message = "";
        int sent = 1; ///< bodies
        int addresses = 1;
    };
    const Row rows[] = {
        {"not answered", "/s/up", {none, status(503), taken}, 201, "", 3},
        {"stalled", "/s/up", {hung, taken}, 201, "", 2},
        {"answer cut", "/s/up", {cut(status(200), 3), taken}, 201, "", 2},
        {"busy", "/s/up", {status(429), status(408), taken}, 201, "", 3},
        {"refused, then another address", "/s/up", {status(403), taken}, 201, "", 2, 2},
        {"gone, then another address", "/s/up", {status(410), status(401), taken}, 201, "", 3, 3},
        {"too large", "/s/up", {status(413)}, 413, "The storage answered with the status 413."},
        {"busy each time", "/s/up", {status(507), status(507), status(507)}, 507, "status 507", 3},
        {"stalled each time", "/s/up", {hung, hung, hung}, 400, "Nothing was sent to or received from", 3},
        {"no key at first", keyPath, {none, status(500), status(200)}, 400, "usable", 0, 0},
        {"a key at last", keyPath, {none}},
        {"no key", keyPath, {status(403)}, 403, "", 0, 0},
        {"no address at first", addressPath, {status(502), none}, 201, "", 1, 3},
        {"no address", addressPath, {status(404)}, 404, "", 0, 1},
        {"never an address", addressPath, {status(503), status(503), status(503)}, 503, "", 0, 3}};
    const QByteArray content = noise(400000);
    const std::string path = write("f", content);
    for (const auto &[name, answered, replies, code, message, sent, addresses] : rows) {
        SCOPED_TRACE(name);
        setRetries(retries, QByteArray(name).startsWith("stalled"));
        partsOf(*api).grants.forget();
        script = {{"/s/up", {taken}}};
        script[answered] = replies;
        const std::tuple asked(seen("/s/up") + sent, seen(addressPath) + addresses);
        uploadAndWait(path);
        up.expect(code, code < 300 ? "" : up.error.errorTitle, message);
        EXPECT_EQ(std::tuple(seen("/s/up"), seen(addressPath)), asked);
        EXPECT_TRUE(code >= 300 || crypt(loopback.server.requests().last().body, false) == content) << "a wrong file";
    }
    const Reply changing = [this](const auto &, const auto &) {
        write("f", noise(5000));
        return answer(503);
    };
    script = {{"/s/up", {changing, taken}}};
    uploadAndWait(path);
    EXPECT_TRUE(crypt(loopback.server.requests().last().body, false) == noise(5000)) << "not looked at anew";
    // In the midst of a body. The address has grown too old for each try, so that the second one is seen to come.
    partsOf(*api).grants.setClock([this] { return now += 3600000; });
    const auto until = [this](const Interruption &interruption) {
        return [=](const ReceivedRequest &request, const auto &) {
            loopback.server.interrupt("/s/up", interruption);
            return serve(request);
        };
    };
    script = {{addressPath, {until({3000000, {}, Interruption::Resets}), until({1 << 30, {}})}}};
    write("f", noise(6000000));
    expectUpload(path);
}

// What a piece wrote into a joined file is taken back, and nothing before it.
TEST_F(RetryTest, sink_startsAgainBehindOtherPieces_leavesThemAlone)
{
    const QByteArray content = noise(2000000), cipher = crypt(content, true);
    const auto file = std::make_shared<WorkingFile>(folder.root(), "x");
    ASSERT_TRUE(file->open() && file->write("before", 6));
    QThreadPool pool;
    const auto sink = std::make_shared<Sink>(file, key);
    for (const int size : {0, 5, 600000, 1000000, static_cast<int>(cipher.size())}) {
        sink->restart();
        sink->begin(&pool, [] {});
        for (int at = 0; at < size; at += 16384) {
            const int part = std::min(16384, size - at);
            while (sink->put(cipher.constData() + at, std::size_t(part)) == Sink::State::Full)
                pool.waitForDone();
        }
        EXPECT_EQ(sink->received(), size);
        if (size == 1000000)
            pool.waitForDone(); // written, as far as it can be
        sink->detach();
    }
    EXPECT_TRUE(sink->finish()) << sink->problem().toStdString();
    EXPECT_TRUE(read("UNCONFIRMED_DOWNLOAD.x.VELMORA") == "before" + content);
    file->remove();
}

TEST_F(RetryTest, download_keyOrListingFails_isAskedForAgainUnlessRefused)
{
    const Reply ok = [this](const ReceivedRequest &request, const auto &) { return serve(request); };
    const Reply busy = status(503), refused = status(403), gone = status(404);
    const std::tuple<Replies, Replies, Replies, int> rows[] = {
        // of the listing, the key, the piece
        {{busy, ok}, {ok}, {ok}, 200},      {{busy, busy, busy}, {}, {}, 503}, {{refused}, {}, {}, 403},
        {{ok}, {busy, ok}, {ok}, 200},      {{ok}, {refused}, {}, 403},        {{ok, busy, ok}, {ok}, {gone, ok}, 200},
        {{ok, refused}, {ok}, {gone}, 403},
    };
    list({piece(pieceName(1), noise(100))});
    for (const auto &[listings, keys, pieces, code] : rows) {
        script = {{listPath, listings}, {keyPath, keys}, {"/s/p0", pieces}};
        const qint64 before = seen(listPath) + seen(keyPath) + seen("/s/p0");
        partsOf(*api).grants.forget();
        downloadAndWait(wanted());
        EXPECT_EQ(down.error.errorCode, code) << down.error.errorMessage;
        EXPECT_EQ(seen(listPath) + seen(keyPath) + seen("/s/p0") - before,
                  listings.size() + keys.size() + pieces.size());
    }
}

TEST_F(RetryTest, sink_withoutAUsableKey_writesNothing)
{
    QThreadPool pool;
    const QByteArray cipher = crypt("content", true);
    for (const QByteArray &bad : {QByteArray(), QByteArray(33, 'k'), QByteArray("another")}) {
        const auto file = std::make_shared<WorkingFile>(folder.root(), "x");
        const auto sink = std::make_shared<Sink>(file, bad);
        sink->begin(&pool, {});
        EXPECT_EQ(sink->put(cipher.constData(), std::size_t(cipher.size())), Sink::State::Taken);
        EXPECT_FALSE(sink->finish());
        EXPECT_TRUE(sink->problem().contains(bad.size() == 7 ? "does not decrypt" : "could not be run"));
        EXPECT_EQ(read("UNCONFIRMED_DOWNLOAD.x.VELMORA"), "");
        EXPECT_FALSE(sink->isUnwritable());
    }
}

// Who leaves the caches, whatever the options. Each action is followed by an upload and a download of a hidden file.
TEST_F(RetryTest, grants_refusedOutdatedOrOfAnotherUser_areAskedForAnew)
{
    setRetries(0);
    const auto hidden = "sim/rtg/res.dat";
    const std::string path = write("f", noise(10)), same = write("res.dat", noise(10));
    list({piece(pieceName(1), noise(100))}, hidden);
    const auto get = [&] { downloadAndWait(wanted("to/x", hidden)); };
    const auto remove = [&](const char *name) {
        bool done = false;
        api->deleteFile({"J1", "", name}, [&done](const ApiError &, const DeleteFileDetails &) { done = true; });
        ASSERT_TRUE(EVENTUALLY(done));
    };
    const auto listAll = [&](bool all) {
        int files = -1;
        api->getJobFileList("J1", all, [&](auto &&, auto &&listed) { files = int(listed.size()); });
        ASSERT_TRUE(waitUntil([&] { return files == all; })) << files;
    };
    const auto getDuringUpload = [&] {
        script["/s/up"] = {always(answer(204).paused())};
        upload(same);
        ASSERT_TRUE(EVENTUALLY(loopback.server.pausing() == 1));
        get();
        loopback.server.resume();
        ASSERT_TRUE(up.wait());
    };
    const std::tuple<const char *, std::function<void()>, int, int, int> rows[] = {
        {"at first", [] {}, 1, 1, 1},
        {"nothing", [] {}, 0, 0, 0},
        {"an upload is refused", [&] { script["/s/up"] = {status(403)}, uploadAndWait(path); }, 0, 1, 0},
        {"an upload is too large", [&] { script["/s/up"] = {status(413)}, uploadAndWait(path); }, 0, 0, 0},
        {"a piece is refused", [&] { script["/s/p0"] = {status(404)}, get(); }, 0, 0, 1},
        {"a piece cannot be had", [&] { script["/s/p0"] = {status(500)}, get(); }, 0, 0, 0},
        {"the file is uploaded", [&] { uploadAndWait(same); }, 0, 0, 1},
        {"the file is uploaded, and had in between", getDuringUpload, 0, 0, 1},
        {"the file is not uploaded", [&] { script["/s/up"] = {status(500)}, uploadAndWait(same); }, 0, 0, 1},
        {"another file is uploaded", [&] { uploadAndWait(path); }, 0, 0, 0},
        {"the file is deleted", [&] { remove(hidden); }, 0, 0, 1},
        {"another file is deleted", [&] { remove("sim/rtg/res"); }, 0, 0, 0},
        {"the clock is set back", [&] { now -= 1; }, 0, 1, 1},
        {"time passes", [&] { now += 1800000; }, 0, 0, 0},
        {"more time passes", [&] { now += 1; }, 0, 1, 1},
        {"the files are listed without hidden ones", [&] { listAll(false); }, 0, 0, 0},
        {"they are, late", [&] { now += 1800001, listAll(false); }, 0, 1, 0},
        {"the user signs in again", [&] { logIn("a@b"); }, 0, 0, 0},
        {"another user signs in", [&] { logIn("b@c"); }, 1, 1, 1},
        {"the user signs out, and in", [&] { api->clearActiveAccount(), logIn("b@c"); }, 1, 1, 1}};
    for (const auto &[name, act, keys, addresses, listings] : rows) {
        SCOPED_TRACE(name);
        act();
        const std::tuple asked(seen(keyPath) + keys, seen(addressPath) + addresses, seen(listPath) + listings);
        expectUpload(path);
        get();
        down.expect(200, "Download Success");
        EXPECT_EQ(std::tuple(seen(keyPath), seen(addressPath), seen(listPath)), asked);
    }
    // What was under way for the last user is neither shared nor kept.
    api->clearActiveAccount();
    logIn("c@d");
    const qint64 before = seen(keyPath);
    script[keyPath] = {always(silence())};
    upload(path);
    ASSERT_TRUE(EVENTUALLY(loopback.server.pausing() == 1));
    logIn("d@e");
    upload(path);
    EXPECT_TRUE(up.wait(1));
    EXPECT_EQ(seen(keyPath), before + 2);
}

TEST_F(RetryTest, piece_itsTurnComesLate_takesItsAddressFromAFreshListing)
{
    enum Listing { Same, OfAnotherFile, WithoutThePiece };
    for (const Listing fresh : {Same, OfAnotherFile, WithoutThePiece}) {
        SCOPED_TRACE(fresh);
        QByteArray whole;
        QJsonArray chunks;
        stored.clear();
        for (int number = 0; number < 8; ++number) { // six are received at a time
            chunks.append(piece(pieceName(number), noise(1000 + number)));
            whole += noise(1000 + number);
            const QString path = QStringLiteral("/s/p%1").arg(number);
            faults[path] = answer(200, stored[path]);
            if (number < 6)
                script[path] = {always(faults[path].paused(100))};
        }
        listing = {};
        list(chunks);
        const qint64 before = seen(listPath), seventh = seen("/s/p6");
        partsOf(*api).grants.forget();
        download(wanted());
        ASSERT_TRUE(EVENTUALLY(loopback.server.pausing() == 6));
        settle();
        EXPECT_EQ(seen("/s/p6"), seventh) << "six at a time";
        for (int number = 6; number < 8; ++number) {
            change(chunks, number, "uri", url(QStringLiteral("/s/p%1?fresh").arg(number)));
            if (fresh == WithoutThePiece)
                change(chunks, number, "fileName", pieceName(20 + number));
        }
        listing = {};
        list(chunks);
        if (fresh == OfAnotherFile)
            change(listing, 0, "fileHash", "another");
        now += 1800001;
        loopback.server.resume();
        ASSERT_TRUE(down.wait());
        EXPECT_EQ(seen(listPath) - before, 2);
        if (fresh != Same) {
            down.expect(400, "Unable to download file", "was changed in the cloud");
            continue;
        }
        down.expect(200, "Download Success");
        EXPECT_TRUE(read("to/res.dat") == whole);
        EXPECT_EQ(seen("/s/p6?fresh") + seen("/s/p7?fresh"), 2);
    }
    // What waits in the queue of its server, behind others.
    options.connectionsPerHost = 1;
    setRetries(retries);
    stored.clear();
    faults.clear();
    listing = {};
    partsOf(*api).grants.forget();
    list({piece(pieceName(1), noise(3000000))});
    list({piece(pieceName(1), noise(100))}, "another");
    script["/s/p0"] = {[](const auto &, const QByteArray &bytes) { return answer(200, bytes).paused(2000000); }};
    const qint64 before = seen(listPath);
    FileDownloadDetails large = wanted();
    large.cloudFileDetails.fileSize = 3000000;
    download(large);
    ASSERT_TRUE(EVENTUALLY(down.progress > 1000000));
    now += 1800000 - 20; // 20 ms are left, and the first one, which stops, keeps its turn for longer
    Transfer<FileDownloadDetails> second;
    api->downloadFile(wanted("to/second", "another"), second.progressed(), second.completed());
    now += 21;
    ASSERT_TRUE(second.wait());
    loopback.server.resume();
    ASSERT_TRUE(down.wait());
    second.expect(200, "Download Success");
    EXPECT_EQ(seen(listPath) - before, 2);
}

} // namespace
