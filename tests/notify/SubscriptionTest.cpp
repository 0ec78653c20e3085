// Subscriptions as a host uses them: begun and ended at any moment, from any callback.

#include "SocketFixture.h"

#include <QElapsedTimer>

#include <ostream>

namespace {

using SubscriptionTest = SocketFixture;

/// For hosts without an event loop, and for servers that do not wake one.
bool pumpedBy(const std::function<void()> &pump, const std::function<bool()> &condition)
{
    QElapsedTimer timer;
    for (timer.start(); !condition() && timer.elapsed() < 10000;)
        pump();
    return condition();
}

TEST_F(SubscriptionTest, ConnectionThatNeverOpens)
{
    for (const Handshake refusal : {Handshake::RefuseAndClose, Handshake::RefuseAndKeepOpen}) {
        const std::size_t client = server.clients().size();
        Listener own;
        server.setHandshake(refusal);
        subscribe(own);
        expectLoss(own, client + 1);
        EXPECT_TRUE(gone(client)) << "nothing of it is left, on either side";
        api->unsubscribeFromJob("J1");
    }
    const QByteArray nobody = "127.0.0.1:1", unreachable = "127.255.255.255:1"; // known inside the call, or soon after
    api->setAPIPortal(static_cast<PortalTarget>(3)); // no host at all, once the environment is silent
    for (const QByteArray &host : {nobody, unreachable, QByteArray()}) {
        const ScopedEnvironment there("VELMORA_API_URL", host);
        Listener own;
        subscribe(own);
        EXPECT_TRUE(own.texts.empty()) << "never inside the call";
        expectLoss(own, 2);
        api->unsubscribeFromJob("J1");
    }
}

TEST_F(SubscriptionTest, KeepsJobsApartAndBeatsForAllOfThem)
{
    Listener second;
    api->unsubscribeFromJob("J1"); // ignored
    EXPECT_FALSE(heartbeat());
    ASSERT_NO_FATAL_FAILURE(open(listener, 0, "J1"));
    QTimer *timer = heartbeat();
    ASSERT_TRUE(timer && timer->isActive());
    EXPECT_FALSE(timer->isSingleShot());
    EXPECT_EQ(timer->interval(), 25000);
    ASSERT_NO_FATAL_FAILURE(open(second, 1, "J2"));
    api->subscribeToJob("J3", {}, {});
    ASSERT_TRUE(accepted(2));
    EXPECT_EQ(heartbeat(), timer) << "one for all";
    fire(timer);
    for (const std::size_t client : {0, 1})
        EXPECT_TRUE(waitUntil([=] { return server.clients()[client].pings.size() == 1; }));
    for (const char *text : {"progress", "", "simulation finished"})
        server.send(2, text);
    EXPECT_TRUE(gone(2)) << "the finish ends it, told or not";
    api->subscribeToJob("J4", {}, {});
    ASSERT_TRUE(accepted(3));
    server.close(3, 1011);
    EXPECT_TRUE(gone(3));
    api->unsubscribeFromJob("J4");
    server.send(1, "Job status is FINISHED");
    EXPECT_TRUE(gone(1));
    EXPECT_EQ(heartbeat(), timer);
    ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 0));
    EXPECT_EQ(listener.texts, Texts{"flows"});
    EXPECT_EQ(second.texts, Texts{"Job status is FINISHED"});
    EXPECT_EQ(second.jobId, "J2");
    api->unsubscribeFromJob("J1");
    EXPECT_TRUE(gone(0));
    EXPECT_FALSE(heartbeat());
    ASSERT_NO_FATAL_FAILURE(open(listener, 4));
    EXPECT_TRUE(heartbeat());
}

TEST_F(SubscriptionTest, EndsItsConnectionsForAHostThatOnlyPumps)
{
    const auto served = [this](const std::function<bool()> &condition) { // all that such a host ever does
        return pumpedBy([this] { api->processEvents(); }, condition);
    };
    const auto isOpen = [this](std::size_t client) {
        return [=] {
            const auto &clients = server.clients();
            return clients.size() > client && clients[client].accepted && socket() && socket()->isValid();
        };
    };
    const auto isGone = [this](std::size_t client) { return [=] { return server.clients()[client].gone; }; };
    subscribe(listener);
    ASSERT_TRUE(served(isOpen(0)));
    server.send(0, "flows");
    ASSERT_TRUE(served([this] { return listener.texts.size() == 1; }));
    api->unsubscribeFromJob("J1");
    EXPECT_TRUE(served(isGone(0)));

    subscribe(listener);
    ASSERT_TRUE(served(isOpen(1)));
    for (int i = 1; i <= 4; ++i) {
        fire(heartbeat());
        ASSERT_TRUE(served([&] { return server.clients()[1].pings.size() == i; }));
    }
    EXPECT_TRUE(served(isGone(1))) << "the restart's old connection";
    ASSERT_TRUE(served(isOpen(2)));
    server.close(2, 1001);
    ASSERT_TRUE(served([this] { return listener.texts.size() == 2; }));
    EXPECT_TRUE(served(isGone(2))) << "closed by the server";

    subscribe(listener);
    ASSERT_TRUE(served(isOpen(3)));
    api.reset();
    EXPECT_TRUE(server.waitForEnd(3)) << "nobody pumps any more";
    EXPECT_EQ(listener.texts.size(), 2u);
}

TEST_F(SubscriptionTest, DropsWhatHasArrivedWhenACallbackEndsSubscriptions)
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
    EXPECT_EQ(listener.texts.size() + second.texts.size(), 1u);
}

/// What a callback is told of: something on an open connection, or a refused handshake.
struct Event {
    const char *name;
    std::function<void(SocketServer &)> happen;
    Handshake handshake = Handshake::Accept;

    friend std::ostream &operator<<(std::ostream &out, const Event &event) { return out << event.name; }
};

Event text(const char *name, const char *message)
{
    return {name, [message](SocketServer &server) { server.send(1, message); }};
}

Event closing(const char *name, int code, const char *reason)
{
    return {name, [=](SocketServer &server) { server.close(1, code, reason); }};
}

enum class Act { Unsubscribe, SubscribeAnew, Destroy, PumpThenDestroy };

class InsideACallback : public SubscriptionTest, public testing::WithParamInterface<std::tuple<Event, Act>> {};

TEST_P(InsideACallback, AnythingGoes)
{
    const Event &event = std::get<Event>(GetParam());
    const Act act = std::get<Act>(GetParam());
    Listener second, other;
    ASSERT_NO_FATAL_FAILURE(open(other, 0, "J2"));
    listener.then = [&] {
        switch (act) {
        case Act::Unsubscribe:
            return api->unsubscribeFromJob("J1");
        case Act::SubscribeAnew:
            server.setHandshake(Handshake::Accept);
            return subscribe(second);
        case Act::PumpThenDestroy:
            EXPECT_TRUE(event.happen || gone(1)); // waits
            settle();
            [[fallthrough]];
        case Act::Destroy:
            return api.reset();
        }
    };
    server.setHandshake(event.handshake);
    if (event.happen) {
        ASSERT_NO_FATAL_FAILURE(open(listener, 1));
        event.happen(server);
    } else {
        subscribe(listener);
    }
    ASSERT_TRUE(told(listener));
    EXPECT_TRUE(gone(1));
    if (!api) {
        EXPECT_TRUE(gone(0));
    } else if (act == Act::SubscribeAnew) {
        ASSERT_TRUE(accepted(2));
        EXPECT_TRUE(subscribed());
        ASSERT_NO_FATAL_FAILURE(expectFlow(second, 2));
    } else {
        EXPECT_FALSE(subscribed());
    }
    if (api) {
        ASSERT_NO_FATAL_FAILURE(expectFlow(other, 0));
    }
    settle();
    EXPECT_EQ(listener.texts.size(), 1u);
    EXPECT_EQ(second.texts.size(), act == Act::SubscribeAnew ? 1u : 0u);
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Event, Act>> &row)
{
    const char *const acts[] = {"Unsubscribe", "SubscribeAnew", "Destroy", "PumpThenDestroy"};
    return std::string(std::get<Event>(row.param).name) + acts[static_cast<int>(std::get<Act>(row.param))];
}

INSTANTIATE_TEST_SUITE_P(
    Table, InsideACallback,
    testing::Combine(testing::Values(text("Message", "m"), text("Empty", ""), text("Finished", "simulation finished"),
                                     text("Loss", "failed to connect"), closing("Closed", 1001, ""),
                                     closing("ClosedFinished", 1000, "simulation finished"),
                                     Event{"Dropped", [](SocketServer &server) { server.drop(1, Drop::Reset); }},
                                     Event{"RefusedAndClosed", {}, Handshake::RefuseAndClose},
                                     Event{"RefusedAndKeptOpen", {}, Handshake::RefuseAndKeepOpen}),
                     testing::Values(Act::Unsubscribe, Act::SubscribeAnew, Act::Destroy, Act::PumpThenDestroy)),
    nameOf);

} // namespace
