// Subscriptions as an application uses them: started and ended at any moment, from any callback.

#include "SocketFixture.h"
#include "support/ProxyServer.h"

namespace {

using SubscriptionTest = NotifyTest;

TEST_F(SubscriptionTest, subscription_connectionNeverOpens_reportsOneLoss)
{
    api->setAPIPortal(static_cast<PortalTarget>(3)); // no host at all, once the variable is unset
    const std::pair<QByteArray, Handshake> rows[] = {{server.host(), Handshake::RefuseAndClose},
                                                     {server.host(), Handshake::RefuseAndKeepOpen},
                                                     {"127.0.0.1:1", {}},       // known inside the call,
                                                     {"127.255.255.255:1", {}}, // or soon after
                                                     {{}, {}}};
    for (const auto &[host, refusal] : rows) {
        const ScopedEnvironment there("VELMORA_API_URL", host);
        Listener own;
        server.setHandshake(refusal);
        subscribe(own);
        EXPECT_TRUE(own.texts.empty()) << "never inside the call";
        expectLoss(own, refusal == Handshake::RefuseAndClose ? 1 : 2);
        EXPECT_TRUE(gone(server.clients().size() - 1)) << "neither side keeps anything";
        api->unsubscribeFromJob("J1");
    }
}

TEST_F(SubscriptionTest, subscription_portalOfTheApplication_isWhereItConnects)
{
    const ApplicationProxy proxy(0, true); // receives the name, so that nobody resolves it
    const ScopedEnvironment none("VELMORA_API_URL", {});
    for (const char *host : {"test", "dev", "portal"}) {
        const int count = proxy.asked().size();
        api->setAPIPortal(static_cast<PortalTarget>(count / 2));
        subscribe(listener);
        api->getJobDetails("J1", {});
        ASSERT_TRUE(waitUntil([&] { return proxy.asked().size() == count + 2; })) << host;
        EXPECT_EQ(proxy.asked().mid(count).count(QByteArray(host) + ".velmora.example:443"), 2);
        api->unsubscribeFromJob("J1");
    }
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
    api.reset();
    EXPECT_TRUE(server.waitForEnd(3)) << "nobody processes events any more";
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
        ASSERT_TRUE(api->processEvents(10000)) << "it is something that was handled";
        EXPECT_EQ(listener.texts, Texts{"flows"});
        ends[client](client);
        EXPECT_TRUE(served([&] { return server.clients()[client].gone; })) << client;
        listener.texts.clear();
    }
    ASSERT_TRUE(served([this] { return server.clients().size() == 4 && socket() && socket()->isValid(); }));
    api.reset();
    EXPECT_TRUE(server.waitForEnd(3)) << "nobody processes events any more";
    EXPECT_EQ(listener.texts.size(), 0u);
}

TEST_F(SubscriptionTest, callback_anyEventAndAction_runsOnce)
{
    constexpr int refused = -10, keptOpen = -11; // instead of an event
    constexpr int codes[] = {frame, frame, frame, frame, 1000, 1001, reset, refused, keptOpen};
    constexpr const char *texts[] = {"m", "", "failed to connect", "simulation finished", "simulation finished"};
    enum Action { Unsubscribe, SubscribeAnew, LogOut, Destroy, PumpThenDestroy };
    for (std::size_t i = 0; i < std::size(codes); ++i) {
        for (const Action action : {Unsubscribe, SubscribeAnew, LogOut, Destroy, PumpThenDestroy}) {
            const int code = codes[i];
            const char *const text = i < std::size(texts) ? texts[i] : "";
            SCOPED_TRACE(testing::Message() << "event " << code << text << ", action " << action);
            const std::size_t first = server.clients().size(), client = first + 1;
            const bool opens = code > refused;
            Listener own, second, other;
            api = std::make_unique<CloudAPI>();
            ASSERT_NO_FATAL_FAILURE(open(other, first, "J2"));
            own.then = [&] {
                server.setHandshake(Handshake::Accept);
                if (action == Unsubscribe)
                    return api->unsubscribeFromJob("J1");
                if (action == SubscribeAnew)
                    return subscribe(second);
                if (action == LogOut)
                    return api->clearActiveAccount();
                if (action == PumpThenDestroy) {
                    EXPECT_TRUE(opens || gone(client)); // waits
                    settle();
                }
                api.reset();
            };
            if (!opens)
                server.setHandshake(code == refused ? Handshake::RefuseAndClose : Handshake::RefuseAndKeepOpen);
            subscribe(own);
            if (opens) {
                ASSERT_TRUE(opened());
                happen(client, code, text);
                if (code == frame && action != PumpThenDestroy) // comes before the first one is delivered; is dropped
                    server.send(client, "late");
            }
            ASSERT_TRUE(notified(own));
            EXPECT_TRUE(gone(client));
            if (action == SubscribeAnew) {
                ASSERT_TRUE(accepted(client + 1));
                ASSERT_NO_FATAL_FAILURE(expectFlow(second, client + 1));
            }
            EXPECT_EQ(api && subscribed(), action == SubscribeAnew);
            EXPECT_TRUE(action < LogOut || (gone(first) && !(api && heartbeat()))) << "all end";
            ASSERT_NO_FATAL_FAILURE(action < LogOut ? expectFlow(other, first) : void());
            settle();
            EXPECT_EQ(own.texts.size(), 1u);
            EXPECT_EQ(second.texts.size(), action == SubscribeAnew ? 1u : 0u);
            api.reset();
        }
    }
}

} // namespace
