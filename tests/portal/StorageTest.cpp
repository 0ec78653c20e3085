// The portal's storage: signed and complete requests work, all others are refused; faults in uploads and pieces.

#include "PortalFixture.h"

#include <QElapsedTimer>
#include <algorithm>

namespace PortalTests {
namespace {

class StorageTest : public PortalTest {
protected:
    static string bytes(int size)
    {
        return QByteArray("no block ends like another one").repeated(size).left(size).toStdString();
    }
    QJsonObject listed(const string &job) const
    {
        return send(request("GET", "job/files/list/" + job, "", token)).array()[0].toObject();
    }
    /// The request for the only piece of a job's only file.
    string piece(const string &job) const { return filled(listed(job).value("downloadRequest")[0].toObject()); }

    static string with(const string &request, const string &headers)
    {
        return replaced(request, "HTTP/1.1\r\n", "HTTP/1.1\r\n" + headers);
    }
    static string header(const Reply &reply, const string &name)
    {
        const std::size_t at = reply.head.find("\r\n" + name + ": ");
        const std::size_t from = at + name.size() + 4;
        return at == string::npos ? "" : reply.head.substr(from, reply.head.find("\r\n", from) - from);
    }
};

TEST_F(StorageTest, request_unsignedOrIncomplete_refused)
{
    const string job = newJob(), other = newJob();
    const string cipher = crypt(job, bytes(1000)); // 1008 bytes
    enum Kind { Form, Raw, Piece };
    const struct {
        std::vector<Kind> kinds;
        string what, with;
        int status;
    } table[] = {
        {{Form, Raw, Piece}, "\r\nContent-Length", "\r\nAuthorization: x\r\nContent-Length", 400},
        {{Form, Raw, Piece}, job, other, 403},
        {{Form, Raw}, "X-Storage-Size: 1008", "X-Storage-Size: 1007", 400},
        {{Form}, "name=\"signature\"\r\n\r\n", "name=\"signature\"\r\n\r\n0", 403},
        {{Form}, "filename=\"n\"", "filename=\"..\"", 400},
        {{Form}, "; filename=\"n\"", "", 400},
        {{Form}, "--x y--", "--x z--", 400},
        {{Form}, "multipart/form-data", "text/plain", 415},
        {{Raw}, "/n?", "/..?", 400},
        {{Raw}, "application/octet-stream", "text/plain", 403},
        {{Raw}, "X-Storage-Signature: ", "X-Storage-Signature: 0", 403},
        {{Raw}, "Content-Length: 1008\r\n", "Transfer-Encoding: chunked\r\n", 411},
        {{Raw, Piece}, "expires=", "expires=9", 403},
        {{Piece}, "size=1000", "size=999", 403},
    };
    StorageOptions options;
    const auto addressed = [&](Kind kind) {
        options.upload = kind == Raw ? StorageOptions::Upload::RawPost : StorageOptions::Upload::Form;
        portal.setStorage(options);
        return kind == Piece ? piece(job) : upload(job, cipher);
    };
    for (const Kind kind : {Form, Raw, Piece}) {
        const string good = addressed(kind);
        for (const auto &row : table) {
            if (std::count(row.kinds.begin(), row.kinds.end(), kind) == 0)
                continue;
            string bad = replaced(good, row.what, row.with);
            ASSERT_NE(bad, good) << row.what;
            const std::size_t body = bad.size() - bad.find("\r\n\r\n") - 4;
            const std::size_t length = bad.find("Content-Length: ");
            if (length != string::npos)
                bad.replace(length, bad.find("\r\n", length) - length, "Content-Length: " + std::to_string(body));
            const Reply reply = send(bad);
            EXPECT_EQ(reply.status, row.status) << kind << ' ' << row.with << ' ' << reply.body;
            EXPECT_FALSE(reply.text("message").empty());
        }
        EXPECT_EQ(send(good.substr(0, good.size() - 2), 200).status, 0); // the client gives up
        options.addressLifetime = 0s;
        EXPECT_EQ(send(addressed(kind)).status, 403);
        options.addressLifetime = 60s;
        EXPECT_EQ(portal.files(job).size() + portal.files(other).size(), kind == Piece ? 1U : 0U);
        const Reply whole = send(good);
        EXPECT_TRUE(kind == Piece ? whole.body == cipher : whole.status / 100 == 2) << kind;
        EXPECT_EQ(portal.plainFile(job, "n"), bytes(1000));
        EXPECT_TRUE(kind == Raw || portal.removeFile(job, "n")); // the raw upload is the file of the pieces
        EXPECT_TRUE(kind != Piece || send(good).status == 404);
    }
}

TEST_F(StorageTest, fault_injectedIntoUploadOrPiece_hasItsEffect)
{
    const string job = newJob();
    const auto injected = [&](FaultKind kind, const char *path, long bytes, const string &bytesOut) {
        Fault fault;
        fault.kind = kind;
        fault.path = path;
        fault.bytes = bytes;
        fault.rate = 300000;
        portal.inject(fault);
        QElapsedTimer timer;
        timer.start();
        Reply reply = send(bytesOut);
        reply.head += "Slow: " + std::to_string(timer.elapsed() >= 200);
        return reply;
    };
    const string cipher = crypt(job, bytes(100000));
    const string up = upload(job, cipher);
    EXPECT_TRUE(injected(FaultKind::CutUpload, "storage/form", 50000, up).closed);
    EXPECT_EQ(portal.requests().back().bodySize, 50000U);
    EXPECT_TRUE(injected(FaultKind::CutUpload, "storage/form", 1 << 20, up).closed); // longer than the body
    EXPECT_TRUE(portal.files(job).empty());
    EXPECT_NE(injected(FaultKind::SlowRead, "storage", 0, up).head.find("Slow: 1"), string::npos);
    const string down = piece(job);
    const struct {
        FaultKind kind;
        long bytes;
        string head, noHead, body;
    } table[] = {{FaultKind::SlowWrite, 0, "Slow: 1", "gzip", cipher},
                 {FaultKind::CutBody, 12345, "Content-Length", "gzip", cipher.substr(0, 12345)},
                 {FaultKind::Gzip, 0, "Content-Encoding: gzip", "Slow: 1", cipher},
                 {FaultKind::NoLength, 5000, "200", "Content-Length", cipher.substr(0, 5000)}};
    for (const auto &row : table) {
        const Reply reply = injected(row.kind, "storage/piece", row.bytes, down);
        EXPECT_NE(reply.head.find(row.head), string::npos) << reply.head;
        EXPECT_EQ(reply.head.find(row.noHead), string::npos) << reply.head;
        EXPECT_EQ(row.kind == FaultKind::Gzip ? run("gzip", {"-dc"}, reply.body) : reply.body, row.body);
    }
    EXPECT_EQ(send(down).body, cipher);
}

TEST_F(StorageTest, piece_rangeAskedFor_answeredAsItsConditionAndFaultSay)
{
    StorageOptions options;
    options.pieceSize = 600; // 608 bytes when encrypted
    portal.setStorage(options);
    const auto none = FaultKind::Delay;
    const string own = "OWN", other = "\"other\"", changed = "CHANGED";
    const struct {
        const char *range;
        string condition;
        FaultKind fault;
        int field; ///< the fault's bytes and status
        int status, first, last;
        bool changed;
    } table[] = {
        {"", "", none, 0, 200, 0, 607, false},
        {"bytes=0-", "", none, 0, 206, 0, 607, false},
        {"bytes=607-", own, none, 0, 206, 607, 607, false},
        {"bytes=100-299", "", none, 0, 206, 100, 299, false},
        {"bytes=100-9999", "", none, 0, 206, 100, 607, false},
        {"bytes=100-", other, none, 0, 200, 0, 607, false},
        {"bytes=608-", own, none, 0, 416, 0, -1, false},
        {"bytes=608-", other, none, 0, 200, 0, 607, false},
        {"bytes=200-100", "", none, 0, 200, 0, 607, false},
        {"bytes=-100", "", none, 0, 200, 0, 607, false},
        {"bytes=1-2,4-5", "", none, 0, 200, 0, 607, false},
        {"bytes=100-", own, FaultKind::IgnoreRange, 0, 200, 0, 607, false},
        {"", "", FaultKind::OtherRange, 0, 206, 0, 607, false},
        {"bytes=100-", other, FaultKind::OtherRange, 50, 206, 50, 607, false},
        {"bytes=100-", "", FaultKind::OtherEtag, 0, 206, 100, 607, true},
        {"bytes=100-", own, FaultKind::OtherEtag, 0, 200, 0, 607, true},
        {"bytes=100-", own, FaultKind::OtherEtag, 206, 206, 100, 607, true},
        {"bytes=100-", changed, FaultKind::OtherEtag, 0, 206, 100, 607, true},
    };
    for (const int size : {600, 1000}) { // sent as it is stored; encrypted anew
        const string job = newJob();
        send(upload(job, crypt(job, bytes(size))));
        const string down = piece(job);
        const Reply whole = send(down);
        ASSERT_EQ(whole.body.size(), 608U);
        const string tag = header(whole, "ETag"), changedTag = "\"changed-" + tag.substr(1);
        for (const auto &row : table) {
            SCOPED_TRACE(string(row.range) + " if " + row.condition + " of " + std::to_string(size));
            const string condition = row.condition == own ? tag : row.condition == changed ? changedTag : row.condition;
            Fault fault;
            fault.path = "storage/piece";
            fault.kind = row.fault;
            fault.bytes = row.field;
            fault.status = row.field;
            portal.inject(fault);
            const Reply reply = send(with(down, (*row.range ? string("Range: ") + row.range + "\r\n" : "") +
                                                    (condition.empty() ? "" : "If-Range: " + condition + "\r\n")));
            const string range = "bytes " + std::to_string(row.first) + '-' + std::to_string(row.last) + "/608";
            EXPECT_EQ(reply.status, row.status);
            EXPECT_EQ(header(reply, "ETag"), row.changed ? changedTag : tag);
            EXPECT_EQ(header(reply, "Accept-Ranges"), "bytes");
            EXPECT_EQ(header(reply, "Content-Range"), row.status == 200   ? ""
                                                      : row.status == 416 ? "bytes */608"
                                                                          : range);
            if (row.status != 416) {
                EXPECT_EQ(reply.body, whole.body.substr(row.first, row.last - row.first + 1));
            }
        }
    }
    options.download = StorageOptions::Download::Post;
    portal.setStorage(options);
    const string job = newJob();
    send(upload(job, crypt(job, bytes(600))));
    const Reply posted = send(with(piece(job), "Range: bytes=5-\r\n")); // a range is of GET only
    EXPECT_EQ(posted.status, 200);
    EXPECT_FALSE(header(posted, "ETag").empty());
}

TEST_F(StorageTest, address_usedUpOrOld_refusedWithItsStatusUntilRenewed)
{
    const string job = newJob();
    const string cipher = crypt(job, bytes(1000));
    send(upload(job, cipher));
    StorageOptions options;
    options.expiredStatus = 404;
    portal.setStorage(options);
    const string unlimited = piece(job);
    const struct {
        StorageOptions::Upload upload;
        StorageOptions::Download download;
        bool up;
        int status;
    } table[] = {
        {StorageOptions::Upload::Form, StorageOptions::Download::Get, true, 401},
        {StorageOptions::Upload::RawPut, StorageOptions::Download::Get, true, 403},
        {StorageOptions::Upload::Form, StorageOptions::Download::Get, false, 410},
        {StorageOptions::Upload::Form, StorageOptions::Download::Post, false, 404},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.status);
        options = {row.upload, row.download};
        options.expiredStatus = row.status;
        const auto address = [&](int uses, std::chrono::seconds lifetime) {
            options.addressUses = uses;
            options.addressLifetime = lifetime;
            portal.setStorage(options);
            return row.up ? upload(job, cipher) : piece(job);
        };
        const string file = address(0, 60s);      // an upload replaces the file that the other addresses are for
        for (int round = 0; round < 2; ++round) { // the second address is as good as the first
            const string limited = address(2, 60s);
            EXPECT_EQ(send(limited).status / 100, 2);
            EXPECT_EQ(send(with(limited, "Range: bytes=100-\r\n")).status / 100, 2);
            EXPECT_EQ(send(with(limited, "Range: bytes=200-\r\n")).status, row.status);
        }
        EXPECT_EQ(send(address(0, 0s)).status, row.status);
        EXPECT_EQ(send(file).status / 100, 2);
    }
    EXPECT_EQ(send(unlimited).status, 404); // replaced
}

TEST_F(StorageTest, fault_withEndAndInformational_clientReceivesExactlyThat)
{
    const string job = newJob();
    send(upload(job, crypt(job, bytes(50000))));
    const string cipher = crypt(job, bytes(50000)), down = piece(job);
    const string up = upload(job, bytes(100000)), list = request("POST", "job/list", "", token);
    const string hint = "HTTP/1.1 103 Early Hints\r\nLink: </hint>; rel=preload\r\n\r\n";
    const string whole = "\r\n\r\n" + cipher, part = "\r\n\r\n" + cipher.substr(0, 5000), full = "full";
    const string notify, end = "unexpected eof", reset = "errno=104";
    const struct {
        FaultKind kind;
        string request;
        int bytes;
        Closing closing;
        std::vector<int> informational;
        string first, last, ending;
    } table[] = {
        {FaultKind::RefuseEarly,
         with(up, "Expect: 100-continue\r\n"),
         0,
         Closing::Usual,
         {},
         "HTTP/1.1 413 ",
         full,
         notify},
        {FaultKind::RefuseEarly, up, 30000, Closing::Notify, {100}, "HTTP/1.1 100 Continue\r\n\r\n", full, notify},
        {FaultKind::RefuseEarly, up, 30000, Closing::End, {}, "HTTP/1.1 413 ", full, end},
        {FaultKind::RefuseEarly, up, 30000, Closing::Reset, {}, "HTTP/1.1 413 ", full, reset},
        {FaultKind::NoLength, down, 0, Closing::Usual, {}, "HTTP/1.1 200 ", whole, notify},
        {FaultKind::NoLength, down, 0, Closing::End, {}, "HTTP/1.1 200 ", whole, end},
        {FaultKind::NoLength, down, 5000, Closing::Usual, {}, "HTTP/1.1 200 ", part, end},
        {FaultKind::NoLength, down, 5000, Closing::Notify, {}, "HTTP/1.1 200 ", part, notify},
        {FaultKind::CutBody, down, 5000, Closing::Reset, {}, "HTTP/1.1 200 ", part, reset},
        {FaultKind::Informational, down, 0, Closing::Notify, {103, 103}, hint + hint + "HTTP/1.1 200 ", whole, notify},
        {FaultKind::Informational, list, 0, Closing::Notify, {}, hint + "HTTP/1.1 200 ", "]", notify},
        {FaultKind::HangUp, list, 0, Closing::Usual, {103}, hint, hint, end},
    };
    for (const auto &row : table) {
        Fault fault;
        fault.kind = row.kind;
        fault.path = "*";
        fault.bytes = row.bytes;
        fault.status = 413;
        fault.body = full;
        fault.closing = row.closing;
        fault.informational = row.informational;
        portal.inject(fault);
        const bool early = row.kind == FaultKind::RefuseEarly;
        const std::size_t size = early ? row.request.find("\r\n\r\n") + 4 + std::size_t(row.bytes) : row.request.size();
        QProcess client; // distinguishes how a connection ends
        client.start("openssl", {"s_client", "-quiet", "-verify_quiet", "-CAfile", toQString(portal.caFile()),
                                 "-connect", toQString(portal.host())});
        client.write(toBytes(row.request.substr(0, size)));
        client.closeWriteChannel();
        ASSERT_TRUE(client.waitForFinished(10000));
        const string received = client.readAllStandardOutput().toStdString();
        const string error = client.readAllStandardError().toStdString();
        SCOPED_TRACE(received.substr(0, 300) + error);
        EXPECT_EQ(received.compare(0, row.first.size(), row.first), 0);
        EXPECT_TRUE(received.size() >= row.last.size() &&
                    received.compare(received.size() - row.last.size(), string::npos, row.last) == 0);
        EXPECT_EQ(received.find("Content-Length") == string::npos,
                  row.kind == FaultKind::NoLength || row.kind == FaultKind::HangUp);
        for (const string &ending : {end, reset})
            EXPECT_EQ(error.find(ending) != string::npos, row.ending == ending);
        EXPECT_TRUE(!early || portal.requests().back().bodySize == std::size_t(row.bytes));
    }
}

TEST_F(StorageTest, upload_refusedOrNotRead_restIsSkippedOrStays)
{
    const string up = upload(newJob(), bytes(24 << 20)); // more than the system buffers
    const struct {
        FaultKind kind;
        Closing closing;
        bool read;
    } table[] = {{FaultKind::RefuseEarly, Closing::Skip, true},
                 {FaultKind::RefuseEarly, Closing::Hold, false},
                 {FaultKind::StopReading, Closing::Usual, false}};
    for (const auto &row : table) {
        SCOPED_TRACE(int(row.closing));
        Fault fault;
        fault.kind = row.kind;
        fault.path = "storage";
        fault.bytes = 100000;
        fault.status = 507;
        fault.body = "full";
        fault.closing = row.closing;
        portal.inject(fault);
        QSslSocket socket;
        socket.connectToHostEncrypted("127.0.0.1", portal.port());
        ASSERT_TRUE(socket.waitForEncrypted());
        const std::size_t sent = up.find("\r\n\r\n") + 4 + 100000;
        socket.write(toBytes(up.substr(0, sent)));
        QByteArray received;
        const auto receives = [&](const char *text, int patience) {
            for (QDeadlineTimer deadline(patience); !received.contains(text) && !deadline.hasExpired();) {
                socket.waitForReadyRead(int(deadline.remainingTime()));
                received += socket.readAll();
            }
            return received.contains(text);
        };
        EXPECT_TRUE(row.kind == FaultKind::StopReading || receives("HTTP/1.1 507", 5000));
        socket.write(toBytes(up.substr(sent) + request("POST", "job/load", R"({"jobId":"job-wing0001"})", token)));
        EXPECT_EQ(receives("HTTP/1.1 200", row.read ? 10000 : 700), row.read);
        EXPECT_EQ(socket.encryptedBytesToWrite() + socket.bytesToWrite() == 0, row.read);
        EXPECT_EQ(socket.state(), QAbstractSocket::ConnectedState);
        socket.abort();
    }
    for (const SeenRequest &seen : portal.requests())
        EXPECT_TRUE(seen.target.find("/storage/") == string::npos || seen.bodySize == 100000) << seen.bodySize;
}

} // namespace
} // namespace PortalTests
