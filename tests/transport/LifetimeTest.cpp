// The session may be destroyed at any moment, from any callback, whatever is under way.

#include "transport/Operations.h"

#include <QTimer>

using namespace Velmora;

namespace {

class LifetimeTest : public TransportTest {
protected:
    /// Requests and a socket in flight, in several stages; one target is answered, the rest is not. They
    /// leave two free of the six connections that Qt opens to one host.
    void crowd(const QByteArray &target, const Answer &scripted)
    {
        server.setHandler([target, scripted](const ReceivedRequest &request) {
            if (request.target == target)
                return scripted;
            return request.target == "/api/account/list" ? answer(200, "[{}]").paused(60) : silence();
        });
        for (const char *name : {"getUsersFileList", "submitNewJob", "getAccountList"})
            operation(name).call(*api, Into{&others});
        const CloudAPI::JobMessage onMessage = [this](const auto &, const auto &, const auto &) { ++others.calls; };
        api->subscribeToJob("J1", onMessage, onMessage);
        ASSERT_TRUE(waitUntil([this] { return server.requests().size() == 4; }));
        operation("getHpcList").call(*api, Into{&others}); // not connected yet
    }
    void destroy()
    {
        api.reset();
        othersBefore = others.calls;
    }
    /// Waits for the client's end of every connection to close: nothing of it is left to call anybody.
    void expectSilence()
    {
        server.resume();
        EXPECT_TRUE(waitUntil([this] { return server.openConnections() == 0; }));
        settle();
        EXPECT_EQ(others.calls, othersBefore);
    }

    Completion others;
    int othersBefore = 0;
};

class DestroyedByCallback : public LifetimeTest, public testing::WithParamInterface<Operation> {
protected:
    void destroyOn(const Answer &scripted)
    {
        crowd(QByteArray("/api/") + GetParam().target, scripted);
        done.then = [this] { destroy(); };
        GetParam().call(*api, Into{&done});
        ASSERT_TRUE(wait(done));
        expectSilence();
        EXPECT_EQ(done.calls, 1);
    }
};

TEST_P(DestroyedByCallback, OnSuccess) { destroyOn(answer(200, GetParam().reply)); }
TEST_P(DestroyedByCallback, OnFailure) { destroyOn(answer(500, R"({"message":"m"})")); }
TEST_P(DestroyedByCallback, OnALostConnection) { destroyOn(hangUp()); }

INSTANTIATE_TEST_SUITE_P(Table, DestroyedByCallback,
                         testing::Values(operation("logUserIn"), operation("checkMFAEnabled"),
                                         operation("generateNewJobID"), operation("getJobDetails"),
                                         operation("archiveJob"), operation("sendUserEvent"), operation("tagJob"),
                                         operation("untagJob"), operation("getJobFileList"), operation("deleteFile")),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(LifetimeTest, DestroyedByARefusalInsideTheCall)
{
    crowd({}, {});
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
    const struct {
        const char *name;
        Accept accept;
        Answer scripted;
        std::function<bool()> reached;
    } stages[] = {
        {"just called", Accept::Serve, answer(200), [] { return true; }},
        {"connected, no handshake", Accept::NoHandshake, answer(200), [&] { return server.openConnections() == 1; }},
        {"request half sent", Accept::StallBody, answer(200), [&] { return server.pausing() == 1; }},
        {"request read", Accept::Serve, silence(), [&] { return server.pausing() == 1; }},
        {"half of the answer's head received", Accept::Serve, big.paused(20), [&] { return server.pausing() == 1; }},
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
            destroy();
            expectSilence();
            ASSERT_EQ(others.calls, 0);
        }
    }
}

TEST_F(LifetimeTest, DestroyedBetweenFinishAndCallback)
{
    QObject context;
    QObject::connect(&networkOf(*api), &QNetworkAccessManager::finished, &context, [&] {
        // Queued before the callback is.
        QMetaObject::invokeMethod(
            &context, [&] { destroy(); }, Qt::QueuedConnection);
    });
    api->getJobDetails("J1", Into{&others});
    ASSERT_TRUE(waitUntil([this] { return !api; }));
    expectSilence();
    EXPECT_EQ(others.calls, 0);
}

TEST_F(LifetimeTest, DestroyedWhileRenewing)
{
    logIn();
    server.next(silence());
    renewalTimerOf(*api)->start(0);
    ASSERT_TRUE(waitUntil([this] { return server.pausing() == 1; }));
    destroy();
    expectSilence();
}

TEST_F(LifetimeTest, CallbackMayStartOperations)
{
    Completion second, third;
    done.then = [&] {
        api->getAllJobDetails(Into{&second});
        EXPECT_EQ(api->currentNetworkStatus(), 1); // runs an event loop of its own
        api->submitNewJob(JobSubmit(), Into{&third});
        api->clearActiveAccount();
    };
    server.next(answer(200, tokens(3600)));
    operation("logUserIn").call(*api, Into{&done});
    ASSERT_TRUE(wait(second) && wait(third));
    EXPECT_FALSE(api->isUserLoggedIn());
    EXPECT_EQ(done.calls + second.calls + third.calls, 3);
}

TEST_F(LifetimeTest, CallbackMayRunAnEventLoop)
{
    Completion inner;
    done.then = [&] {
        api->getAllJobDetails(Into{&inner});
        EXPECT_TRUE(wait(inner));
    };
    operation("getJobDetails").call(*api, Into{&done});
    ASSERT_TRUE(wait(inner));
    settle();
    EXPECT_EQ(inner.calls, 1);
    EXPECT_EQ(done.calls, 1);
}

TEST_F(LifetimeTest, DestroyedByACallbackInsideAnother)
{
    crowd("/api/job/load", answer(200));
    Completion inner;
    inner.then = [this] { destroy(); };
    done.then = [&] {
        operation("getJobDetails").call(*api, Into{&inner});
        EXPECT_TRUE(wait(inner));
        EXPECT_FALSE(api);
    };
    operation("getJobDetails").call(*api, Into{&done});
    ASSERT_TRUE(wait(inner));
    expectSilence();
    EXPECT_EQ(done.calls + inner.calls, 2);
}

TEST_F(LifetimeTest, DestroyedWhileWaitingForTheNetworkStatus)
{
    QObject context;
    QTimer::singleShot(10000, &context, [this] { destroy(); }); // the call itself has no deadline
    crowd("/api/job/load", answer(200));
    done.then = [this] { destroy(); };
    operation("getJobDetails").call(*api, Into{&done});
    EXPECT_EQ(api->currentNetworkStatus(), -1);
    EXPECT_EQ(done.calls, 1);
    EXPECT_FALSE(api);
    expectSilence();
}

} // namespace
