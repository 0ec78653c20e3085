// Subscriptions as an application uses them: started and ended at any moment, from any callback.

#include "SocketFixture.h"
#include "support/ProxyServer.h"

#include <QNetworkProxy>

namespace {

using SubscriptionTest = NotifyTest;

TEST_F(SubscriptionTest, subscription_connectionNeverOpens_reportsOneLoss)
{
    for (const Handshake refusal : {Handshake::RefuseAndClose, Handshake::RefuseAndKeepOpen}) {
        const std::size_t client = server.clients().size();
        Listener own;
        server.setHandshake(refusal);
        subscribe(own);
        expectLoss(own, client + 1);
        EXPECT_TRUE(gone(client)) << "neither side keeps anything";
        api->unsubscribeFromJob("J1");
    }
    const QByteArray nobody = "127.0.0.1:1", unreachable = "127.255.255.255:1"; // known inside the call, or soon after
    api->setAPIPortal(static_cast<PortalTarget>(3)); // no host at all, once the variable is unset
    for (const QByteArray &host : {nobody, unreachable, QByteArray()}) {
        const ScopedEnvironment there("VELMORA_API_URL", host);
        Listener own;
        subscribe(own);
        EXPECT_TRUE(own.texts.empty()) << "never inside the call";
        expectLoss(own, 2);
        api->unsubscribeFromJob("J1");
    }
}

TEST_F(SubscriptionTest, subscription_portalOfTheApplication_isWhereItConnects)
{
    ProxyServer proxy(true); // receives the name, so that nobody resolves it
    const QNetworkProxy before = QNetworkProxy::applicationProxy();
    QNetworkProxy::setApplicationProxy({QNetworkProxy::Socks5Proxy, QStringLiteral("127.0.0.1"), proxy.serverPort(),
                                        QStringLiteral("ada"), QStringLiteral("p:w")});
    const ScopedEnvironment none("VELMORA_API_URL", {});
    for (const char *host : {"test", "dev", "portal"}) {
        api->setAPIPortal(static_cast<PortalTarget>(proxy.asked().size()));
        subscribe(listener);
        ASSERT_TRUE(waitUntil([&, count = proxy.asked().size()] { return proxy.asked().size() > count; })) << host;
        EXPECT_EQ(proxy.asked().last(), QByteArray(host) + ".velmora.example:443");
        api->unsubscribeFromJob("J1");
    }
    QNetworkProxy::setApplicationProxy(before);
}

TEST_F(SubscriptionTest, subscription_severalJobs_shareTheHeartbeatOnly)
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
        EXPECT_TRUE(EVENTUALLY(server.clients()[client].pings.size() == 1));
    for (const char *text : {"progress", "", "simulation finished"})
        server.send(2, text);
    EXPECT_TRUE(gone(2)) << "the finish ends it, with a callback or without";
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
    ASSERT_NO_FATAL_FAILURE(open(listener, 3));
    EXPECT_TRUE(heartbeat());
}

TEST_F(SubscriptionTest, subscription_applicationOnlyProcessesEvents_endsItsConnections)
{
    const auto served = [this](const std::function<bool()> &condition) { // all that such an application ever does
        QElapsedTimer timer;
        for (timer.start(); !condition() && timer.elapsed() < 10000;)
            api->processEvents();
        return condition();
    };
    const std::function<void(std::size_t)> ends[] = {
        [this](std::size_t) { api->unsubscribeFromJob("J1"); },
        [this](std::size_t client) { server.close(client, 1001); },
        [this](std::size_t) { beats(4); }, // and another connection begins
    };
    for (std::size_t client = 0; client < std::size(ends); ++client) {
        subscribe(listener);
        ASSERT_TRUE(served([&] { return server.clients().size() > client && socket() && socket()->isValid(); }));
        server.send(client, "flows");
        ASSERT_TRUE(served([&] { return !listener.texts.empty() && listener.texts.back() == "flows"; }));
        ends[client](client);
        EXPECT_TRUE(served([&] { return server.clients()[client].gone; })) << client;
        listener.texts.clear();
    }
    ASSERT_TRUE(served([this] { return server.clients().size() == 4 && socket() && socket()->isValid(); }));
    api.reset();
    EXPECT_TRUE(server.waitForEnd(3)) << "nobody processes events any more";
    EXPECT_EQ(listener.texts.size(), 0u);
}

TEST_F(SubscriptionTest, allEndInACallback_messagesAlreadyReceived_areDropped)
{
    const std::function<void()> ends[] = {[this] { api->clearActiveAccount(); },
                                          [this] { api->unsubscribeFromJob("J1"), api->unsubscribeFromJob("J2"); }};
    for (std::size_t first = 0; first < 4; first += 2) {
        Listener own, second;
        ASSERT_NO_FATAL_FAILURE(open(own, first, "J1"));
        ASSERT_NO_FATAL_FAILURE(open(second, first + 1, "J2"));
        own.then = second.then = ends[first / 2];
        for (int i = 0; i < 5; ++i) { // all received before the first is delivered
            server.send(first, "a");
            server.send(first + 1, "b");
        }
        EXPECT_TRUE(gone(first) && gone(first + 1));
        EXPECT_FALSE(subscribed("J1") || subscribed("J2") || heartbeat());
        settle();
        EXPECT_EQ(own.texts.size() + second.texts.size(), 1U) << first;
    }
}

TEST_F(SubscriptionTest, callback_anyEventAndAction_runsOnce)
{
    const struct {
        Handshake handshake;
        int code = 0;
        const char *text = "";
    } events[] = {{Handshake::Accept, frame, "m"},
                  {Handshake::Accept, frame, ""},
                  {Handshake::Accept, frame, "simulation finished"},
                  {Handshake::Accept, frame, "failed to connect"},
                  {Handshake::Accept, 1001, ""},
                  {Handshake::Accept, 1000, "simulation finished"},
                  {Handshake::Accept, reset, ""},
                  {Handshake::RefuseAndClose},
                  {Handshake::RefuseAndKeepOpen}};
    enum Action { Unsubscribe, SubscribeAnew, Destroy, PumpThenDestroy };
    for (const auto &event : events) {
        for (const Action action : {Unsubscribe, SubscribeAnew, Destroy, PumpThenDestroy}) {
            SCOPED_TRACE(testing::Message() << "event " << &event - events << ", action " << action);
            const std::size_t first = server.clients().size(), client = first + 1;
            const bool opens = event.handshake == Handshake::Accept;
            Listener own, second, other;
            api = std::make_unique<CloudAPI>();
            ASSERT_NO_FATAL_FAILURE(open(other, first, "J2"));
            own.then = [&] {
                if (action == Unsubscribe)
                    return api->unsubscribeFromJob("J1");
                server.setHandshake(Handshake::Accept);
                if (action == SubscribeAnew)
                    return subscribe(second);
                if (action == PumpThenDestroy) {
                    EXPECT_TRUE(opens || gone(client)); // waits
                    settle();
                }
                api.reset();
            };
            server.setHandshake(event.handshake);
            subscribe(own);
            if (opens) {
                ASSERT_TRUE(EVENTUALLY(socket() && socket()->isValid()));
                happen(client, event.code, event.text);
            }
            ASSERT_TRUE(notified(own));
            EXPECT_TRUE(gone(client));
            if (action == SubscribeAnew) {
                ASSERT_TRUE(accepted(client + 1));
                ASSERT_NO_FATAL_FAILURE(expectFlow(second, client + 1));
            }
            EXPECT_TRUE(api ? subscribed() == (action == SubscribeAnew) : gone(first));
            ASSERT_NO_FATAL_FAILURE(api ? expectFlow(other, first) : void());
            settle();
            EXPECT_EQ(own.texts.size(), 1u);
            EXPECT_EQ(second.texts.size(), action == SubscribeAnew ? 1u : 0u);
            server.setHandshake(Handshake::Accept);
            api.reset();
        }
    }
}

} // namespace
