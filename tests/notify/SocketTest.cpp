// One job's socket against a secure WebSocket server of another make: handshake, messages, heartbeat,
// restart, and every way in which a connection ends.

#include "SocketFixture.h"

#include <ostream>

namespace {

constexpr auto closedAlready = "close event after socket is already closed";

TEST_F(SocketTest, HandshakeCarriesTheBareTokenAndTrustsAnyCertificate)
{
    sockets().subscribeToJob(QStringLiteral("J-1"), QStringLiteral("a.b_c"), listener.callback(false),
                             listener.callback(true));
    ASSERT_TRUE(accepted(0));
    EXPECT_EQ(server.clients()[0].target, "/socket/job/progress/J-1");
    EXPECT_EQ(server.clients()[0].authorization, std::vector<std::string>{"a.b_c"});
    EXPECT_TRUE(log.lines().contains(
        QStringLiteral("web-socket url wss://%1/socket/job/progress/J-1").arg(QString::fromStdString(server.host()))));
    EXPECT_TRUE(log.lines().filter(QStringLiteral("a.b_c")).isEmpty());
}

TEST_F(SocketTest, RenewalHandsTheNewTokenToOpenConnections)
{
    const auto tokens = [](const char *id) {
        return answer(200, QByteArray(R"({"idToken":")") + id + R"(","refreshToken":"r","expiresIn":3600})");
    };
    Loopback rest; // the service's other requests go there, while it lives
    rest.server.next(tokens("first"));
    rest.server.next(tokens("second"));
    bool loggedIn = false;
    api->logUserIn("u@example.com", "p", "", [&](const ApiError &) { loggedIn = true; });
    ASSERT_TRUE(waitUntil([&] { return loggedIn; }));
    {
        const ScopedEnvironment here("VELMORA_API_URL", QByteArray::fromStdString(server.host()));
        ASSERT_NO_FATAL_FAILURE(open(listener));
    }
    EXPECT_EQ(server.clients()[0].authorization, std::vector<std::string>{"first"});
    fire(renewalTimerOf(*api));
    EXPECT_FALSE(api->isUserLoggedIn());
    ASSERT_TRUE(waitUntil([&] { return api->isUserLoggedIn(); }));
    EXPECT_EQ(server.clients().size(), 1u) << "an open connection is not touched";
    ASSERT_NO_FATAL_FAILURE(restart(1));
    EXPECT_EQ(server.clients()[1].authorization, std::vector<std::string>{"second"});
    ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 1));
    EXPECT_EQ(listener.calls.size(), 1u);
}

struct Message {
    const char *name, *text;
    int code;
    const char *title;
    bool finish, over;

    friend std::ostream &operator<<(std::ostream &out, const Message &row) { return out << row.name; }
};

class Classification : public SocketTest, public testing::WithParamInterface<Message> {};

TEST_P(Classification, OfTextFrames)
{
    const Message &row = GetParam();
    ASSERT_NO_FATAL_FAILURE(open(listener));
    server.send(0, row.text);
    ASSERT_TRUE(told(listener));
    EXPECT_EQ(listener.calls[0].text, row.text);
    EXPECT_EQ(listener.calls[0].code, row.code);
    EXPECT_EQ(listener.calls[0].title, row.title);
    EXPECT_EQ(listener.calls[0].message, "");
    EXPECT_EQ(listener.calls[0].jobId, "J1");
    EXPECT_EQ(listener.calls[0].finish, row.finish);
    settle();
    EXPECT_EQ(subscribed(), !row.over);
    EXPECT_EQ(heartbeat() != nullptr, !row.over);
    if (row.over)
        EXPECT_TRUE(gone(0));
    else
        ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 0));
    EXPECT_EQ(listener.calls.size(), row.over ? 1u : 2u);
}

constexpr auto success = "Socket Message Success", finished = "Simulation Finished",
               lost = "Unexpected Socket Disconnection", invalid = "Invalid Socket Message";

const auto nameOf = [](const auto &row) { return std::string(row.param.name); };

INSTANTIATE_TEST_SUITE_P(
    Table, Classification,
    testing::Values(Message{"Progress", R"({"jobProgress":"Gr\u00fc\u00dfe ü 1%"})", 200, success, false, false},
                    Message{"Finished", "the simulation finished.", 200, finished, true, true},
                    Message{"JobStatus", R"({"m":"Job status is FINISHED"})", 200, finished, true, true},
                    Message{"CapitalFinished", "Simulation Finished", 200, success, false, false},
                    Message{"LowerJobStatus", "job status is finished", 200, success, false, false},
                    Message{"Disconnected", "a socket disconnected b", 400, lost, true, false},
                    Message{"FailedToConnect", "a failed to connect b", 400, lost, true, false},
                    Message{"AbnormalClosure", "an abnormal closure", 400, lost, true, false},
                    Message{"CapitalDisconnected", "Socket disconnected", 200, success, false, false},
                    Message{"FinishedWins", "socket disconnected, simulation finished", 200, finished, true, true},
                    Message{"Blank", " ", 200, success, false, false},
                    Message{"Empty", "", 400, invalid, false, false}),
    nameOf);

TEST_F(SocketTest, FourSilentHeartbeatsRestartWithTheNewestToken)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    for (std::size_t round = 0; round < 2; ++round) {
        const std::string token = "token" + std::to_string(round);
        sockets().updateCognitoToken(QStringLiteral("stale"));
        sockets().updateCognitoToken(QString::fromStdString(token));
        ASSERT_NO_FATAL_FAILURE(restart(round + 1));
        ASSERT_TRUE(gone(round));
        const SocketServer::Client closed = server.clients()[round];
        EXPECT_EQ(closed.pings, std::vector<std::string>(4, "hello"));
        EXPECT_EQ(closed.closeCode, 1015);
        EXPECT_EQ(closed.closeReason, "rebooting");
        EXPECT_EQ(server.clients()[round + 1].authorization, std::vector<std::string>{token});
        EXPECT_EQ(server.clients()[round + 1].target, "/socket/job/progress/J1");
        ASSERT_NO_FATAL_FAILURE(expectFlow(listener, round + 1));
        EXPECT_EQ(listener.calls.size(), round + 1) << "nothing but the messages";
    }
    EXPECT_EQ(server.clients().size(), 3u);
}

TEST_F(SocketTest, ATextFrameAfterThreeHeartbeatsResetsTheCount)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    for (int i = 0; i < 3; ++i)
        ASSERT_NO_FATAL_FAILURE(beat());
    ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 0));
    for (int i = 0; i < 3; ++i)
        ASSERT_NO_FATAL_FAILURE(beat());
    ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 0));
    EXPECT_EQ(server.clients().size(), 1u);
    EXPECT_EQ(server.clients()[0].pings.size(), 6u);
    ASSERT_NO_FATAL_FAILURE(restart(1));
    ASSERT_TRUE(gone(0));
    EXPECT_EQ(server.clients()[0].pings.size(), 10u);
}

TEST_F(SocketTest, RestartsWhileStillConnecting)
{
    server.setHandshake(Handshake::Silence);
    subscribe(listener);
    ASSERT_TRUE(waitUntil([&] { return server.clients().size() == 1; }));
    const auto fourBeats = [this] {
        for (int i = 0; i < 4; ++i)
            fire(heartbeat());
    };
    server.setHandshake(Handshake::Ignore);
    fourBeats();
    ASSERT_TRUE(gone(0));
    ASSERT_TRUE(waitUntil([&] { return server.clients().size() == 2 && !server.clients()[1].target.empty(); }));
    server.setHandshake(Handshake::Accept);
    sockets().updateCognitoToken(QStringLiteral("newest"));
    fourBeats();
    ASSERT_TRUE(gone(1));
    ASSERT_TRUE(accepted(2));
    EXPECT_EQ(server.clients()[2].authorization, std::vector<std::string>{"newest"});
    ASSERT_NO_FATAL_FAILURE(expectFlow(listener, 2));
    EXPECT_EQ(listener.calls.size(), 1u);
    EXPECT_EQ(server.clients().size(), 3u);
}

struct Ending {
    const char *name;
    std::function<void(SocketServer &, std::size_t client)> end;
    const char *text;

    friend std::ostream &operator<<(std::ostream &out, const Ending &row) { return out << row.name; }
};

Ending closing(const char *name, int code, const char *reason, const char *text)
{
    return {name, [=](SocketServer &server, std::size_t client) { server.close(client, code, reason); }, text};
}

Ending dropping(const char *name, Drop how, const char *text)
{
    return {name, [=](SocketServer &server, std::size_t client) { server.drop(client, how); }, text};
}

class Lost : public SocketTest, public testing::WithParamInterface<Ending> {};

TEST_P(Lost, ReachesTheFinishCallbackOnce)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    GetParam().end(server, 0);
    ASSERT_TRUE(told(listener));
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 1));
    expectLoss(listener, GetParam().text);
    EXPECT_TRUE(gone(0));
}

TEST_P(Lost, AfterARestartBeforeAnyMessageIsLoggedAndTold)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    ASSERT_NO_FATAL_FAILURE(restart(1));
    const bool closes = !QByteArray(GetParam().text).startsWith("socket");
    log.clear();
    GetParam().end(server, 1);
    ASSERT_TRUE(told(listener));
    EXPECT_EQ(log.lines().contains(QLatin1String(closedAlready)), closes);
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 2));
    expectLoss(listener, "socket disconnected");
}

INSTANTIATE_TEST_SUITE_P(Table, Lost,
                         testing::Values(closing("NormalWithoutReason", 1000, "", "abnormal closure  1000"),
                                         closing("WithoutCode", 0, "", "abnormal closure  1000"),
                                         closing("GoingAway", 1001, "", "abnormal closure  1001"),
                                         closing("InternalError", 1011, "", "abnormal closure  1011"),
                                         closing("WithReason", 4000, "50%2 late", "abnormal closure 50%2 late 4000"),
                                         dropping("Reset", Drop::Reset, "socket disconnected"),
                                         dropping("Finish", Drop::Finish, "socket disconnected")),
                         nameOf);

TEST_F(SocketTest, FourMoreSilentHeartbeatsAfterARestartEndInADisconnection)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    ASSERT_NO_FATAL_FAILURE(restart(1));
    log.clear();
    for (int i = 0; i < 4; ++i)
        fire(heartbeat());
    ASSERT_TRUE(told(listener));
    EXPECT_TRUE(log.lines().contains(QLatin1String(closedAlready)));
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 2));
    expectLoss(listener, "socket disconnected");
}

TEST_F(SocketTest, ANormalClosureGoesByItsReason)
{
    ASSERT_NO_FATAL_FAILURE(open(listener));
    server.close(0, 1000, "bye");
    ASSERT_TRUE(told(listener));
    ASSERT_NO_FATAL_FAILURE(expectInert(listener, 1));
    ASSERT_EQ(listener.calls.size(), 1u);
    EXPECT_EQ(listener.calls[0].text, "bye");
    EXPECT_EQ(listener.calls[0].title, success);
    EXPECT_FALSE(listener.calls[0].finish);

    Listener second;
    ASSERT_NO_FATAL_FAILURE(open(second, 1));
    server.close(1, 1000, "simulation finished");
    ASSERT_TRUE(told(second));
    EXPECT_TRUE(waitUntil([this] { return !subscribed(); }));
    EXPECT_TRUE(gone(1));
    ASSERT_EQ(second.calls.size(), 1u);
    EXPECT_EQ(second.calls[0].title, finished);
    EXPECT_TRUE(second.calls[0].finish);
    EXPECT_EQ(listener.calls.size(), 1u);
}

} // namespace
