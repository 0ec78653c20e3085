// Login, renewal, logout, proxy.

#include "transport/Operations.h"

#include <QElapsedTimer>
#include <QNetworkProxy>

using namespace Velmora;

namespace {

class SessionTest : public TransportTest {
protected:
    /// Lets a renewal become due now.
    void renew(const Answer &reply)
    {
        server.next(reply);
        const int before = sent("POST", "/api/auth/refresh");
        renewalTimerOf(*api)->start(0);
        ASSERT_TRUE(waitUntil([&] { return sent("POST", "/api/auth/refresh") == before + 1; }));
    }
    /// The token that a request made now carries.
    QByteArray token()
    {
        run(operation("getJobDetails"));
        return server.requests().last().header("Authorization");
    }
    bool waitForLogin()
    {
        return waitUntil([this] { return api->isUserLoggedIn(); });
    }
};

TEST_F(SessionTest, LoginAnswerReachesTheCallerWhole)
{
    server.next(answer(201, tokens(3600)));
    run(operation("logUserIn"));
    EXPECT_EQ(done.error.errorCode, 201);
    EXPECT_EQ(done.error.errorTitle, "");
    EXPECT_EQ(done.error.errorMessage, tokens(3600).toStdString());
    EXPECT_EQ(token(), idToken);
}

TEST_F(SessionTest, FailedLoginLeavesLoggedOut)
{
    logIn();
    server.next(answer(401, R"({"message":"Wrong password"})").paused());
    done = {};
    operation("logUserIn").call(*api, Into{&done});
    EXPECT_FALSE(api->isUserLoggedIn()) << "from the moment it is sent";
    ASSERT_TRUE(waitUntil([this] { return server.pausing() == 1; }));
    server.resume();
    ASSERT_TRUE(wait(done));
    EXPECT_EQ(done.error.errorMessage, "Wrong password");
    EXPECT_FALSE(api->isUserLoggedIn());
    EXPECT_TRUE(token().isNull());
    const int requests = server.requests().size();
    renewalTimerOf(*api)->start(0); // the earlier login's
    settle();
    run(operation("getJobDetails"));
    EXPECT_EQ(server.requests().size(), requests + 1) << "there is nothing to renew";
}

TEST_F(SessionTest, RenewalIsDueFiveSecondsBeforeTheEnd)
{
    const std::pair<int, int> table[] = {{3600, 3595000}, {7, 2000}, {2592000, 2147483647}, {2147483647, 2147483647}};
    for (const auto &[lifetime, interval] : table) {
        logIn(lifetime); // again and again: each login restarts the timer
        ASSERT_TRUE(renewalTimerOf(*api)->isActive()) << lifetime;
        EXPECT_EQ(renewalTimerOf(*api)->interval(), interval) << lifetime;
        EXPECT_TRUE(renewalTimerOf(*api)->isSingleShot());
    }
}

TEST_F(SessionTest, SecondLoginRestartsTheTimer)
{
    logIn(3600);
    renewalTimerOf(*api)->start(600000);
    logIn(1805);
    EXPECT_GT(renewalTimerOf(*api)->remainingTime(), 1700000);
}

TEST_F(SessionTest, ShortTokenIsRenewedByItself)
{
    QElapsedTimer clock;
    clock.start();
    logIn(6);
    server.next(answer(200, tokens(3600, "renewed")));
    ASSERT_TRUE(waitUntil([this] { return sent("POST", "/api/auth/refresh") == 1; }));
    EXPECT_GE(clock.elapsed(), 900); // Qt's timers may be 5 percent early
    const ReceivedRequest request = server.requests().last();
    EXPECT_EQ(request.body, "{\n    \"refreshToken\": \"refresh-token-0815\"\n}\n");
    EXPECT_TRUE(request.header("Authorization").isNull());
    ASSERT_TRUE(waitForLogin());
    EXPECT_EQ(token(), "renewed");
    EXPECT_EQ(renewalTimerOf(*api)->interval(), 3595000);
}

TEST_F(SessionTest, RenewingSessionSendsNoToken)
{
    logIn();
    renew(answer(200, tokens(3600, "renewed")).paused());
    EXPECT_FALSE(api->isUserLoggedIn());
    EXPECT_TRUE(token().isNull());
    server.resume();
    ASSERT_TRUE(waitForLogin());
    EXPECT_EQ(token(), "renewed");
}

TEST_F(SessionTest, RenewalNeverReplacesTheRefreshToken)
{
    logIn();
    for (int i = 0; i < 2; ++i) {
        renew(answer(200, R"({"idToken":"renewed","refreshToken":"another","expiresIn":3600})"));
        EXPECT_EQ(server.requests().last().body, indented({{"refreshToken", refreshToken}}));
        ASSERT_TRUE(waitForLogin());
    }
}

TEST_F(SessionTest, FailedRenewalEndsRenewing)
{
    logIn();
    renew(answer(401, R"({"message":"expired"})"));
    ASSERT_TRUE(waitUntil([this] { return log.lines().last().endsWith(QLatin1String("Cleared")); }));
    EXPECT_FALSE(api->isUserLoggedIn());
    EXPECT_FALSE(renewalTimerOf(*api)->isActive());
    EXPECT_TRUE(token().isNull());
    logIn();
    EXPECT_EQ(token(), idToken);
}

TEST_F(SessionTest, LogoutStopsEverythingButTheTimer)
{
    logIn();
    api->clearActiveAccount();
    EXPECT_FALSE(api->isUserLoggedIn());
    EXPECT_TRUE(renewalTimerOf(*api)->isActive());
    const int requests = server.requests().size();
    renewalTimerOf(*api)->start(0);
    ASSERT_TRUE(waitUntil([this] { return !renewalTimerOf(*api)->isActive(); }));
    EXPECT_TRUE(token().isNull());
    EXPECT_EQ(server.requests().size(), requests + 1);
}

TEST_F(SessionTest, LoginWithoutAnAnswerReadsAsLoggedIn)
{
    server.next(hangUp());
    run(operation("logUserIn"));
    EXPECT_EQ(done.error.errorCode, 0);
    EXPECT_EQ(done.error.errorTitle + done.error.errorMessage, "");
    EXPECT_TRUE(api->isUserLoggedIn());
    EXPECT_TRUE(token().isNull());
    EXPECT_EQ(sent("POST", "/api/auth/login"), 1);
}

TEST_F(SessionTest, AnswerWithoutTokensEmptiesThem)
{
    logIn();
    server.next(answer(200, R"({"idToken":7,"refreshToken":null,"expiresIn":"3600"})"));
    run(operation("logUserIn"));
    EXPECT_TRUE(api->isUserLoggedIn());
    EXPECT_TRUE(token().isNull());
}

TEST_F(SessionTest, SessionsAreIndependent)
{
    logIn();
    CloudAPI other;
    Completion seen;
    other.getJobDetails("J1", Into{&seen});
    ASSERT_TRUE(wait(seen));
    EXPECT_TRUE(server.requests().last().header("Authorization").isNull());
}

TEST(ProxyTest, KindDecides)
{
    const bool systemBefore = QNetworkProxyFactory::usesSystemConfiguration();
    QNetworkProxyFactory::setUseSystemConfiguration(false);
    const QNetworkProxy before = QNetworkProxy::applicationProxy();
    CloudAPI api;
    ProxyDefinition definition{"proxy.velmora.example", "ada", "pw", 70000, 3};
    for (const int kind : {3, -1}) {
        definition.proxyType = kind;
        api.applyProxy(definition);
        EXPECT_EQ(QNetworkProxy::applicationProxy(), before) << kind;
        EXPECT_FALSE(QNetworkProxyFactory::usesSystemConfiguration()) << kind;
    }
    for (const auto &[kind, type] : {std::pair(1, QNetworkProxy::HttpProxy), {0, QNetworkProxy::Socks5Proxy}}) {
        definition.proxyType = kind;
        api.applyProxy(definition);
        EXPECT_EQ(QNetworkProxy::applicationProxy(),
                  QNetworkProxy(type, QStringLiteral("proxy.velmora.example"), 70000 - 65536, QStringLiteral("ada"),
                                QStringLiteral("pw")))
            << kind;
    }
    definition = {};
    definition.proxyType = 2;
    api.applyProxy(definition);
    EXPECT_TRUE(QNetworkProxyFactory::usesSystemConfiguration());
    QNetworkProxy::setApplicationProxy(before);
    QNetworkProxyFactory::setUseSystemConfiguration(systemBefore);
}

} // namespace
