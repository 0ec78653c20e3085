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

} // namespace
} // namespace PortalTests
