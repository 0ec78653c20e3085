// The portal's storage: signed and complete requests work, all others are refused; faults in uploads and pieces.

#include "PortalFixture.h"

#include "support/TestFolder.h"

namespace PortalTests {
namespace {

struct StorageTest : PortalTest {
    static string bytes(int size) { return noise(size).toStdString(); }
    /// The request for the only piece of a job's only file.
    string piece(const string &job) const
    {
        const QJsonValue file = send(request("GET", "job/files/list/" + job, "", token)).array()[0];
        return filled(file["downloadRequest"][0].toObject());
    }
    /// For the next request of that path. What refuses answers 413 and "full"; what is slow has 100 kB a second.
    void inject(const char *path, FaultKind kind, long long bytes, Closing closing = Closing::Usual,
                const std::vector<int> &informational = {}, int status = 413)
    {
        Fault fault;
        fault.path = path;
        fault.kind = kind;
        fault.status = status;
        fault.bytes = bytes;
        fault.body = "full";
        fault.rate = 100000;
        fault.closing = closing;
        fault.informational = informational;
        fault.delay = kind == FaultKind::Delay ? 500ms : 0ms;
        portal.inject(fault);
    }
    static string with(const string &request, const string &headers)
    {
        return replaced(request, "HTTP/1.1\r\n", "HTTP/1.1\r\n" + headers);
    }
    static string header(const Reply &reply, const string &name)
    {
        return ReceivedRequest{0, {}, {}, toBytes(reply.head), {}}.header(toBytes(name)).toStdString();
    }
};

TEST_F(StorageTest, request_unsignedOrIncomplete_refused)
{
    const string job = newJob(), other = newJob(), cipher = crypt(job, bytes(1000)); // 1008 bytes
    enum Kind { Form, Raw, Piece };
    const std::tuple<std::vector<Kind>, string, string, int> table[] = {
        // of which requests, what is replaced, by what, the refusal's status
        {{Form, Raw, Piece}, "\r\nContent-Length", "\r\nAuthorization: x\r\nContent-Length", 400},
        {{Form, Raw, Piece}, job, other, 403},
        {{Form, Raw}, "X-Storage-Size: 1008", "X-Storage-Size: 1007", 400},
        {{Form}, "?size=1008", "?size=1007", 400},
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
        {{Piece}, "size=1000", "size=999", 403}};
    const auto addressed = [&](Kind kind) {
        portal.setStorage({kind == Raw ? StorageOptions::Upload::RawPost : StorageOptions::Upload::Form});
        return kind == Piece ? piece(job) : upload(job, cipher);
    };
    for (const Kind kind : {Form, Raw, Piece}) {
        const string good = addressed(kind);
        for (const auto &[kinds, what, with, status] : table) {
            if (std::count(kinds.begin(), kinds.end(), kind) == 0)
                continue;
            string bad = replaced(good, what, with);
            ASSERT_NE(bad, good) << what;
            const std::size_t body = bad.size() - bad.find("\r\n\r\n") - 4, length = bad.find("Content-Length: ");
            if (length != string::npos)
                bad.replace(length, bad.find("\r\n", length) - length, "Content-Length: " + std::to_string(body));
            const Reply reply = send(bad);
            EXPECT_EQ(reply.status, status) << kind << ' ' << with << ' ' << reply.body;
            EXPECT_FALSE(reply.text("message").empty());
        }
        EXPECT_EQ(send(good.substr(0, good.size() - 2), 200).status, 0); // the client gives up
        EXPECT_EQ(portal.files(job).size() + portal.files(other).size(), kind == Piece ? 1U : 0U);
        const Reply whole = send(good);
        EXPECT_TRUE(kind == Piece ? whole.body == cipher : whole.status / 100 == 2) << kind;
        EXPECT_EQ(portal.plainFile(job, "n"), bytes(1000));
        EXPECT_TRUE(kind == Raw || portal.removeFile(job, "n")); // the raw upload is the file of the pieces
        EXPECT_TRUE(kind != Piece || send(good).status == 404);
    }
}

TEST_F(StorageTest, piece_rangeAskedFor_answeredAsItsConditionAndFaultSay)
{
    portal.setStorage({{}, {}, 600});           // 608 bytes when encrypted
    constexpr auto none = FaultKind::SlowWrite; // no slower
    const string own = "OWN", other = "\"other\"", changed = "CHANGED";
    const std::tuple<string, string, FaultKind, int, int, int, int, bool> table[] = {
        // range, condition, fault, its bytes or status; status, first and last byte, whether the tag is another
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
        {"bytes=100-", changed, FaultKind::OtherEtag, 0, 206, 100, 607, true}};
    for (const int size : {600, 1000}) { // sent as it is stored; encrypted anew
        const string job = newJob();
        send(upload(job, crypt(job, bytes(size))));
        const string down = piece(job);
        const Reply whole = send(down);
        ASSERT_EQ(whole.body.size(), 608U);
        const string tag = header(whole, "ETag"), changedTag = "\"changed-" + tag.substr(1);
        for (const auto &[range, condition, kind, field, status, first, last, isChanged] : table) {
            SCOPED_TRACE(range + " if " + condition + " of " + std::to_string(size));
            inject("storage/piece", kind, field, Closing::Usual, {}, field);
            const string sent = replaced(replaced(condition, own, tag), changed, changedTag);
            const Reply reply = send(with(down, (range.empty() ? "" : "Range: " + range + "\r\n") +
                                                    (sent.empty() ? "" : "If-Range: " + sent + "\r\n")));
            const string part = std::to_string(first) + '-' + std::to_string(last);
            EXPECT_EQ(reply.status, status);
            EXPECT_EQ(header(reply, "ETag"), isChanged ? changedTag : tag);
            EXPECT_EQ(header(reply, "Accept-Ranges"), "bytes");
            EXPECT_EQ(header(reply, "Content-Range"), status == 200 ? "" : "bytes " + (last < 0 ? "*" : part) + "/608");
            EXPECT_TRUE(status == 416 || reply.body == whole.body.substr(first, last - first + 1)) << reply.body.size();
        }
    }
    portal.setStorage({{}, StorageOptions::Download::Post, 600});
    const string job = newJob();
    send(upload(job, crypt(job, bytes(600))));
    const Reply posted = send(with(piece(job), "Range: bytes=5-\r\n")); // a range is of GET only
    EXPECT_EQ(posted.status, 200);
    EXPECT_FALSE(header(posted, "ETag").empty());
}

TEST_F(StorageTest, address_usedUpOrOld_refusedWithItsStatusUntilRenewed)
{
    const string job = newJob(), cipher = crypt(job, bytes(1000));
    send(upload(job, cipher));
    StorageOptions options;
    options.expiredStatus = 404;
    portal.setStorage(options);
    const string unlimited = piece(job);
    const std::tuple<StorageOptions::Upload, StorageOptions::Download, bool, int> table[] = {
        {StorageOptions::Upload::Form, StorageOptions::Download::Get, true, 401},
        {StorageOptions::Upload::RawPut, StorageOptions::Download::Get, true, 403},
        {StorageOptions::Upload::Form, StorageOptions::Download::Get, false, 410},
        {StorageOptions::Upload::Form, StorageOptions::Download::Post, false, 404}};
    for (const auto &[uploadForm, downloadForm, up, status] : table) {
        SCOPED_TRACE(status);
        options = {uploadForm, downloadForm};
        options.expiredStatus = status;
        const auto address = [&, isUp = up](int uses, std::chrono::seconds lifetime) {
            options.addressUses = uses;
            options.addressLifetime = lifetime;
            portal.setStorage(options);
            return isUp ? upload(job, cipher) : piece(job);
        };
        const string file = address(0, 60s);      // an upload replaces the file that the other addresses are for
        for (int round = 0; round < 2; ++round) { // the second address is as good as the first
            const string limited = address(2, 60s);
            EXPECT_EQ(send(limited).status / 100, 2);
            EXPECT_EQ(send(with(limited, "Range: bytes=100-\r\n")).status / 100, 2);
            EXPECT_EQ(send(with(limited, "Range: bytes=200-\r\n")).status, status);
        }
        EXPECT_EQ(send(address(0, 0s)).status, status);
        EXPECT_EQ(send(file).status / 100, 2);
    }
    EXPECT_EQ(send(unlimited).status, 404); // replaced
}

TEST_F(StorageTest, fault_anyKindAndEnd_clientReceivesExactlyThat)
{
    const string job = newJob(), other = newJob();
    send(upload(job, crypt(job, bytes(50000))));
    const string cipher = crypt(job, bytes(50000)), down = piece(job), list = request("POST", "job/list", "", token);
    const string up = upload(other, crypt(other, bytes(100000)));
    const std::size_t upSize = up.size() - up.find("\r\n\r\n") - 4;
    const auto submit = [this] { return request("POST", "job/submit", submission(newJob()), token); };
    const std::set processed = {FaultKind::Delay, FaultKind::CutHead, FaultKind::CutBody, FaultKind::ResetAfter,
                                FaultKind::Drip};
    const string ok = "HTTP/1.1 200 ", busy = "HTTP/1.1 413 ", more = "HTTP/1.1 100 Continue\r\n\r\n";
    const string hint = "HTTP/1.1 103 Early Hints\r\nLink: </hint>; rel=preload\r\n\r\n";
    const string whole = "\r\n\r\n" + cipher, part = "\r\n\r\n" + cipher.substr(0, 5000), full = "full";
    const string notify, end = "unexpected eof", reset = "errno=104"; // how the connection ends
    const std::tuple<FaultKind, string, int, Closing, std::vector<int>, string, string, string> table[] = {
        // fault, request, bytes, end, informational statuses; how what is received begins and ends, the end
        {FaultKind::CutUpload, up, 50000, Closing::Usual, {}, "", "", reset},
        {FaultKind::CutUpload, up, 1 << 20, Closing::Usual, {}, "", "", reset}, // longer than the body
        {FaultKind::RefuseEarly, with(up, "Expect: 100-continue\r\n"), 0, Closing::Usual, {}, busy, full, notify},
        {FaultKind::RefuseEarly, up, 30000, Closing::Notify, {100}, more, full, notify},
        {FaultKind::RefuseEarly, up, 30000, Closing::End, {}, busy, full, end},
        {FaultKind::RefuseEarly, up, 30000, Closing::Reset, {}, busy, full, reset},
        {FaultKind::NoLength, down, 0, Closing::Usual, {}, ok, whole, notify},
        {FaultKind::NoLength, down, 0, Closing::End, {}, ok, whole, end},
        {FaultKind::NoLength, down, 5000, Closing::Usual, {}, ok, part, end},
        {FaultKind::NoLength, down, 5000, Closing::Notify, {}, ok, part, notify},
        {FaultKind::CutBody, down, 5000, Closing::Reset, {}, ok, part, reset},
        {FaultKind::Informational, down, 0, Closing::Notify, {103, 103}, hint + hint + ok, whole, notify},
        {FaultKind::Informational, list, 0, Closing::Notify, {}, hint + ok, "]", notify},
        {FaultKind::HangUp, list, 0, Closing::Usual, {103}, hint, hint, end},
        {FaultKind::Gzip, down, 0, Closing::Notify, {}, ok, whole, notify},
        {FaultKind::SlowWrite, down, 0, Closing::Notify, {}, ok, whole, notify},
        {FaultKind::Status, submit(), 0, Closing::Notify, {}, busy, full, notify},
        {FaultKind::Delay, submit(), 0, Closing::Notify, {}, ok, "}", notify},
        {FaultKind::CutHead, submit(), 0, Closing::Usual, {}, ok, "", end},
        {FaultKind::CutBody, submit(), 7, Closing::Usual, {}, ok, "\r\n\r\n{\"accou", end},
        {FaultKind::ResetBefore, submit(), 0, Closing::Usual, {}, "", "", reset},
        {FaultKind::ResetAfter, submit(), 0, Closing::Usual, {}, "", "", reset},
        {FaultKind::HangUp, submit(), 0, Closing::Usual, {}, "", "", end},
        {FaultKind::Drip, submit(), 0, Closing::Notify, {}, ok, "}", notify},
        {FaultKind::Raw, submit(), 0, Closing::Notify, {}, full, full, notify},
        {FaultKind::SlowRead, up, 0, Closing::Notify, {}, "HTTP/1.1 2", "", notify}};
    for (const auto &[kind, sent, bytes, closing, informational, first, last, ending] : table) {
        const std::size_t jobs = portal.jobCount();
        inject("*", kind, bytes, closing, informational);
        const bool early = kind == FaultKind::RefuseEarly, cut = early || kind == FaultKind::CutUpload;
        const std::size_t size = early ? sent.find("\r\n\r\n") + 4 + std::size_t(bytes) : sent.size();
        QElapsedTimer timer;
        timer.start();
        QProcess client; // distinguishes how a connection ends
        client.start("openssl", {"s_client", "-quiet", "-verify_quiet", "-CAfile", toQString(portal.caFile()),
                                 "-connect", toQString(portal.host())});
        client.write(toBytes(sent.substr(0, size)));
        client.closeWriteChannel();
        ASSERT_TRUE(client.waitForFinished(10000));
        string received = client.readAllStandardOutput().toStdString();
        const string error = client.readAllStandardError().toStdString();
        SCOPED_TRACE(received.substr(0, 300) + error);
        const std::size_t body = received.find("\r\n\r\n") + 4;
        if (received.find("Content-Encoding: gzip\r\n") < body)
            received.replace(body, string::npos, run("gzip", {"-dc"}, received.substr(body)));
        EXPECT_TRUE(toBytes(received).startsWith(toBytes(first)) && toBytes(received).endsWith(toBytes(last)));
        EXPECT_EQ(received.find("Content-Length") == string::npos,
                  last.empty() || kind == FaultKind::NoLength || kind == FaultKind::HangUp || kind == FaultKind::Raw);
        for (const string &each : {end, reset})
            EXPECT_EQ(error.find(each) != string::npos, ending == each);
        EXPECT_TRUE(!cut || portal.requests().back().bodySize == std::min(std::size_t(bytes), upSize));
        const bool slow = kind == FaultKind::SlowRead || kind == FaultKind::SlowWrite || kind == FaultKind::Delay;
        EXPECT_EQ(portal.jobCount() - jobs, sent.find("job/submit") < 20 ? processed.count(kind) : 0);
        EXPECT_TRUE(!slow || timer.elapsed() >= 400);
        EXPECT_EQ(portal.files(other).size(), kind == FaultKind::SlowRead ? 1U : 0U);
        EXPECT_EQ(portal.faultCount(), 0U);
    }
}

TEST_F(StorageTest, upload_refusedOrNotRead_restIsSkippedOrStays)
{
    const string up = upload(newJob(), bytes(24 << 20)); // more than the system buffers
    for (const auto &[kind, closing, read] : {std::tuple(FaultKind::RefuseEarly, Closing::Skip, true),
                                              {FaultKind::RefuseEarly, Closing::Hold, false},
                                              {FaultKind::StopReading, Closing::Usual, false}}) {
        SCOPED_TRACE(int(closing));
        inject("storage", kind, 100000, closing);
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
        EXPECT_TRUE(kind == FaultKind::StopReading || receives("HTTP/1.1 413", 5000));
        socket.write(toBytes(up.substr(sent) + request("POST", "job/load", R"({"jobId":"job-wing0001"})", token)));
        EXPECT_EQ(receives("HTTP/1.1 200", read ? 10000 : 700), read);
        EXPECT_EQ(socket.encryptedBytesToWrite() + socket.bytesToWrite() == 0, read);
        EXPECT_EQ(socket.state(), QAbstractSocket::ConnectedState);
        socket.abort();
    }
    for (const SeenRequest &seen : portal.requests())
        EXPECT_TRUE(seen.target.find("/storage/") == string::npos || seen.bodySize == 100000) << seen.bodySize;
}

} // namespace
} // namespace PortalTests
