// A host without a QCoreApplication of its own: the library makes one, and the host pumps.

#include "support/Internals.h"
#include "support/Loopback.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkReply>
#include <QPointer>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace Velmora;

namespace {

/// Pumps as such a host does, until the condition holds or the deadline passes.
bool pumpUntil(CloudAPI &api, const std::function<bool()> &condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) { // first of all: the session may be gone
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        api.processEvents();
        std::this_thread::yield();
    }
    return true;
}

class ApplicationTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(QCoreApplication::instance(), nullptr);
        api = std::make_unique<CloudAPI>();
    }
    void TearDown() override
    {
        api.reset();
        second.reset();
        EXPECT_EQ(QCoreApplication::instance(), nullptr) << "the application outlives the last session";
        EXPECT_EQ(log.warnings().join(QLatin1Char('\n')).toStdString(), "");
    }

    bool load(CloudAPI &session)
    {
        bool loaded = false;
        session.getJobDetails("J1",
                              [&](const ApiError &error, const JobDetails &) { loaded = error.errorCode == 200; });
        return pumpUntil(session, [&] { return loaded; });
    }

    LogCatcher log;
    std::unique_ptr<CloudAPI> api; // servers come after it: sockets need an application
    std::unique_ptr<CloudAPI> second;
};

TEST_F(ApplicationTest, LivesAsLongAsAnySession)
{
    const QPointer<QCoreApplication> made = QCoreApplication::instance();
    ASSERT_TRUE(made);
    second = std::make_unique<CloudAPI>();
    EXPECT_EQ(QCoreApplication::instance(), made);
    api.reset();
    EXPECT_EQ(QCoreApplication::instance(), made);
    {
        Loopback loopback;
        EXPECT_TRUE(load(*second));
    }
    second.reset();
    EXPECT_FALSE(made);
}

TEST_F(ApplicationTest, PumpingDeliversRequestsTimersAndReleasesReplies)
{
    {
        Loopback loopback;
        loopback.server.next(answer(200, R"({"idToken":"a","refreshToken":"r","expiresIn":5})"));
        loopback.server.next(answer(200, R"({"idToken":"b","expiresIn":3600})"));
        api->logUserIn("ada", "pw", "", {});
        EXPECT_TRUE(pumpUntil(*api, [&] { return loopback.server.requests().size() == 2; })) << "renews at once";
        EXPECT_TRUE(pumpUntil(*api, [&] { return api->isUserLoggedIn(); }));
        for (int i = 0; i < 20; ++i)
            EXPECT_TRUE(load(*api));
        api->processEvents();
        EXPECT_TRUE(networkOf(*api).findChildren<QNetworkReply *>().isEmpty());
        EXPECT_EQ(loopback.server.requests().last().header("Authorization"), "b");
    }
    api.reset();
}

TEST_F(ApplicationTest, LastSessionDestroyedInsideItsCallback)
{
    for (int life = 0; life < 3; ++life) {
        const QPointer<QCoreApplication> made = QCoreApplication::instance();
        Loopback loopback;
        bool called = false;
        api->getUsersFileList(true, [&](const auto &, const auto &) { ADD_FAILURE() << "called after the end"; });
        loopback.server.next(silence());
        pumpUntil(*api, [&] { return loopback.server.pausing() == 1; });
        api->getJobDetails("J1", [&](const auto &, const auto &) {
            api.reset();
            EXPECT_TRUE(made) << "its event loop still runs";
            called = true;
        });
        CloudAPI &pumped = *api;
        EXPECT_TRUE(pumpUntil(pumped, [&] { return called; }));
        EXPECT_FALSE(made);
        api = std::make_unique<CloudAPI>(); // another life
        EXPECT_TRUE(QCoreApplication::instance());
    }
    api.reset();
}

TEST_F(ApplicationTest, LastSessionDestroyedInsideNestedPumping)
{
    const QPointer<QCoreApplication> made = QCoreApplication::instance();
    Loopback loopback;
    bool inner = false, outer = false;
    api->getJobDetails("J1", [&](const auto &, const auto &) {
        api->getAllJobDetails([&](const auto &, const auto &) {
            api.reset();
            inner = true;
        });
        CloudAPI &pumped = *api;
        EXPECT_TRUE(pumpUntil(pumped, [&] { return inner; }));
        EXPECT_TRUE(made);
        outer = true;
    });
    CloudAPI &pumped = *api;
    EXPECT_TRUE(pumpUntil(pumped, [&] { return outer; }));
    EXPECT_FALSE(made);
}

TEST_F(ApplicationTest, LastSessionDestroyedWhileWaitingForTheNetworkStatus)
{
    Loopback loopback;
    loopback.server.setHandler(
        [](const ReceivedRequest &request) { return request.target == "/api/job/load" ? answer(200) : silence(); });
    api->getJobDetails("J1", [&](const auto &, const auto &) { api.reset(); });
    EXPECT_EQ(api->currentNetworkStatus(), -1);
    EXPECT_FALSE(api);
}

TEST_F(ApplicationTest, StaysWhileTheHostRunsALoopOnIt)
{
    const QPointer<QCoreApplication> made = QCoreApplication::instance();
    {
        Loopback loopback;
        QEventLoop loop;
        api->getJobDetails("J1", [&](const auto &, const auto &) {
            api.reset();
            loop.quit();
        });
        loop.exec();
        EXPECT_TRUE(made);
    }
    EXPECT_FALSE(api);
    api = std::make_unique<CloudAPI>(); // finds it, and takes it over again
    EXPECT_EQ(QCoreApplication::instance(), made);
    api.reset();
}

TEST(HostApplicationTest, IsUsedAndNotDeleted)
{
    int argc = 0;
    QCoreApplication host(argc, nullptr);
    {
        CloudAPI api;
        EXPECT_EQ(QCoreApplication::instance(), &host);
    }
    EXPECT_EQ(QCoreApplication::instance(), &host);
}

} // namespace
