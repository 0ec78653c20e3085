// Subscriptions and everything else while the token is being renewed.

#include "SocketFixture.h"
#include "support/TestFolder.h"

#include <QElapsedTimer>

namespace {

class RenewalTest : public NotifyTest {
protected:
    void openGate(const char *token)
    {
        isClosed = false;
        sockets().updateCognitoToken(QLatin1String(token));
        sockets().openGate();
    }
    /// After anything that could still happen.
    void expect(std::size_t clients, const QByteArray &token = {})
    {
        EXPECT_TRUE(clients == 0 || accepted(clients - 1));
        beats(isClosed ? 5 : 0);
        settle();
        EXPECT_EQ(server.clients().size(), clients);
        EXPECT_TRUE(token.isNull() || server.clients()[clients - 1].head.contains("Authorization: " + token + "\r\n"));
    }

    bool isClosed = true;
};

TEST_F(RenewalTest, subscription_duringARenewal_opensWithItsToken)
{
    sockets().setGate([this] { return isClosed; });
    for (const char *job : {"J1", "J2", "J3", "J2"})
        subscribe(listener, job);
    api->unsubscribeFromJob("J3");
    expect(0);
    openGate("new");
    expect(2, "new");
    ASSERT_TRUE(waitUntil([this] { return socket("J1")->isValid() && socket("J2")->isValid(); }));
    isClosed = true; // a silent connection is replaced by one that waits, too
    beats(4);
    EXPECT_TRUE(gone(0) && gone(1));
    expect(2);
    openGate("newer");
    expect(4, "newer");
    sockets().openGate(); // nothing waits
    isClosed = true;
    subscribe(listener, "J4");
    api->clearActiveAccount();
    openGate("newest");
    expect(4);
    EXPECT_EQ(listener.texts.size(), 0U);
}

TEST_F(RenewalTest, socket_withItsAuthority_trustsTheServer)
{
    const TestFolder folder;
    ClientOptions options;
    for (const auto &name : {std::string(), folder.write("ca.pem", testAuthority().toStdString())}) {
        options.caFile = name;
        api->setClientOptions(options);
        subscribe(listener);
        QSignalSpy errors(socket(), &QWebSocket::sslErrors);
        ASSERT_TRUE(waitUntil([this] { return socket()->isValid(); }));
        EXPECT_EQ(errors.isEmpty(), !name.empty());
    }
}

/// A service whose tokens live for two seconds, and which loses two renewals of three. Everything else is refused
/// without a valid token, and answered at once with one.
struct ShortTokens {
    Answer serve(const ReceivedRequest &request)
    {
        const QByteArray &path = request.target, token = request.header("Authorization");
        if (request.header("User-Agent") != "Velmora/" VELMORA_VERSION)
            return answer(400);
        if (path.startsWith("/s/"))
            return answer(204);
        if (path == "/api/auth/refresh" && ++tries % 3 != 0)
            return tries % 3 == 1 ? hangUp() : answer(503);
        if (path.startsWith("/api/auth/"))
            return answer(200, "{\"idToken\":\"" + QByteArray::number(age.elapsed()) +
                                   "\",\"refreshToken\":\"r\",\"expiresIn\":2}");
        if (token.isEmpty() || age.elapsed() - token.toLongLong() > 2000)
            return answer(401).closed();
        if (path.startsWith("/socket/"))
            return server.greet(request);
        return answer(200, path == "/api/job/key" ? R"({"key":{"plaintextKey":"MDEyMzQ1Njc4OWFiY2RlZg=="}})"
                                                  : "{\"uri\":\"https://" + server.host() + "/s/up\",\"headers\":{}}");
    }

    SocketServer &server;
    QElapsedTimer age = {};
    int tries = 0;
};

TEST_F(RenewalTest, night_shortTokensAndALossyService_loseNoOperation)
{
    const ScopedTrust trust;
    ShortTokens service{server};
    service.age.start();
    server.setHandler([&](const ReceivedRequest &request) { return service.serve(request); });
    ClientOptions options;
    options.keepAlive = true;
    api->setClientOptions(options);
    partsOf(*api).session.setPauseUnit(200); // of 200 and 400 ms: longer than what is left of the old token
    api->logUserIn("ada", "pw", "", {});
    ASSERT_TRUE(waitUntil([this] { return api->isUserLoggedIn(); }));

    const TestFolder folder;
    const std::string file = folder.write("file", "plain text");
    int done = 0, failed = 0, rounds = 0;
    const auto count = [&](const ApiError &error, const auto &...) { ++(succeeded(error) ? done : failed); };
    QTimer round;
    QObject::connect(&round, &QTimer::timeout, [&] {
        const std::string job = "J" + std::to_string(++rounds); // whose key and address nobody has asked for
        api->getJobDetails(job, count);
        api->uploadFile({file, job, 0}, {}, count);
        api->subscribeToJob(job, {}, count);
        api->unsubscribeFromJob("J" + std::to_string(rounds - 40));
    });
    round.start(50);
    EXPECT_TRUE(waitUntil([&] { return service.tries >= 12; }, 20000));
    round.stop();
    const auto opened = [this] {
        return std::count_if(server.clients().begin(), server.clients().end(),
                             [](auto &each) { return each.accepted; });
    };
    EXPECT_TRUE(waitUntil([&] { return done == 2 * rounds && opened() == rounds; })) << opened();
    EXPECT_EQ(failed, 0) << "of " << 3 * rounds;
    EXPECT_GT(rounds, 40);
}

} // namespace
