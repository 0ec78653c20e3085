#pragma once

// What the tests of job subscriptions share: a host, a server of another make, and a view of the sockets.

#include "SocketServer.h"

#include "notify/CloudWebSocketClient.h"
#include "notify/SocketConnection.h"
#include "notify/SocketManager.h"
#include "support/Internals.h"
#include "support/Loopback.h"

#include <QSignalSpy>
#include <QWebSocket>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using Velmora::ApiError;
using Velmora::CloudAPI;
using Velmora::CloudAPIImpl;
using Velmora::SocketConnection;
using Velmora::SocketManager;
using Handshake = SocketServer::Handshake;
using Drop = SocketServer::Drop;

namespace {

struct SocketsTag {
    using Member = std::unique_ptr<SocketManager> CloudAPIImpl::*;
    friend Member reach(SocketsTag);
};
template struct Reach<SocketsTag, &CloudAPIImpl::m_sockets>;

struct HeartbeatTag {
    using Member = std::unique_ptr<QTimer> SocketManager::*;
    friend Member reach(HeartbeatTag);
};
template struct Reach<HeartbeatTag, &SocketManager::m_heartbeat>;

struct ConnectionsTag {
    using Member = QMap<QString, SocketConnection *> SocketManager::*;
    friend Member reach(ConnectionsTag);
};
template struct Reach<ConnectionsTag, &SocketManager::m_connections>;

inline void fire(QTimer *timer) { ASSERT_TRUE(timer && QMetaObject::invokeMethod(timer, "timeout")); }

/// The callbacks of one subscription and what they were told.
struct Listener {
    struct Call {
        bool finish;
        int code;
        std::string title, message, jobId, text;
    };
    std::vector<Call> calls;
    std::function<void()> then; ///< run once, inside the next callback

    CloudAPI::JobMessage callback(bool finish)
    {
        return [this, finish, owned = std::string(100, 'x')](const ApiError &error, const std::string &jobId,
                                                             const std::string &text) {
            calls.push_back({finish, error.errorCode, error.errorTitle, error.errorMessage, jobId, text});
            if (const auto act = std::exchange(then, nullptr))
                act();
            // Whatever it did, the function itself and its arguments are still there.
            EXPECT_EQ(owned, std::string(100, 'x'));
            EXPECT_EQ(jobId, calls.back().jobId);
            EXPECT_EQ(text, calls.back().text);
            EXPECT_EQ(error.errorTitle, calls.back().title);
        };
    }
};

class SocketTest : public testing::Test {
protected:
    SocketManager &sockets() { return *(implOf(*api).*reach(SocketsTag{})); }
    QTimer *heartbeat() { return (sockets().*reach(HeartbeatTag{})).get(); }
    /// Null once the job's client has given up, or when the job is not subscribed.
    QWebSocket *socket(const char *job = "J1")
    {
        SocketConnection *connection = (sockets().*reach(ConnectionsTag{})).value(QString::fromLatin1(job));
        if (!connection)
            return nullptr;
        QWebSocket *alive = nullptr;
        for (QWebSocket *child : connection->client()->findChildren<QWebSocket *>())
            alive = child; // the latest; an earlier one may still wait for its deletion
        return alive;
    }
    bool subscribed(const char *job = "J1")
    {
        return (sockets().*reach(ConnectionsTag{})).contains(QString::fromLatin1(job));
    }

    void subscribe(Listener &to, const char *job = "J1")
    {
        api->subscribeToJob(job, to.callback(false), to.callback(true));
    }
    bool accepted(std::size_t client)
    {
        return waitUntil([=] { return server.clients().size() > client && server.clients()[client].accepted; });
    }
    /// Accepted, and known to be open on this side.
    void open(Listener &to, std::size_t client = 0, const char *job = "J1")
    {
        subscribe(to, job);
        ASSERT_TRUE(accepted(client));
        ASSERT_TRUE(waitUntil([=] { return socket(job) && socket(job)->isValid(); }));
    }
    bool gone(std::size_t client)
    {
        return waitUntil([=] { return server.clients()[client].gone; });
    }
    bool told(const Listener &host, std::size_t calls = 1)
    {
        return waitUntil([&] { return host.calls.size() >= calls; });
    }
    /// One heartbeat, answered with a pong that this side has read.
    void beat()
    {
        ASSERT_TRUE(socket());
        QSignalSpy pongs(socket(), &QWebSocket::pong);
        fire(heartbeat());
        ASSERT_TRUE(waitUntil([&] { return pongs.count() == 1; }));
    }
    void expectFlow(Listener &host, std::size_t client)
    {
        const std::size_t before = host.calls.size();
        server.send(client, "flows");
        ASSERT_TRUE(told(host, before + 1));
        EXPECT_EQ(host.calls.back().text, "flows");
        EXPECT_FALSE(host.calls.back().finish);
    }
    void restart(std::size_t clients)
    {
        for (int i = 0; i < 3; ++i)
            ASSERT_NO_FATAL_FAILURE(beat());
        fire(heartbeat());
        ASSERT_TRUE(accepted(clients));
        ASSERT_TRUE(waitUntil([=] { return socket() && socket()->isValid(); }));
    }
    /// The client has given up: neither a heartbeat nor anything still under way makes a difference.
    void expectInert(const Listener &host, std::size_t clients)
    {
        EXPECT_TRUE(waitUntil([=] { return !socket(); }));
        const std::size_t before = host.calls.size();
        for (int i = 0; i < 5; ++i)
            fire(heartbeat());
        for (int i = 0; i < 20; ++i)
            settle();
        EXPECT_EQ(host.calls.size(), before);
        EXPECT_EQ(server.clients().size(), clients);
    }
    void expectLoss(const Listener &host, const std::string &text)
    {
        ASSERT_EQ(host.calls.size(), 1u);
        EXPECT_EQ(host.calls[0].text, text);
        EXPECT_EQ(host.calls[0].code, 400);
        EXPECT_EQ(host.calls[0].title, "Unexpected Socket Disconnection");
        EXPECT_EQ(host.calls[0].message, "");
        EXPECT_EQ(host.calls[0].jobId, "J1");
        EXPECT_TRUE(host.calls[0].finish);
        EXPECT_TRUE(subscribed()) << "stays until the host unsubscribes";
    }

    SocketServer server;
    ScopedEnvironment address{"VELMORA_API_URL", QByteArray::fromStdString(server.host())};
    LogCatcher log;
    Listener listener; // outlives whoever calls it
    std::unique_ptr<CloudAPI> api = std::make_unique<CloudAPI>();
};

} // namespace
