// No request reaches the service twice, and each completes once, however the connection ends.

#include "transport/Operations.h"

using namespace Velmora;

namespace {

class OnceTest : public TransportTest, public testing::WithParamInterface<const char *> {
protected:
    const Operation &subject = operation(GetParam());
    const QByteArray target = QByteArray("/api/") + subject.target;

    int arrived() const { return sent(subject.verb, target); }
    /// Waits until everything that was sent before has arrived: another request makes the round trip.
    void barrier()
    {
        Completion marker;
        api->getCurrentUserDetails(Into{&marker});
        ASSERT_TRUE(wait(marker));
        settle();
    }
    void expectOneFailure()
    {
        ASSERT_TRUE(wait(done));
        barrier();
        EXPECT_EQ(done.calls, 1);
        EXPECT_EQ(done.error.errorCode, 0);
        EXPECT_EQ(arrived(), 1);
    }
};

TEST_P(OnceTest, HungUpOnAFreshConnection)
{
    server.next(hangUp());
    subject.call(*api, Into{&done});
    expectOneFailure();
}

TEST_P(OnceTest, HungUpOnAReusedConnection)
{
    server.next(silence());
    api->getUsersFileList(true, {}); // as long as it is unanswered, connections are kept
    ASSERT_TRUE(waitUntil([this] { return server.requests().size() == 1; }));
    barrier();
    const int reused = server.requests().last().connection;
    server.next(hangUp());
    subject.call(*api, Into{&done});
    expectOneFailure();
    for (const ReceivedRequest &request : server.requests()) {
        if (request.target == target && request.verb == subject.verb) {
            EXPECT_EQ(request.connection, reused) << "not the case that is tested";
        }
    }
}

TEST_P(OnceTest, IdleConnectionClosedBeforeItIsReused)
{
    server.next(silence());
    api->getUsersFileList(true, {});
    ASSERT_TRUE(waitUntil([this] { return server.requests().size() == 1; }));
    server.next(answer(200).closed());
    barrier(); // the client learns of the closing, or does not, before the next request
    subject.call(*api, Into{&done});
    ASSERT_TRUE(wait(done));
    barrier();
    EXPECT_EQ(done.calls, 1);
    EXPECT_LE(arrived(), 1);
}

TEST_P(OnceTest, EveryCutCompletesOnce)
{
    const QByteArray whole = answer(200, "{\"jobId\":\"J1\"}").bytes;
    const int head = whole.indexOf("\r\n\r\n") + 4;
    for (const int cut : {1, 10, 18, 30, head - 1, head, head + 1, whole.size() - 1}) {
        SCOPED_TRACE(cut);
        const int before = arrived();
        server.next(answer(200, "{\"jobId\":\"J1\"}").cut(cut));
        run(subject);
        barrier();
        EXPECT_EQ(done.calls, 1);
        EXPECT_EQ(done.error.errorCode, cut < head ? 0 : 200) << "the status counts once the head is complete";
        EXPECT_EQ(done.error.errorTitle, "");
        EXPECT_TRUE(done.isDefault || done.result.isNull() || target.startsWith("/api/job/files/J1")); // echoed
        EXPECT_EQ(arrived(), before + 1);
    }
}

TEST_P(OnceTest, ConnectionLostBeforeTheRequestIsRead)
{
    server.setAccept(ScriptedServer::Accept::DropUnread);
    run(subject);
    EXPECT_EQ(done.error.errorCode, 0);
    server.setAccept(ScriptedServer::Accept::Serve);
    barrier();
    EXPECT_EQ(done.calls, 1);
    EXPECT_EQ(arrived(), 0);
}

TEST_P(OnceTest, NotRepeatedAfterAnAnswer)
{
    const Answer answers[] = {
        answer(302, "", "text/plain", "Location: /api/elsewhere\r\n"),
        answer(307, "", "text/plain", "Location: /api/elsewhere\r\n"),
        answer(308, "", "text/plain", "Location: https://" + server.host() + "/api/elsewhere\r\n"),
        answer(401, "", "text/plain", "WWW-Authenticate: Basic realm=\"r\"\r\n"),
        answer(407, "", "text/plain", "Proxy-Authenticate: Basic realm=\"r\"\r\n"),
        answer(408),
        answer(503, "", "text/plain", "Retry-After: 0\r\n"),
    };
    for (const Answer &scripted : answers) {
        SCOPED_TRACE(scripted.bytes.left(12).constData());
        const int before = server.requests().size();
        server.next(scripted);
        run(subject);
        EXPECT_EQ(done.error.errorCode, scripted.bytes.mid(9, 3).toInt());
        EXPECT_EQ(done.error.errorTitle, subject.title);
        EXPECT_EQ(server.requests().size(), before + 1);
        barrier();
        EXPECT_EQ(server.requests().size(), before + 2);
    }
}

INSTANTIATE_TEST_SUITE_P(Bodies, OnceTest,
                         testing::Values("submitNewJob", "getAllJobDetails", "untagJob", "deleteFile",
                                         "getSimulationFileList"),
                         [](const auto &row) { return std::string(row.param); });

TEST_F(TransportTest, BigSubmissionArrivesOnceAndWhole)
{
    const std::string text = std::string(5000000, 'x') + "end";
    server.next(hangUp());
    api->submitNewJob(text, Into{&done});
    ASSERT_TRUE(wait(done));
    run(operation("getCurrentUserDetails"));
    EXPECT_EQ(sent("POST", "/api/job/submit"), 1);
    EXPECT_EQ(server.requests().first().body, QByteArray::fromStdString(text));
}

TEST_F(TransportTest, RefusedConnectionCompletesOnce)
{
    server.close();
    for (const char *name : {"submitNewJob", "getUsersFileList", "deleteFile", "untagJob"}) {
        run(operation(name));
        settle();
        EXPECT_EQ(done.calls, 1) << name;
        EXPECT_EQ(done.error.errorCode, 0) << name;
    }
}

} // namespace
