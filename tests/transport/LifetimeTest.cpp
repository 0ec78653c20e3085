// The session may be destroyed from inside a call and before a callback. At all other moments: see torture.

#include "transport/Operations.h"

using namespace Velmora;

namespace {

class LifetimeTest : public TransportTest {
protected:
    /// Waits for the client's end of every connection to close: nothing of it is left to call anybody.
    void expectSilence()
    {
        EXPECT_FALSE(api);
        server.resume();
        EXPECT_TRUE(waitUntil([this] { return server.openConnections() == 0; }));
        settle();
        EXPECT_EQ(others.calls, 0);
    }

    Completion others; ///< that are under way
};

TEST_F(LifetimeTest, DestroyedByARefusalInsideTheCall)
{
    server.setHandler([](const ReceivedRequest &) { return silence(); });
    operation("getUsersFileList").call(*api, Into{&others});
    const CloudAPI::JobMessage onMessage = [this](const auto &, const auto &, const auto &) { ++others.calls; };
    api->subscribeToJob("J1", onMessage, onMessage);
    ASSERT_TRUE(seen(2));
    CloudAPI::ResultDone<JobDetails> callback = [&](const ApiError &error, const JobDetails &) {
        api.reset();
        callback = nullptr; // the caller's own copy goes as well
        done.error = error;
        ++done.calls;
    };
    api->submitNewJob(JobSubmit(), callback);
    EXPECT_EQ(done.calls, 1);
    EXPECT_EQ(done.error.errorCode, 400);
    expectSilence();
}

TEST_F(LifetimeTest, DestroyedBetweenFinishAndCallback)
{
    QObject context;
    QObject::connect(&networkOf(*api), &QNetworkAccessManager::finished, &context, [&] {
        // Queued before the callback is.
        QMetaObject::invokeMethod(
            &context, [&] { api.reset(); }, Qt::QueuedConnection);
    });
    api->getJobDetails("J1", Into{&others});
    ASSERT_TRUE(waitUntil([this] { return !api; }));
    expectSilence();
}

} // namespace
