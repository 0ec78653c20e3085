// One job's socket against an independent secure WebSocket server that nobody trusts: handshake, messages, heartbeat,
// restart, and every way in which a connection ends.

#include "SocketFixture.h"

namespace {

using SocketTest = NotifyTest;

QByteArray authorization(const SocketServer::Client &client)
{
    EXPECT_EQ(client.head.toLower().count("\nauthorization:"), 1);
    EXPECT_EQ(client.header("User-Agent"), "Velmora/" VELMORA_VERSION);
    return client.header("Authorization");
}

TEST_F(SocketTest, heartbeat_fourUnanswered_restartsWithTheNewestToken)
{
    Loopback rest; // the other requests go there, as long as it exists
    rest.server.setHandler([&](const ReceivedRequest &) {
        const QByteArray number = QByteArray::number(rest.server.requests().size());
        return answer(200, R"({"idToken":"token)" + number + R"(","refreshToken":"r","expiresIn":3600})");
    });
    const auto isLoggedIn = [&] { return api->isUserLoggedIn(); };
    ASSERT_TRUE(signIn(*api));
    {
        const ScopedEnvironment here("VELMORA_API_URL", server.host());
        ASSERT_NO_FATAL_FAILURE(open(listener));
    }
    EXPECT_EQ(authorization(server.clients()[0]), "token1");
    const std::string url = "web-socket url wss://" + server.host().toStdString() + "/socket/job/progress/J1";
    EXPECT_NE(log.text().find(url), std::string::npos);
    for (std::size_t round = 0; round < 2; ++round) {
        for (int i = 0; i < 2; ++i) {
            fire(renewalTimerOf(*api));
            EXPECT_FALSE(isLoggedIn());
            ASSERT_TRUE(waitUntil(isLoggedIn));
        }
        EXPECT_EQ(server.clients().size(), round + 1) << "an open connection is not touched";
        ASSERT_NO_FATAL_FAILURE(restart(round + 1));
        ASSERT_TRUE(gone(round));
        const SocketServer::Client closed = server.clients()[round];
        EXPECT_EQ(closed.pings, QByteArrayList({"hello", "hello", "hello", "hello"}));
        EXPECT_EQ(closed.closeCode, 1015);
        EXPECT_EQ(closed.closeReason, "rebooting");
        EXPECT_EQ(log.lines().count(QStringLiteral("ping socket")), (int(round) + 1) * 4);
        EXPECT_EQ(log.lines().filter(QStringLiteral("4 pings (100s) without a message - restarting")).size(),
                  int(round) + 1);
        EXPECT_EQ(authorization(server.clients()[round + 1]), round == 0 ? "token3" : "token5");
        EXPECT_EQ(server.clients()[round + 1].target, "/socket/job/progress/J1");
        ASSERT_NO_FATAL_FAILURE(expectFlow(listener, round + 1));
        EXPECT_EQ(listener.texts.size(), round + 1) << "nothing but the messages";
    }
    EXPECT_EQ(log.text().find("token"), std::string::npos);
}

TEST_F(SocketTest, heartbeat_textAfterThree_countsAnew)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    for (int i = 1; i <= 6; ++i) {
        ASSERT_NO_FATAL_FAILURE(beat());
        ASSERT_NO_FATAL_FAILURE(i % 3 == 0 ? expectFlow(listener, 0) : void());
    }
    EXPECT_EQ(server.clients().size(), 1u);
    ASSERT_NO_FATAL_FAILURE(restart(1));
    ASSERT_TRUE(gone(0));
    EXPECT_EQ(server.clients()[0].pings.size(), 10);
    for (int i = 0; i < 3; ++i)
        ASSERT_NO_FATAL_FAILURE(beat());
    ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 1));
    EXPECT_EQ(server.clients().size(), 2u) << "a new connection counts from the start";
}

TEST_F(SocketTest, handshake_unansweredForFourHeartbeats_isALoss)
{
    server.setHandshake(Handshake::Ignore);
    for (const bool speaksTls : {true, false}) {
        const std::size_t client = server.clients().size();
        Listener own;
        subscribe(own);
        ASSERT_TRUE(
            EVENTUALLY(server.clients().size() > client && (!speaksTls || !server.clients()[client].target.isEmpty())));
        beats(3);
        settle();
        EXPECT_TRUE(own.texts.empty());
        fire(heartbeat());
        EXPECT_TRUE(gone(client));
        expectLoss(own, client + 1);
        api->unsubscribeFromJob("J1");
    }
}

/// What the server does, and what the application receives of it.
struct Happening {
    int code; ///< a text frame, or how the connection ends
    const char *sent, *received, *title;
    bool finish = true, over = false; ///< the finish callback is called; the subscription ends
    bool restarts = false;            ///< after a restart and a message
};

constexpr Happening happenings[] = {
    {frame, R"({"jobProgress":"Gr\u00fc\u00dfe ü 1%"})", nullptr, success, false},
    {frame, "the simulation finished.", nullptr, finished, true, true},
    {frame, R"({"m":"Job status is FINISHED"})", nullptr, finished, true, true},
    {frame, "Simulation Finished", nullptr, success, false},
    {frame, "job status is finished", nullptr, success, false},
    {frame, "a socket disconnected b", nullptr, lost},
    {frame, "a failed to connect b", nullptr, lost},
    {frame, "an abnormal closure", nullptr, lost},
    {frame, "Socket disconnected", nullptr, success, false},
    {frame, "socket disconnected, simulation finished", nullptr, finished, true, true},
    {frame, " ", nullptr, success, false},
    {frame, "", nullptr, invalid, false},
    {1000, "bye", "bye", success, false},
    {1000, "simulation finished", "simulation finished", finished, true, true},
    {4000, "simulation finished", "abnormal closure simulation finished 4000", finished, true, true},
    {1000, "", "abnormal closure  1000", lost},
    {0, "", "abnormal closure  1000", lost},
    {1001, "", "abnormal closure  1001", lost},
    {4000, "50%2 late", "abnormal closure 50%2 late 4000", lost},
    {1011, "late", "abnormal closure late 1011", lost, true, false, true},
    {reset, "", disconnected, lost},
    {finish, "", disconnected, lost},
};

TEST_F(SocketTest, socket_anyEvent_isReportedOnce)
{
    for (const auto &[code, sent, text, title, toFinish, over, restarts] : happenings) {
        SCOPED_TRACE(testing::Message() << code << " " << sent);
        std::size_t client = server.clients().size();
        Listener own;
        ASSERT_NO_FATAL_FAILURE(open(own, client));
        if (restarts) {
            ASSERT_NO_FATAL_FAILURE(restart(++client));
            ASSERT_NO_FATAL_FAILURE(expectFlow(own, client));
            own.texts.clear();
        }
        log.clear();
        happen(client, code, sent);
        ASSERT_TRUE(notified(own));
        settle();
        const std::string loss = "abnormal closure\ncode: " + std::to_string(code ? code : 1000) + "\nreason: " + sent;
        EXPECT_EQ(log.text(), code < 0 ? ""
                              : code == 1000 && sent[0]
                                  ? "successful socket closure\nclose reason: " + std::string(sent)
                                  : loss);
        EXPECT_EQ(own.texts, Texts{code == frame ? sent : text});
        EXPECT_EQ(own.error.errorCode, title == lost || title == invalid ? 400 : 200);
        EXPECT_EQ(own.error.errorTitle + own.error.errorMessage, title);
        EXPECT_EQ(own.jobId, "J1");
        EXPECT_EQ(own.finish, toFinish);
        EXPECT_TRUE(EVENTUALLY(subscribed() != over)) << "stays until the application unsubscribes";
        EXPECT_EQ(heartbeat() != nullptr, !over);
        if (!over && code == frame)
            expectFlow(own, client);
        else
            EXPECT_TRUE(gone(client));
        if (!over && code != frame)
            expectInert(own, client + 1);
        api->unsubscribeFromJob("J1");
    }
}

TEST_F(SocketTest, message_longerThanTheLimit_endsTheConnection)
{
    const QByteArray longest(16 * 1024 * 1024, 'x');
    ASSERT_NO_FATAL_FAILURE(open(listener));
    server.send(0, longest);
    ASSERT_TRUE(notified(listener));
    EXPECT_EQ(listener.texts[0].size(), std::size_t(longest.size()));
    EXPECT_FALSE(listener.finish);
    for (const std::size_t client : {0, 1}) { // by the head of a frame alone, or in two frames
        server.write(client, SocketServer::Text, longest + QByteArray(client == 0, 'x'), client == 0 ? 20 : INT_MAX, 0);
        server.write(client, SocketServer::Rest, "x");
        ASSERT_TRUE(notified(listener, 2 + client));
        EXPECT_EQ(listener.error.errorTitle, lost);
        ASSERT_NO_FATAL_FAILURE(expectInert(listener, client + 1));
        ASSERT_NO_FATAL_FAILURE(client == 0 ? open(listener, 1) : void());
    }
}

TEST_F(SocketTest, socket_lossAfterARestartBeforeAnyMessage_isLogged)
{
    for (const int code : {1000, 0, 1001, 1011, 4000, reset, finish, silentHeartbeats}) {
        SCOPED_TRACE(code);
        Listener own;
        api = std::make_unique<CloudAPI>();
        const std::size_t client = server.clients().size();
        ASSERT_NO_FATAL_FAILURE(open(own, client));
        ASSERT_NO_FATAL_FAILURE(restart(client + 1));
        log.clear();
        happen(client + 1, code, "");
        expectLoss(own, client + 2);
        const auto isLogged = [&](const char *line) { return log.text().find(line) != std::string::npos; };
        EXPECT_EQ(isLogged("close event after socket is already closed\ncode: ") && isLogged("\nreason: "),
                  code != reset && code != finish);
        api.reset();
    }
}

} // namespace
