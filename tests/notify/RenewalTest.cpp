// Subscriptions while the token is being renewed, and whom their sockets trust.

#include "SocketFixture.h"
#include "support/TestFolder.h"

#include <thread>

namespace {

struct RenewalTest : NotifyTest {
    void SetUp() override
    {
        setOptions(*api, [](ClientOptions &options) { options.keepAlive = true; });
        const ScopedEnvironment there("VELMORA_API_URL", rest.host());
        rest.next(tokens("old"));
        ASSERT_TRUE(signIn(*api));
    }
    static Answer tokens(const QByteArray &token)
    {
        return answer(200, R"({"idToken":")" + token + R"(","refreshToken":"r","expiresIn":3600})");
    }
    /// A renewal begins, whose token comes when `rest` resumes.
    void closeGate(const char *token)
    {
        const ScopedEnvironment there("VELMORA_API_URL", rest.host());
        rest.next(tokens(token).paused());
        fire(renewalTimerOf(*api));
        ASSERT_TRUE(EVENTUALLY(rest.pausing() == 1));
    }
    /// After anything that could still happen.
    void expect(std::size_t clients, const QByteArray &token = {})
    {
        ASSERT_TRUE(clients == 0 || accepted(clients - 1));
        beats(rest.pausing() > 0 ? 5 : 0);
        settle();
        EXPECT_EQ(server.clients().size(), clients);
        EXPECT_TRUE(token.isNull() || server.clients()[clients - 1].head.contains("Authorization: " + token + "\r\n"));
    }

    ScriptedServer rest; ///< takes sign-ins and renewals
    ScopedTrust trust;
};

TEST_F(RenewalTest, subscription_duringARenewal_opensWithItsToken)
{
    closeGate("new");
    for (const char *job : {"J1", "J2", "J3", "J2"})
        subscribe(listener, job);
    api->unsubscribeFromJob("J3");
    expect(0);
    rest.resume();
    ASSERT_NO_FATAL_FAILURE(expect(2, "new"));
    ASSERT_TRUE(opened("J1") && opened("J2"));
    closeGate("newer"); // a silent connection is replaced by one that waits, too
    beats(4);
    EXPECT_TRUE(gone(0) && gone(1));
    expect(2);
    rest.resume();
    expect(4, "newer");
    closeGate("newest");
    subscribe(listener, "J4");
    api->clearActiveAccount();
    rest.resume();
    expect(4);
    EXPECT_EQ(listener.texts.size(), 0U);
}

TEST_F(RenewalTest, call_fromAForeignThread_isLogged)
{
    closeGate("new"); // so that the other thread opens and sends nothing
    subscribe(listener, "J1");
    log.clear();
    std::thread([this] { subscribe(listener, "J2"), api->getJobDetails("J1", {}); }).join();
    EXPECT_EQ(log.lines().filter(QStringLiteral("thread")).size(), 2);
    api->unsubscribeFromJob("J2");
}

TEST_F(RenewalTest, socket_withItsAuthority_trustsTheServer)
{
    const TestFolder folder;
    for (const auto &name : {std::string(), folder.write("ca.pem", testAuthority().toStdString())}) {
        setOptions(*api, [&](ClientOptions &options) { options.caFile = name; });
        const ScopedTrust nobody{QByteArray()};
        subscribe(listener);
        QSignalSpy errors(socket(), &QWebSocket::sslErrors);
        ASSERT_TRUE(opened());
        EXPECT_EQ(errors.isEmpty(), !name.empty());
    }
}

} // namespace
