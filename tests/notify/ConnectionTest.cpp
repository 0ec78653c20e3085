// Where the ends of a connection, of a subscription and of a callback meet.

#include "SocketFixture.h"

#include <QTcpServer>
#include <QTcpSocket>

#include <ostream>

namespace {

using Texts = std::vector<std::string>;

class ConnectionTest : public SocketTest {
protected:
    static Texts textsOf(const Listener &host)
    {
        Texts texts;
        for (const Listener::Call &call : host.calls)
            texts.push_back(call.text);
        return texts;
    }
    void fourBeats()
    {
        for (int i = 0; i < 4; ++i)
            fire(heartbeat());
    }
};

TEST_F(ConnectionTest, KeepsJobsApartWithAndWithoutCallbacks)
{
    Listener second;
    ASSERT_NO_FATAL_FAILURE(open(listener, 0, "J1"));
    ASSERT_NO_FATAL_FAILURE(open(second, 1, "J2"));
    api->subscribeToJob("J3", {}, {});
    ASSERT_TRUE(accepted(2));
    for (const char *text : {"progress", "", "simulation finished"})
        server.send(2, text);
    EXPECT_TRUE(gone(2)) << "the finish ends it, told or not";
    api->subscribeToJob("J4", {}, {});
    ASSERT_TRUE(accepted(3));
    server.close(3, 1011);
    EXPECT_TRUE(gone(3));
    server.send(1, "Job status is FINISHED");
    EXPECT_TRUE(gone(1));
    ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 0));
    EXPECT_EQ(textsOf(listener), Texts{"flows"});
    EXPECT_EQ(textsOf(second), Texts{"Job status is FINISHED"});
    EXPECT_EQ(second.calls[0].jobId, "J2");
}

TEST_F(ConnectionTest, AClosureIsAbnormalAgainOnceAMessageHasComeAfterARestart)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    ASSERT_NO_FATAL_FAILURE(restart(1));
    ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 1));
    server.close(1, 1011, "late");
    ASSERT_TRUE(told(listener, 2));
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 2));
    EXPECT_EQ(textsOf(listener), (Texts{"flows", "abnormal closure late 1011"}));
    EXPECT_TRUE(listener.calls[1].finish);
}

TEST_F(ConnectionTest, AClosureWithAFinishingReasonFinishesWhateverItsCode)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    server.close(0, 4000, "simulation finished");
    ASSERT_TRUE(waitUntil([this] { return !subscribed(); }));
    ASSERT_EQ(textsOf(listener), Texts{"abnormal closure simulation finished 4000"});
    EXPECT_EQ(listener.calls[0].code, 200);
    EXPECT_EQ(listener.calls[0].title, "Simulation Finished");
    EXPECT_TRUE(listener.calls[0].finish);
}

TEST_F(ConnectionTest, EndsRightAfterARestartHasBegun)
{
    for (const bool destroy : {false, true}) {
        for (const bool delivered : {false, true}) {
            SCOPED_TRACE(testing::Message() << "destroyed: " << destroy << ", reopened: " << delivered);
            const std::size_t client = server.clients().size();
            api = std::make_unique<CloudAPI>();
            ASSERT_NO_FATAL_FAILURE(open(listener, client));
            fourBeats();
            if (delivered) { // so far that the new connection is under way
                ASSERT_TRUE(waitUntil([&] { return server.clients().size() == client + 2; }));
            }
            if (destroy)
                api.reset();
            else
                api->unsubscribeFromJob("J1");
            EXPECT_TRUE(gone(client));
            EXPECT_TRUE(waitUntil([this] {
                for (const SocketServer::Client &each : server.clients()) {
                    if (!each.gone)
                        return false;
                }
                return true;
            }));
            settle();
            EXPECT_TRUE(listener.calls.empty());
        }
    }
}

TEST_F(ConnectionTest, DropsWhatHasArrivedWhenACallbackEndsSubscriptions)
{
    Listener second;
    ASSERT_NO_FATAL_FAILURE(open(listener, 0, "J1"));
    ASSERT_NO_FATAL_FAILURE(open(second, 1, "J2"));
    listener.then = second.then = [this] {
        api->unsubscribeFromJob("J1");
        api->unsubscribeFromJob("J2");
    };
    for (int i = 0; i < 5; ++i) { // all received before the first is delivered
        server.send(0, "a");
        server.send(1, "b");
    }
    EXPECT_TRUE(gone(0));
    EXPECT_TRUE(gone(1));
    settle();
    EXPECT_EQ(listener.calls.size() + second.calls.size(), 1u);
}

TEST_F(ConnectionTest, ServerThatHangsUpBeforeTls)
{
    QTcpServer plain;
    ASSERT_TRUE(plain.listen(QHostAddress::LocalHost));
    int taken = 0;
    QObject::connect(&plain, &QTcpServer::newConnection, &plain, [&] {
        ++taken;
        plain.nextPendingConnection()->disconnectFromHost();
    });
    const ScopedEnvironment there("VELMORA_API_URL", "127.0.0.1:" + QByteArray::number(plain.serverPort()));
    subscribe(listener);
    ASSERT_TRUE(told(listener));
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 0));
    expectLoss(listener, "socket disconnected");
    EXPECT_EQ(taken, 1);
}

/// What may be done inside the callback that reports a connection which never opened.
class InsideAFailedOpening : public ConnectionTest, public testing::WithParamInterface<Handshake> {};

TEST_P(InsideAFailedOpening, Unsubscribes)
{
    server.setHandshake(GetParam());
    listener.then = [this] { api->unsubscribeFromJob("J1"); };
    subscribe(listener);
    ASSERT_TRUE(told(listener));
    EXPECT_FALSE(heartbeat());
    EXPECT_TRUE(gone(0));
    settle();
    EXPECT_EQ(textsOf(listener), Texts{"socket disconnected"});
}

TEST_P(InsideAFailedOpening, SubscribesAnew)
{
    server.setHandshake(GetParam());
    Listener second;
    listener.then = [&] {
        server.setHandshake(Handshake::Accept);
        subscribe(second);
    };
    subscribe(listener);
    ASSERT_TRUE(accepted(1));
    EXPECT_TRUE(gone(0));
    ASSERT_NO_FATAL_FAILURE(expectFlow(second, 1));
    EXPECT_EQ(textsOf(listener), Texts{"socket disconnected"});
    EXPECT_EQ(second.calls.size(), 1u);
}

TEST_P(InsideAFailedOpening, RunsAnEventLoopAndDestroysEverything)
{
    server.setHandshake(GetParam());
    listener.then = [this] {
        EXPECT_TRUE(gone(0)); // waits
        api.reset();
        settle();
    };
    subscribe(listener);
    ASSERT_TRUE(waitUntil([this] { return !api; }));
    settle();
    EXPECT_EQ(textsOf(listener), Texts{"socket disconnected"});
}

INSTANTIATE_TEST_SUITE_P(Refusals, InsideAFailedOpening,
                         testing::Values(Handshake::RefuseAndClose, Handshake::RefuseAndKeepOpen), [](const auto &row) {
                             return std::string(row.param == Handshake::RefuseAndClose ? "Closed" : "KeptOpen");
                         });

} // namespace
