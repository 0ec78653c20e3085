// No request reaches the service twice, and each completes once, however the connection ends.

#include "transport/Operations.h"

using namespace Velmora;

namespace {

class OnceTest : public TransportTest, public testing::WithParamInterface<const char *> {
protected:
    const Operation &subject = operation(GetParam());

    int arrived() const { return sent(subject.verb, subject.target()); }
    /// Waits until everything that was sent before has arrived: another request makes the round trip.
    void barrier()
    {
        Completion marker;
        api->getCurrentUserDetails(Into{&marker});
        ASSERT_TRUE(wait(marker));
        settle();
    }
};

TEST_P(OnceTest, EveryCutCompletesOnce)
{
    const QByteArray whole = answer(200, "{\"jobId\":\"J1\"}").bytes;
    const int head = whole.indexOf("\r\n\r\n") + 4;
    for (const int cut : {0, 1, 10, 18, 30, head - 1, head, head + 1, whole.size() - 1}) {
        SCOPED_TRACE(cut);
        const int before = arrived();
        server.next(answer(200, "{\"jobId\":\"J1\"}").cut(cut));
        run(subject);
        barrier();
        EXPECT_EQ(done.calls, 1);
        EXPECT_EQ(done.error.errorCode, cut < head ? 0 : 200) << "the status counts once the head is complete";
        EXPECT_EQ(done.error.errorTitle, "");
        EXPECT_TRUE(done.isDefault || subject.path.startsWith("job/files/J1")); // echoed
        EXPECT_EQ(arrived(), before + 1);
    }
}

TEST_P(OnceTest, HungUpOnAReusedConnection)
{
    server.next(silence());
    api->getUsersFileList(true, {}); // keeps the connections: they are closed when nothing is in flight
    ASSERT_TRUE(seen(1));
    barrier();
    const int reused = server.requests().last().connection;
    server.next(hangUp());
    run(subject);
    EXPECT_EQ(server.requests().last().connection, reused) << "not the case that is tested";
    barrier();
    EXPECT_EQ(done.calls, 1);
    EXPECT_EQ(done.error.errorCode, 0);
    EXPECT_EQ(arrived(), 1);
}

INSTANTIATE_TEST_SUITE_P(Bodies, OnceTest,
                         testing::Values("submitNewJob", "getAllJobDetails", "untagJob", "deleteFile",
                                         "getSimulationFileList"),
                         [](const auto &row) { return std::string(row.param); });

} // namespace
