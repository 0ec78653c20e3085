// Subscriptions and everything else while the token is being renewed.

#include "SocketFixture.h"

#include <QElapsedTimer>
#include <QTemporaryDir>

namespace {

class RenewalTest : public NotifyTest {
protected:
    QByteArray header(std::size_t client, const char *name)
    {
        return server.clients()[client].header(name);
    }
    void openGate(const char *token)
    {
        isClosed = false;
        sockets().updateCognitoToken(QLatin1String(token));
        sockets().openGate();
    }

    bool isClosed = true;
};

TEST_F(RenewalTest, subscription_duringARenewal_opensWithItsToken)
{
    Listener second, third;
    sockets().setGate([this] { return isClosed; });
    subscribe(listener, "J1");
    subscribe(second, "J2");
    subscribe(third, "J3");
    subscribe(second, "J2");
    api->unsubscribeFromJob("J3");
    beats(5);
    settle();
    EXPECT_EQ(server.clients().size(), 0U);
    openGate("new");
    ASSERT_TRUE(accepted(0) && accepted(1));
    EXPECT_EQ(header(0, "Authorization"), "new");
    EXPECT_EQ(header(0, "User-Agent"), "Velmora/" VELMORA_VERSION);
    ASSERT_TRUE(waitUntil([this] { return socket() && socket()->isValid(); }));

    isClosed = true; // a silent connection is replaced by one that waits, too
    beats(4);
    EXPECT_TRUE(gone(0) && gone(1));
    beats(5);
    settle();
    EXPECT_EQ(server.clients().size(), 2U);
    openGate("newer");
    ASSERT_TRUE(accepted(2) && accepted(3));
    EXPECT_EQ(header(2, "Authorization"), "newer");
    sockets().openGate();
    settle();
    EXPECT_EQ(server.clients().size(), 4U) << "opened once";
    EXPECT_EQ(listener.texts.size() + second.texts.size() + third.texts.size(), 0U);
    isClosed = true;
    subscribe(third, "J4");
    api->clearActiveAccount();
    openGate("newest");
    settle();
    EXPECT_EQ(server.clients().size(), 4U);
}

TEST_F(RenewalTest, socket_withItsAuthority_trustsTheServer)
{
    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("ca.pem")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(testAuthority()) > 0 && file.flush());
    for (const std::string &name : {std::string(), file.fileName().toStdString()}) {
        ClientOptions options;
        options.caFile = name;
        api->setClientOptions(options);
        subscribe(listener);
        QSignalSpy errors(socket(), &QWebSocket::sslErrors);
        ASSERT_TRUE(waitUntil([this] { return socket() && socket()->isValid(); }));
        EXPECT_EQ(errors.isEmpty(), !name.empty());
    }
}

/// A service whose tokens live for two seconds, and which loses two renewals of three. Everything else is refused
/// without a valid token, and answered at once with one.
class ShortTokens {
public:
    explicit ShortTokens(SocketServer &server)
        : m_server(server)
    {
        m_age.start();
    }
    Answer serve(const ReceivedRequest &request)
    {
        const QByteArray &path = request.target;
        if (request.header("User-Agent") != "Velmora/" VELMORA_VERSION)
            return answer(400);
        if (path.startsWith("/s/"))
            return answer(204);
        if (path == "/api/auth/refresh" && ++m_tries % 3 != 0)
            return m_tries % 3 == 1 ? hangUp() : answer(503);
        if (path.startsWith("/api/auth/")) {
            m_issuedAt = m_age.elapsed();
            return answer(200, "{\"idToken\":\"" + QByteArray::number(m_issuedAt) +
                                   "\",\"refreshToken\":\"r\",\"expiresIn\":2}");
        }
        const qint64 issuedAt = request.header("Authorization").toLongLong();
        if (request.header("Authorization").isEmpty() || m_age.elapsed() - issuedAt > 2000)
            return answer(401).closed();
        if (path.startsWith("/socket/"))
            return m_server.greet(request);
        if (path == "/api/job/key")
            return answer(200, R"({"key":{"plaintextKey":"MDEyMzQ1Njc4OWFiY2RlZg=="}})");
        if (path.startsWith("/api/job/files/uploadUrl"))
            return answer(200, "{\"uri\":\"https://" + m_server.host() + "/s/up\",\"headers\":{}}");
        return answer(200, "{}");
    }
    int renewed() const { return m_tries / 3; }

private:
    SocketServer &m_server;
    QElapsedTimer m_age;
    qint64 m_issuedAt = 0;
    int m_tries = 0;
};

TEST_F(RenewalTest, night_shortTokensAndALossyService_loseNoOperation)
{
    const ScopedTrust trust;
    ShortTokens service(server);
    server.setHandler([&](const ReceivedRequest &request) { return service.serve(request); });
    ClientOptions options;
    options.keepAlive = true;
    api->setClientOptions(options);
    partsOf(*api).session.setPauseUnit(200); // of 200 and 400 ms: longer than what is left of the old token
    api->logUserIn("ada", "pw", "", {});
    ASSERT_TRUE(waitUntil([this] { return api->isUserLoggedIn(); }));

    QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("a.dat")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("plain text") > 0 && file.flush());
    int polls = 0, uploads = 0, subscriptions = 0, failed = 0, underWay = 0, rounds = 0;
    const auto count = [&](int &to) {
        ++underWay;
        return [&](const ApiError &error, const auto &) {
            ++(succeeded(error) ? to : failed);
            --underWay;
        };
    };
    QTimer round;
    QObject::connect(&round, &QTimer::timeout, [&] {
        const std::string job = "J" + std::to_string(++rounds); // whose key and address nobody has asked for
        api->getJobDetails(job, count(polls));
        if (rounds % 2 == 0)
            api->uploadFile({file.fileName().toStdString(), job, 0}, {}, count(uploads));
        ++subscriptions;
        api->subscribeToJob(job, {}, [&](const ApiError &, const std::string &, const std::string &) { ++failed; });
        api->unsubscribeFromJob("J" + std::to_string(rounds - 40));
    });
    round.start(50);
    EXPECT_TRUE(waitUntil([&] { return service.renewed() == 4; }, 20000));
    round.stop();
    const auto opened = [&] {
        return std::count_if(server.clients().begin(), server.clients().end(),
                             [](const auto &each) { return each.accepted; });
    };
    EXPECT_TRUE(waitUntil([&] { return underWay == 0 && opened() == subscriptions; })) << opened();
    EXPECT_EQ(failed, 0) << "of " << polls << " polls, " << uploads << " uploads, " << subscriptions
                         << " subscriptions";
    EXPECT_GT(std::min({polls, uploads, subscriptions}), 20);
}

} // namespace
