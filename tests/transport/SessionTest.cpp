// Login, renewal, logout, proxy.

#include "transport/SessionFixture.h"

#include <QSignalSpy>

namespace {

TEST_F(SessionTest, session_endedInAnyWay_isNotRenewed)
{
    enum End { LoginRefused, RenewalRefused, LoggedOut };
    const Answer refusal = answer(401, R"({"message":"Wrong password"})");
    for (const End end : {LoginRefused, RenewalRefused, LoggedOut}) {
        SCOPED_TRACE(end);
        logIn();
        EXPECT_EQ(token(), idToken);
        if (end == LoginRefused) {
            start("logUserIn", refusal);
            EXPECT_FALSE(api->isUserLoggedIn()) << "from the moment it is sent";
            ASSERT_TRUE(wait(done));
            EXPECT_EQ(done.error.errorMessage, "Wrong password");
        } else if (end == RenewalRefused) {
            renew(refusal);
            ASSERT_TRUE(cleared());
        } else {
            api->clearActiveAccount();
        }
        EXPECT_FALSE(api->isUserLoggedIn());
        EXPECT_EQ(timer()->isActive(), end != RenewalRefused);
        if (end != RenewalRefused)
            timer()->start(0); // the earlier login's
        settle();
        EXPECT_TRUE(token().isNull());
        EXPECT_EQ(renewals(), end == LoginRefused ? 0 : 1) << "there is nothing to renew";
    }
}

TEST_F(SessionTest, login_anyLifetime_renewsFiveSecondsBeforeItsEnd)
{
    const std::pair<int, int> table[] = {{3600, 3595000}, {7, 2000}, {2592000, 2147483647}, {2147483647, 2147483647}};
    for (const auto &[lifetime, interval] : table) {
        logIn(lifetime);
        EXPECT_EQ(timer()->interval(), interval) << lifetime;
        EXPECT_TRUE(timer()->isActive() && timer()->isSingleShot());
        timer()->start(600000); // the next login starts it again
    }
    for (const int lifetime : {4, 0, -2147483647}) { // without a warning of Qt
        logIn(lifetime);
        EXPECT_FALSE(timer()->isActive()) << lifetime;
    }
    keepAlive();
    logIn(4);
    EXPECT_EQ(timer()->interval(), 2000);
}

TEST_F(SessionTest, renewal_underWay_sendsNoTokenAndKeepsTheRefreshToken)
{
    logIn();
    for (int i = 0; i < 2; ++i) {
        renew(answer(200, R"({"idToken":"renewed","refreshToken":"another","expiresIn":3600})").paused());
        EXPECT_EQ(server.requests().last().body, indented({{"refreshToken", refreshToken}}));
        EXPECT_FALSE(api->isUserLoggedIn());
        EXPECT_TRUE(token().isNull());
        server.resume();
        ASSERT_TRUE(waitForLogin());
        EXPECT_EQ(token(), "renewed");
    }
}

TEST_F(SessionTest, sessionChanges_inOrder_fromACleanStack)
{
    std::string changes;
    const auto note = [&](const ApiError &) { changes += "completed "; };
    api->onSessionChanged([&](SessionChange change) { changes += std::to_string(int(change)) + ' '; });
    const auto expect = [&](const std::string &expected) {
        EXPECT_TRUE(EVENTUALLY(changes == expected)) << changes << "; not " << expected;
        settle();
        EXPECT_EQ(std::exchange(changes, {}), expected);
    };
    const Answer good = answer(200, tokens(3600));
    for (const Answer &bad : {hangUp(), answer(403), answer(500), answer(200, "{}")}) {
        server.next(bad);
        api->logUserIn("ada", "pw", "", note);
        expect("completed ");
        server.next(good);
        api->logUserIn("ada", "pw", "", note);
        expect("completed 0 ");
        renew(good);
        expect("1 ");
        renew(bad);
        expect("2 ");
        api->clearActiveAccount();
        api->clearActiveAccount();
        EXPECT_EQ(changes, "") << "never inside the call";
        expect("3 ");
    }
    for (const char *expected : {"completed 0 ", "3 completed 0 "}) { // the second ends the first
        server.next(good);
        api->resumeSession(refreshToken, note);
        expect(expected);
    }
    keepAlive();
    server.next(answer(500));
    renew(good); // is tried again
    expect("1 ");
    api->onSessionChanged([&](SessionChange) { api.reset(); });
    api->clearActiveAccount();
    EXPECT_TRUE(EVENTUALLY(!api));
}

TEST_F(SessionTest, resume_storedToken_isTheRenewalsAndOfAnUnknownUser)
{
    logIn();
    QSignalSpy forgets(&session(), &Session::userChanged);
    server.next(answer(200, R"({"idToken":"resumed","refreshToken":"other","expiresIn":3600})"));
    api->resumeSession("stored", Into{&done});
    EXPECT_FALSE(api->isUserLoggedIn());
    ASSERT_TRUE(wait(done));
    EXPECT_EQ(forgets.count(), 1);
    EXPECT_EQ(token(), "resumed");
    renew(answer(200, tokens(3600)));
    EXPECT_EQ(server.requests().last().body, indented({{"refreshToken", "stored"}}));
    logIn();
    EXPECT_EQ(forgets.count(), 2) << "nobody knows whether it is the same user";
    api->clearActiveAccount();
    logIn();
    EXPECT_EQ(forgets.count(), 4) << "nobody knows what came in between";
    EXPECT_EQ(log.text().find("stored"), std::string::npos);
}

TEST_F(SessionTest, login_noUsableToken_readsAsLoggedIn)
{
    for (const Answer &scripted : {hangUp(), answer(200, R"({"idToken":7,"refreshToken":null,"expiresIn":"3600"})"),
                                   answer(200, tokens(3600, "a\\r\\nX-Evil: 1")), answer(200, tokens(3600, "a\\n")),
                                   answer(200, tokens(3600, "a\\u0000b"))}) {
        logIn();
        run("logUserIn", scripted);
        EXPECT_EQ(done.error.errorTitle, "");
        EXPECT_TRUE(api->isUserLoggedIn());
        EXPECT_TRUE(token().isNull()) << scripted.bytes.toStdString();
    }
    EXPECT_EQ(sent("POST", "/api/auth/login"), 10);
}

TEST_F(SessionTest, tokenAnswer_overtakenByLoginOrLogout_changesNothing)
{
    for (const int which : {0, 1, 2, 3}) {
        const bool renewal = (which & 1) != 0, logout = (which & 2) != 0;
        SCOPED_TRACE(which);
        const Answer late = answer(200, tokens(3600, "late")).paused();
        Completion overtaken, next;
        if (renewal) {
            logIn();
            renew(late);
        } else {
            server.next(late);
            api->logUserIn("ada", "pw", "", Into{&overtaken});
        }
        ASSERT_TRUE(pausing());
        if (logout) {
            api->clearActiveAccount();
        } else {
            server.next(answer(200, tokens(3600, "next")));
            api->logUserIn("bob", "pw", "", Into{&next});
            ASSERT_TRUE(wait(next));
        }
        server.resume();
        ASSERT_TRUE(cleared());
        settle();
        EXPECT_EQ(overtaken.calls, renewal ? 0 : 1) << "its own callback runs all the same";
        EXPECT_EQ(api->isUserLoggedIn(), !logout);
        EXPECT_EQ(token(), logout ? QByteArray() : "next");
    }
}

TEST(ProxyTest, applyProxy_everyKind_setsItsProxy)
{
    const bool systemBefore = QNetworkProxyFactory::usesSystemConfiguration();
    QNetworkProxyFactory::setUseSystemConfiguration(false);
    const QNetworkProxy before = QNetworkProxy::applicationProxy();
    const auto proxy = [](QNetworkProxy::ProxyType type) {
        return QNetworkProxy(type, QStringLiteral("proxy.velmora.example"), 70000 - 65536, QStringLiteral("ada"),
                             QStringLiteral("pw"));
    };
    CloudAPI api;
    const std::pair<int, QNetworkProxy> table[] = {
        {3, before}, {-1, before}, {1, proxy(QNetworkProxy::HttpProxy)}, {0, proxy(QNetworkProxy::Socks5Proxy)}};
    for (const auto &[kind, expected] : table) {
        api.applyProxy({"proxy.velmora.example", "ada", "pw", 70000, kind});
        EXPECT_EQ(QNetworkProxy::applicationProxy(), expected) << kind;
        EXPECT_FALSE(QNetworkProxyFactory::usesSystemConfiguration()) << kind;
    }
    api.applyProxy({{}, {}, {}, 0, 2});
    EXPECT_TRUE(QNetworkProxyFactory::usesSystemConfiguration());
    QNetworkProxy::setApplicationProxy(before);
    QNetworkProxyFactory::setUseSystemConfiguration(systemBefore);
}

} // namespace
