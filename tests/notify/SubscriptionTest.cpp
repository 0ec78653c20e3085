// Subscriptions as a host uses them: begun and ended at any moment, from any callback.

#include "SocketFixture.h"

#include <QElapsedTimer>
#include <QTcpServer>
#include <QTcpSocket>

#include <ostream>

namespace {

using Velmora::PortalTarget;

class SubscriptionTest : public SocketTest {};

/// For hosts without an event loop: `pump` is all that they ever do.
bool pumpUntil(const std::function<bool()> &condition, const std::function<void()> &pump)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition() && timer.elapsed() < 10000)
        pump();
    return condition();
}

TEST_F(SubscriptionTest, RefusedConnection)
{
    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const ScopedEnvironment nobody("VELMORA_API_URL", "127.0.0.1:" + QByteArray::number(closed.serverPort()));
    closed.close();
    subscribe(listener);
    ASSERT_TRUE(told(listener));
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 0));
    expectLoss(listener, "socket disconnected");
}

TEST_F(SubscriptionTest, RefusedHandshake)
{
    for (const Handshake refusal : {Handshake::RefuseAndClose, Handshake::RefuseAndKeepOpen}) {
        SCOPED_TRACE(static_cast<int>(refusal));
        const std::size_t client = server.clients().size();
        Listener own;
        server.setHandshake(refusal);
        subscribe(own);
        ASSERT_TRUE(told(own));
        EXPECT_TRUE(gone(client)) << "nothing of it is left, on either side";
        ASSERT_NO_FATAL_FAILURE(expectInert(own, client + 1));
        expectLoss(own, "socket disconnected");
        api->unsubscribeFromJob("J1");
    }
}

TEST_F(SubscriptionTest, ServerWithoutTls)
{
    QTcpServer plain;
    ASSERT_TRUE(plain.listen(QHostAddress::LocalHost));
    int taken = 0;
    QObject::connect(&plain, &QTcpServer::newConnection, &plain, [&] {
        QTcpSocket *peer = plain.nextPendingConnection();
        ++taken;
        QObject::connect(peer, &QTcpSocket::readyRead, peer,
                         [peer] { peer->write("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n"); });
    });
    const ScopedEnvironment there("VELMORA_API_URL", "127.0.0.1:" + QByteArray::number(plain.serverPort()));
    subscribe(listener);
    ASSERT_TRUE(told(listener));
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 0));
    expectLoss(listener, "socket disconnected");
    EXPECT_EQ(taken, 1);
}

TEST_F(SubscriptionTest, PortalWithoutAHost)
{
    const ScopedEnvironment none("VELMORA_API_URL", {});
    api->setAPIPortal(static_cast<PortalTarget>(3));
    subscribe(listener);
    EXPECT_TRUE(listener.calls.empty()) << "never inside the call";
    ASSERT_TRUE(told(listener));
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 0));
    expectLoss(listener, "socket disconnected");
}

TEST_F(SubscriptionTest, SubscribedAnew)
{
    Listener second;
    ASSERT_NO_FATAL_FAILURE(open(listener));
    server.send(0, "too late"); // received, not yet read
    ASSERT_NO_FATAL_FAILURE(open(second, 1));
    EXPECT_TRUE(gone(0));
    ASSERT_NO_FATAL_FAILURE(expectFlow(second, 1));
    EXPECT_EQ(second.calls.size(), 1u);
    EXPECT_TRUE(listener.calls.empty());
    api->unsubscribeFromJob("J1");
    EXPECT_TRUE(gone(1));
    EXPECT_FALSE(heartbeat());
}

TEST_F(SubscriptionTest, SubscribedAnewAfterALossAndWhileConnecting)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    server.drop(0, Drop::Reset);
    ASSERT_TRUE(told(listener));
    server.setHandshake(Handshake::Ignore);
    Listener second, third;
    subscribe(second);
    ASSERT_TRUE(waitUntil([&] { return server.clients().size() == 2 && !server.clients()[1].target.empty(); }));
    server.setHandshake(Handshake::Accept);
    ASSERT_NO_FATAL_FAILURE(open(third, 2));
    EXPECT_TRUE(gone(1));
    ASSERT_NO_FATAL_FAILURE(expectFlow(third, 2));
    expectLoss(listener, "socket disconnected");
    EXPECT_TRUE(second.calls.empty());
    EXPECT_EQ(third.calls.size(), 1u);
}

TEST_F(SubscriptionTest, HeartbeatOnlyWhileAJobIsSubscribed)
{
    EXPECT_FALSE(heartbeat());
    api->unsubscribeFromJob("J1"); // ignored
    EXPECT_FALSE(heartbeat());
    Listener second;
    ASSERT_NO_FATAL_FAILURE(open(listener, 0, "J1"));
    QTimer *timer = heartbeat();
    ASSERT_TRUE(timer);
    EXPECT_TRUE(timer->isActive());
    EXPECT_FALSE(timer->isSingleShot());
    EXPECT_EQ(timer->interval(), 25000);
    ASSERT_NO_FATAL_FAILURE(open(second, 1, "J2"));
    EXPECT_EQ(heartbeat(), timer) << "one for all";
    fire(timer);
    EXPECT_TRUE(waitUntil([&] {
        const auto clients = server.clients();
        return clients[0].pings.size() == 1 && clients[1].pings.size() == 1;
    }));
    api->unsubscribeFromJob("J3"); // never subscribed
    api->unsubscribeFromJob("J1");
    EXPECT_TRUE(gone(0));
    EXPECT_EQ(heartbeat(), timer);
    ASSERT_NO_FATAL_FAILURE(expectFlow(second, 1));
    api->unsubscribeFromJob("J2");
    EXPECT_FALSE(heartbeat());
    EXPECT_TRUE(gone(1));
    api->unsubscribeFromJob("J2");
    EXPECT_TRUE(listener.calls.empty());
    EXPECT_EQ(second.calls.size(), 1u);
    ASSERT_NO_FATAL_FAILURE(open(listener, 2));
    ASSERT_TRUE(heartbeat());
    EXPECT_EQ(heartbeat()->interval(), 25000);
}

TEST_F(SubscriptionTest, EndsItsConnectionsForAHostThatOnlyPumps)
{
    const auto pump = [this] { api->processEvents(); };
    const auto isOpen = [this](std::size_t client) {
        return [=] {
            const auto clients = server.clients();
            return clients.size() > client && clients[client].accepted && socket() && socket()->isValid();
        };
    };
    const auto isGone = [this](std::size_t client) { return [=] { return server.clients()[client].gone; }; };
    subscribe(listener);
    ASSERT_TRUE(pumpUntil(isOpen(0), pump));
    server.send(0, "flows");
    ASSERT_TRUE(pumpUntil([this] { return listener.calls.size() == 1; }, pump));
    api->unsubscribeFromJob("J1");
    EXPECT_TRUE(pumpUntil(isGone(0), pump));

    subscribe(listener);
    ASSERT_TRUE(pumpUntil(isOpen(1), pump));
    for (int i = 0; i < 4; ++i) {
        fire(heartbeat());
        ASSERT_TRUE(pumpUntil([&] { return server.clients()[1].pings.size() == std::size_t(i) + 1; }, pump));
    }
    EXPECT_TRUE(pumpUntil(isGone(1), pump)) << "the restart's old connection";
    ASSERT_TRUE(pumpUntil(isOpen(2), pump));
    server.close(2, 1001);
    ASSERT_TRUE(pumpUntil([this] { return listener.calls.size() == 2; }, pump));
    EXPECT_TRUE(pumpUntil(isGone(2), pump)) << "closed by the server";

    subscribe(listener);
    ASSERT_TRUE(pumpUntil(isOpen(3), pump));
    api.reset();
    EXPECT_TRUE(pumpUntil(isGone(3), [] {})) << "nobody pumps any more";
    EXPECT_EQ(listener.calls.size(), 2u);
}

TEST_F(SubscriptionTest, DestroyedAtEveryStage)
{
    for (const Handshake stage :
         {Handshake::Silence, Handshake::Ignore, Handshake::RefuseAndKeepOpen, Handshake::Accept}) {
        SCOPED_TRACE(static_cast<int>(stage));
        const std::size_t client = server.clients().size();
        const bool silent = stage == Handshake::Silence;
        server.setHandshake(stage);
        api = std::make_unique<CloudAPI>();
        subscribe(listener, "J1");
        subscribe(listener, "J2");
        const auto reached = [&] {
            const auto clients = server.clients();
            return clients.size() == client + 2 && (silent || !clients[client + 1].target.empty());
        };
        ASSERT_TRUE(pumpUntil(reached, [] { QCoreApplication::processEvents(); }));
        listener.calls.clear();
        api.reset();
        EXPECT_TRUE(gone(client));
        EXPECT_TRUE(gone(client + 1));
        settle();
        EXPECT_TRUE(listener.calls.empty());
    }
}

struct Event {
    const char *name;
    std::function<void(SocketServer &)> happen;
};

enum class Act { Unsubscribe, SubscribeAnew, Destroy, PumpThenDestroy };

class InsideACallback : public SubscriptionTest, public testing::WithParamInterface<std::tuple<Event, Act>> {};

std::ostream &operator<<(std::ostream &out, const Event &event) { return out << event.name; }

TEST_P(InsideACallback, AnythingGoes)
{
    const auto &[event, act] = GetParam();
    Listener second, other;
    ASSERT_NO_FATAL_FAILURE(open(listener));
    ASSERT_NO_FATAL_FAILURE(open(other, 1, "J2"));
    const Act todo = act;
    listener.then = [&, todo] {
        switch (todo) {
        case Act::Unsubscribe:
            return api->unsubscribeFromJob("J1");
        case Act::SubscribeAnew:
            return subscribe(second);
        case Act::PumpThenDestroy:
            settle();
            [[fallthrough]];
        case Act::Destroy:
            return api.reset();
        }
    };
    event.happen(server);
    ASSERT_TRUE(told(listener));
    EXPECT_TRUE(gone(0));
    if (!api) {
        EXPECT_TRUE(gone(1));
    } else if (todo == Act::SubscribeAnew) {
        ASSERT_TRUE(accepted(2));
        EXPECT_TRUE(subscribed());
        ASSERT_NO_FATAL_FAILURE(expectFlow(second, 2));
    } else {
        EXPECT_FALSE(subscribed());
        EXPECT_TRUE(subscribed("J2"));
    }
    if (api) {
        other.calls.clear();
        ASSERT_NO_FATAL_FAILURE(expectFlow(other, 1));
    }
    settle();
    EXPECT_EQ(listener.calls.size(), 1u);
    EXPECT_EQ(second.calls.size(), todo == Act::SubscribeAnew ? 1u : 0u);
}

Event text(const char *name, const char *message)
{
    return {name, [message](SocketServer &server) { server.send(0, message); }};
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Event, Act>> &row)
{
    const char *const acts[] = {"Unsubscribe", "SubscribeAnew", "Destroy", "PumpThenDestroy"};
    return std::string(std::get<Event>(row.param).name) + acts[static_cast<int>(std::get<Act>(row.param))];
}

INSTANTIATE_TEST_SUITE_P(
    Table, InsideACallback,
    testing::Combine(testing::Values(text("Message", "m"), text("Empty", ""), text("Finished", "simulation finished"),
                                     text("Loss", "failed to connect"),
                                     Event{"Closed", [](SocketServer &server) { server.close(0, 1001); }},
                                     Event{"ClosedFinished",
                                           [](SocketServer &server) { server.close(0, 1000, "simulation finished"); }},
                                     Event{"Dropped", [](SocketServer &server) { server.drop(0, Drop::Reset); }}),
                     testing::Values(Act::Unsubscribe, Act::SubscribeAnew, Act::Destroy, Act::PumpThenDestroy)),
    nameOf);

} // namespace
