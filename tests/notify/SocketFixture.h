#pragma once

// What the tests of job subscriptions share: an application's callbacks, an independent server, a view of the sockets.

#include "SocketServer.h"

#include "notify/CloudWebSocketClient.h"
#include "notify/SocketConnection.h"
#include "notify/SocketManager.h"
#include "support/Loopback.h"
#include "support/Parts.h"

#include <QSignalSpy>
#include <QWebSocket>

using namespace Velmora;
using Handshake = SocketServer::Handshake;
using Drop = SocketServer::Drop;

namespace {

using Texts = std::vector<std::string>;

constexpr int frame = -1, reset = -2, finish = -3, silentHeartbeats = -4;

constexpr auto success = "Socket Message Success", finished = "Simulation Finished",
               lost = "Unexpected Socket Disconnection", invalid = "Invalid Socket Message",
               disconnected = "socket disconnected";

inline void fire(QTimer *timer) { ASSERT_TRUE(timer && QMetaObject::invokeMethod(timer, "timeout")); }

/// The callbacks of one subscription and what they received.
struct Listener {
    Texts texts;
    bool finish = false; ///< the last call was that of the finish callback
    ApiError error;      ///< the last one's
    std::string jobId;
    std::function<void()> then; ///< run once, inside the next callback

    CloudAPI::JobMessage callback(bool finishes)
    {
        return [this, finishes, owned = std::string(100, 'x')](const ApiError &outcome, const std::string &job,
                                                               const std::string &text) {
            texts.push_back(text);
            finish = finishes;
            error = outcome;
            jobId = job;
            const std::string copy = text;
            if (const auto action = std::exchange(then, nullptr))
                action();
            // Whatever it did, the function itself and its arguments still exist.
            EXPECT_EQ(owned + job + text + outcome.errorTitle, std::string(100, 'x') + jobId + copy + error.errorTitle);
        };
    }
};

struct NotifyTest : testing::Test {
    SocketManager &sockets() { return partsOf(*api).sockets; }
    QTimer *heartbeat() { return heartbeatOf(*api); }
    auto connection(const char *job) { return sockets().findChild<SocketConnection *>(QString::fromLatin1(job)); }
    bool subscribed(const char *job = "J1") { return connection(job) != nullptr; }
    /// Null once the job's client has given up, or when the job is not subscribed.
    static QWebSocket *socketOf(const SocketConnection *connection)
    {
        const auto children = connection ? connection->client()->findChildren<QWebSocket *>() : QList<QWebSocket *>();
        return children.isEmpty() ? nullptr : children.last(); // an earlier one may not be deleted yet
    }
    QWebSocket *socket(const char *job = "J1") { return socketOf(connection(job)); }
    static bool isOpen(const QWebSocket *socket) { return socket && socket->isValid(); }
    bool opened(const char *job = "J1") { return EVENTUALLY(isOpen(socket(job))); }

    void subscribe(Listener &to, const char *job = "J1")
    {
        api->subscribeToJob(job, to.callback(false), to.callback(true));
    }
    bool accepted(std::size_t client)
    {
        return EVENTUALLY(server.clients().size() > client && server.clients()[client].accepted);
    }
    /// Accepted, and known to be open on this side.
    void open(Listener &to, std::size_t client = 0, const char *job = "J1")
    {
        subscribe(to, job);
        ASSERT_TRUE(accepted(client) && opened(job));
    }
    bool gone(std::size_t client) { return EVENTUALLY(server.clients()[client].gone); }
    bool notified(const Listener &by, std::size_t calls = 1) { return EVENTUALLY(by.texts.size() >= calls); }
    /// One heartbeat, answered with a pong that this side has read.
    void beat()
    {
        ASSERT_TRUE(socket());
        QSignalSpy pongs(socket(), &QWebSocket::pong);
        fire(heartbeat());
        ASSERT_TRUE(EVENTUALLY(pongs.count() == 1));
    }
    void beats(int count)
    {
        while (count-- > 0)
            fire(heartbeat());
    }
    /// A text frame arrives (code `frame`), or the connection ends: by a close frame of that code, or as `reset`,
    /// `finish` (TCP's two ways) or `silentHeartbeats` say.
    void happen(std::size_t client, int code, const char *text)
    {
        code == frame              ? server.send(client, text)
        : code >= 0                ? server.close(client, code, text)
        : code == silentHeartbeats ? beats(4)
                                   : server.drop(client, code == reset ? Drop::Reset : Drop::Finish);
    }
    void expectFlow(Listener &own, std::size_t client)
    {
        const std::size_t before = own.texts.size();
        server.send(client, "flows");
        ASSERT_TRUE(notified(own, before + 1));
        EXPECT_EQ(own.texts.back(), "flows");
        EXPECT_FALSE(own.finish);
    }
    /// Four heartbeats; the connection after them is that client.
    void restart(std::size_t client)
    {
        for (int i = 0; i < 3; ++i)
            ASSERT_NO_FATAL_FAILURE(beat());
        fire(heartbeat());
        ASSERT_TRUE(accepted(client) && opened());
    }
    static void settleAll() // what is due, and what that causes
    {
        for (int i = 0; i < 20; ++i)
            settle();
    }
    /// The client has given up: neither a heartbeat nor anything still under way changes anything.
    void expectInert(const Listener &own, std::size_t clients)
    {
        EXPECT_TRUE(EVENTUALLY(!socket()));
        const std::size_t before = own.texts.size();
        beats(5);
        settleAll();
        EXPECT_EQ(own.texts.size(), before);
        EXPECT_EQ(server.clients().size(), clients);
    }
    void expectLoss(const Listener &own, std::size_t clients)
    {
        ASSERT_TRUE(notified(own));
        expectInert(own, clients);
        EXPECT_EQ(own.texts, Texts{disconnected});
        EXPECT_EQ(own.error.errorTitle, lost);
        EXPECT_TRUE(own.finish);
        EXPECT_TRUE(subscribed()) << "stays until the application unsubscribes";
    }

    SocketServer server;
    ScopedEnvironment address{"VELMORA_API_URL", server.host()};
    LogCatcher log;
    Listener listener; // outlives the session that calls it
    std::unique_ptr<CloudAPI> api = std::make_unique<CloudAPI>();
};

} // namespace
