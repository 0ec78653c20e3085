// The session may be destroyed at any moment, from any callback, whatever is under way.

#include "transport/Operations.h"

using namespace Velmora;

namespace {

class LifetimeTest : public TransportTest {
protected:
    /// A request and a socket in flight that get no answer, and a request on its way.
    void crowd()
    {
        server.setHandler([](const ReceivedRequest &) { return silence(); });
        const int before = server.requests().size();
        operation("getUsersFileList").call(*api, Into{&others});
        const CloudAPI::JobMessage onMessage = [this](const auto &, const auto &, const auto &) { ++others.calls; };
        api->subscribeToJob("J1", onMessage, onMessage);
        ASSERT_TRUE(seen(before + 2));
    }
    void destroy()
    {
        api.reset();
        others.calls = 0;
    }
    /// Waits for the client's end of every connection to close: nothing of it is left to call anybody.
    void expectSilence()
    {
        EXPECT_FALSE(api);
        server.resume();
        EXPECT_TRUE(waitUntil([this] { return server.openConnections() == 0; }));
        settle();
        EXPECT_EQ(others.calls, 0);
    }

    Completion others;
};

TEST_F(LifetimeTest, DestroyedByARefusalInsideTheCall)
{
    crowd();
    CloudAPI::ResultDone<JobDetails> callback = [&](const ApiError &error, const JobDetails &) {
        destroy();
        callback = nullptr; // the caller's own copy goes as well
        done.error = error;
        ++done.calls;
    };
    api->submitNewJob(JobSubmit(), callback);
    EXPECT_EQ(done.calls, 1);
    EXPECT_EQ(done.error.errorCode, 400);
    expectSilence();
}

TEST_F(LifetimeTest, DestroyedAtEveryStage)
{
    using Accept = ScriptedServer::Accept;
    const Answer big = answer(200, QByteArray(8000000, 'x'));
    const auto paused = [this] { return server.pausing() == 1; };
    const struct {
        const char *name;
        Accept accept;
        Answer scripted;
        std::function<bool()> reached;
    } stages[] = {
        {"just called", Accept::Serve, answer(200), [] { return true; }},
        {"connected, no handshake", Accept::NoHandshake, answer(200), [&] { return server.openConnections() == 1; }},
        {"request half sent", Accept::StallBody, answer(200), paused},
        {"request read", Accept::Serve, silence(), paused},
        {"half of the answer's head received", Accept::Serve, big.paused(20), paused},
        {"half of the answer received", Accept::Serve, big.paused(5000000),
         [&] {
             const auto replies = networkOf(*api).findChildren<QNetworkReply *>();
             return replies.size() == 1 && replies[0]->bytesAvailable() > 0;
         }},
    };
    for (const auto &stage : stages) {
        for (const bool post : {true, false}) {
            SCOPED_TRACE(stage.name);
            api = std::make_unique<CloudAPI>();
            server.setAccept(stage.accept);
            server.setHandler([&](const ReceivedRequest &) { return stage.scripted; });
            if (post)
                api->submitNewJob(std::string(8000000, 'x'), Into{&others});
            else
                api->getUsersFileList(true, Into{&others});
            ASSERT_TRUE(waitUntil(stage.reached));
            ASSERT_EQ(others.calls, 0);
            destroy();
            expectSilence();
        }
    }
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

TEST_F(LifetimeTest, DestroyedWhileRenewing)
{
    logIn();
    server.next(silence());
    renewalTimerOf(*api)->start(0);
    ASSERT_TRUE(pausing());
    destroy();
    expectSilence();
}

} // namespace
