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
        const int before = server.requests().size();
        for (const char *name : {"getUsersFileList", "submitNewJob", "getAccountList"})
            operation(name).call(*api, Into{&others});
        const CloudAPI::JobMessage onMessage = [this](const auto &, const auto &, const auto &) { ++others.calls; };
        api->subscribeToJob("J1", onMessage, onMessage);
        ASSERT_TRUE(seen(before + 4));
        operation("getHpcList").call(*api, Into{&others}); // not connected yet
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

class DestroyedByCallback : public LifetimeTest, public testing::WithParamInterface<const char *> {};

TEST_P(DestroyedByCallback, WhateverTheOutcome)
{
    const Operation &subject = operation(GetParam());
    for (const Answer &scripted : {answer(200, subject.reply), answer(500, R"({"message":"m"})"), hangUp()}) {
        api = std::make_unique<CloudAPI>();
        crowd(subject.target(), scripted);
        done = {};
        done.then = [this] { destroy(); };
        subject.call(*api, Into{&done});
        ASSERT_TRUE(wait(done));
        expectSilence();
        EXPECT_EQ(done.calls, 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, DestroyedByCallback,
                         testing::Values("logUserIn", "checkMFAEnabled", "generateNewJobID", "getJobDetails",
                                         "archiveJob", "sendUserEvent", "tagJob", "untagJob", "getJobFileList",
                                         "deleteFile"),
                         [](const auto &row) { return std::string(row.param); });

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

TEST_F(LifetimeTest, DestroyedByACallbackInsideTheEventLoopOfAnother)
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
    expectSilence();
}

} // namespace
