// The portal's storage: what goes in comes out, what is not signed or not whole does not, the solver's results.

#include "PortalFixture.h"

#include <QCryptographicHash>

namespace PortalTests {
namespace {

class StorageTest : public PortalTest {
protected:
    S random(int size) const
    {
        S text(static_cast<std::size_t>(size), '\0');
        for (std::size_t i = 0; i < text.size(); ++i)
            text[i] = static_cast<char>((i * i * 31 + i / 7) >> 3);
        return text;
    }

    Reply upload(const S &job, const S &name, const S &plain)
    {
        return send(filled(uploadAddress(job).object(), name, crypt(job, plain)));
    }

    QJsonArray list(const S &way) { return send(request("GET", "job/files/list/" + way, "", token)).array(); }

    /// Fetches every piece, decrypts each, and joins them by the numbers in their names.
    S download(const S &job, const QJsonObject &file)
    {
        std::map<S, S> pieces;
        std::size_t size = 0;
        for (const QJsonValue &piece : file[QLatin1String("downloadRequest")].toArray()) {
            const Reply reply = send(filled(piece.toObject(), "", ""));
            EXPECT_EQ(reply.status, 200) << reply.body;
            size += reply.body.size();
            const S name = s(piece.toObject()[QLatin1String("fileName")]);
            pieces[name.substr(name.size() - 13)] = crypt(job, reply.body, false);
        }
        EXPECT_EQ(qint64(size), file[QLatin1String("fileSize")].toVariant().toLongLong());
        S text;
        for (const auto &item : pieces)
            text += item.second;
        return text;
    }
};

TEST_F(StorageTest, WhatGoesInComesOut)
{
    const S job = newJob();
    StorageOptions options;
    options.shuffle = true;
    int number = 0;
    for (const int size : {0, 1, 15, 16, 17, 70000}) {
        options.upload = StorageOptions::Upload(number % 3);
        options.download = StorageOptions::Download(number % 3);
        options.pieceSize = number % 2 == 0 ? 30001 : 1 << 20; // neither is a whole number of blocks
        portal.setStorage(options);
        const S name = " a \"b\" %41;é" + std::to_string(++number);
        EXPECT_LT(upload(job, name, random(size)).status, 300);
        EXPECT_EQ(portal.plainFile(job, name), random(size));
        ASSERT_EQ(list(job).size(), 1);
        const QJsonObject file = list(job)[0].toObject();
        EXPECT_EQ(s(file[QLatin1String("fileName")]), name);
        EXPECT_EQ(download(job, file), random(size)) << size;
        EXPECT_TRUE(portal.removeFile(job, name));
    }
    portal.addFile(job, "x", random(100));
    options.pieceSize = 7;
    portal.setStorage(options);
    const QJsonObject many = list(job)[0].toObject();
    const QJsonArray pieces = many[QLatin1String("downloadRequest")].toArray();
    EXPECT_EQ(pieces.size(), 15);
    EXPECT_NE(s(pieces[0].toObject()[QLatin1String("fileName")]) + s(pieces[1].toObject()[QLatin1String("fileName")]),
              "x._00001_00015x._00002_00015");
    EXPECT_EQ(download(job, many), random(100));
}

TEST_F(StorageTest, RefusesWhatIsNotSignedOrNotWhole)
{
    const S job = newJob();
    const S other = newJob();
    const S cipher = crypt(job, random(1000)); // 1008 bytes
    const struct {
        int kind; // -1: each
        S what, with;
        int status;
    } table[] = {
        {-1, "\r\nContent-Length", "\r\nAuthorization: x\r\nContent-Length", 400},
        {-1, job, other, 403},
        {-1, "X-Storage-Size: 1008", "X-Storage-Size: 1007", 400},
        {-1, "/storage/", "/storage/x/", 404},
        {-1, "POST ", "DELETE ", 405},
        {0, "name=\"signature\"\r\n\r\n", "name=\"signature\"\r\n\r\n0", 403},
        {0, "name=\"policy\"\r\n\r\n", "name=\"policy\"\r\n\r\n0", 403},
        {0, "filename=\"n\"", "filename=\"a/b\"", 400},
        {0, "filename=\"n\"", "filename=\"..\"", 400},
        {0, "; filename=\"n\"", "", 400},
        {0, "name=\"file\"", "name=\"policy\"", 400},
        {0, "name=\"file\"", "name=file\"", 400},
        {0, "--x y--", "--x y--\r\nmuch more than a line", 400},
        {0, "--x y--", "--x z--", 400},
        {0, "boundary=", "border=", 400},
        {0, "multipart/form-data", "text/plain", 415},
        {2, "/n?", "/..?", 400},
        {2, "X-Storage-File: n", "X-Storage-File: m", 400},
        {2, "?expires=", "?expires=9", 403},
        {2, "application/octet-stream", "text/plain", 403},
        {2, "X-Storage-Signature: ", "X-Storage-Signature: 0", 403},
        {2, "Content-Length: 1008\r\n", "Transfer-Encoding: chunked\r\n", 411},
    };
    StorageOptions options;
    for (const int kind : {0, 2}) {
        options.upload = StorageOptions::Upload(kind);
        portal.setStorage(options);
        const S good = filled(uploadAddress(job).object(), "n", cipher);
        for (const auto &row : table) {
            if (row.kind >= 0 && row.kind != kind)
                continue;
            S bad = replaced(good, row.what, row.with);
            ASSERT_NE(bad, good) << row.what;
            const std::size_t body = bad.size() - bad.find("\r\n\r\n") - 4;
            const std::size_t length = bad.find("Content-Length: ");
            if (length != S::npos)
                bad.replace(length, bad.find("\r\n", length) - length, "Content-Length: " + std::to_string(body));
            const Reply reply = send(bad);
            EXPECT_EQ(reply.status, row.status) << kind << ' ' << row.with << ' ' << reply.body;
            EXPECT_FALSE(reply.text("message").empty());
        }
        EXPECT_FALSE(send(good.substr(0, good.size() - 100), 200).status); // the client gives up
        options.addressLifetime = 0s;
        portal.setStorage(options);
        EXPECT_EQ(send(filled(uploadAddress(job).object(), "n", cipher)).status, 403);
        options.addressLifetime = 60s;
        EXPECT_TRUE(portal.files(job).empty() && portal.files(other).empty());
    }
    portal.setStorage(options);
    portal.addFile(job, "n", random(1000));
    const S piece = filled(list(job)[0].toObject()[QLatin1String("downloadRequest")].toArray()[0].toObject(), "", "");
    EXPECT_EQ(send(replaced(piece, "size=1000", "size=999")).status, 403);
    EXPECT_EQ(send(replaced(piece, "expires=", "expires=9")).status, 403);
    EXPECT_EQ(send(replaced(piece, "Host", "Authorization: x\r\nHost")).status, 400);
    EXPECT_EQ(send(piece).status, 200);
    EXPECT_EQ(send(request("DELETE", "job/files/" + job + "/n", "", token, "")).status, 200);
    EXPECT_EQ(send(piece).status, 404);
}

TEST_F(StorageTest, FaultsStrikeUploadsAndPieces)
{
    const S job = newJob();
    const auto timed = [&](FaultKind kind, const char *path, long bytes, const S &bytesOut) {
        Fault fault;
        fault.kind = kind;
        fault.path = path;
        fault.bytes = bytes;
        fault.rate = 300000;
        portal.inject(fault);
        QElapsedTimer timer;
        timer.start();
        Reply reply = send(bytesOut);
        reply.head += "Took: " + std::to_string(timer.elapsed() >= 200);
        return reply;
    };
    const S cipher = crypt(job, random(100000));
    const S up = filled(uploadAddress(job).object(), "n", cipher);
    EXPECT_TRUE(timed(FaultKind::CutUpload, "storage/form", 50000, up).closed);
    EXPECT_EQ(portal.requests().back().bodySize, 50000U);
    EXPECT_TRUE(timed(FaultKind::CutUpload, "storage/form", 1 << 20, up).closed); // longer than the body
    EXPECT_TRUE(portal.files(job).empty());
    const Reply slow = timed(FaultKind::SlowRead, "storage", 0, up);
    EXPECT_EQ(slow.status, 204);
    EXPECT_NE(slow.head.find("Took: 1"), S::npos);
    const S piece = filled(list(job)[0].toObject()[QLatin1String("downloadRequest")].toArray()[0].toObject(), "", "");
    const Reply trickle = timed(FaultKind::SlowWrite, "storage/piece", 0, piece);
    EXPECT_EQ(trickle.body, cipher);
    EXPECT_NE(trickle.head.find("Took: 1"), S::npos);
    EXPECT_EQ(timed(FaultKind::CutBody, "storage/piece", 12345, piece).body, cipher.substr(0, 12345));
    const Reply zipped = timed(FaultKind::Gzip, "storage/piece", 0, piece);
    EXPECT_NE(zipped.head.find("Content-Encoding: gzip"), S::npos);
    EXPECT_EQ(run("gzip", {QStringLiteral("-dc")}, zipped.body), cipher);
    const Reply open = timed(FaultKind::NoLength, "storage/piece", 5000, piece);
    EXPECT_EQ(open.head.find("Content-Length"), S::npos);
    EXPECT_EQ(open.body, cipher.substr(0, 5000));
    EXPECT_EQ(send(piece).body, cipher);
}

TEST_F(StorageTest, JobsNeedTheirInputs)
{
    for (const char *second : {"right", "missing", "plain"}) {
        const S job = newJob();
        const S main = random(300000);
        EXPECT_LT(upload(job, "b.trninp", main).status, 300);
        if (second == S("right"))
            portal.addFile(job, "a", "more");
        if (second == S("plain"))
            send(filled(uploadAddress(job).object(), "a", "not encrypted"));
        post("job/submit", submission(job));
        const bool fine = second == S("right");
        ASSERT_TRUE(eventually([&] { return portal.jobStatus(job) == (fine ? "FINISHED" : "FAILED"); })) << second;
        const S log = portal.plainFile(job, "sim-2/run.log").value_or("");
        EXPECT_NE(log.find(fine ? "Finished" : "Failed: The input file \"a\""), S::npos) << log;
        const auto hash = [](const S &text) {
            return QCryptographicHash::hash(b(text), QCryptographicHash::Sha256).toHex().toStdString();
        };
        if (fine) {
            EXPECT_EQ(portal.plainFile(job, "sim-2/results.dat"),
                      "sim-2 b.trninp=" + hash(main) + " a=" + hash("more") + "\n" + main + "more");
            EXPECT_EQ(list(job + "/sim-1").size(), 4);
            EXPECT_EQ(download(job, list(job + "/sim-1")[1].toObject()),
                      portal.plainFile(job, "sim-1/rtg/residuals.dat"));
        }
    }
}

} // namespace
} // namespace PortalTests
