// An application without a QCoreApplication: the library makes one, and the application calls processEvents.

#include "support/Loopback.h"
#include "support/Parts.h"

#include <thread>

using namespace Velmora;

namespace {

struct ApplicationTest : testing::Test {
    void TearDown() override
    {
        api.reset();
        EXPECT_EQ(QCoreApplication::instance(), nullptr) << "the application outlives the last session";
        EXPECT_EQ(log.warnings().join(QLatin1Char('\n')).toStdString(), "");
    }

    /// Processes events, as such an application does, until the condition holds or the deadline passes.
    bool pumpUntil(const std::function<bool()> &condition)
    {
        CloudAPI &pumped = *api; // may be destroyed by then
        for (QDeadlineTimer deadline(10000); !condition() && !deadline.hasExpired();)
            pumped.processEvents();
        return condition();
    }
    /// Loads a job and calls `then` inside the callback. @return whether that ran
    bool load(const std::function<void()> &then = [] {})
    {
        bool loaded = false;
        api->getJobDetails("J1", [&](const auto &, const auto &) { loaded = true, then(); });
        return pumpUntil([&] { return loaded; });
    }

    LogCatcher log;
    std::unique_ptr<CloudAPI> api = std::make_unique<CloudAPI>(); // servers come after it: sockets need an application
    QPointer<QCoreApplication> made = QCoreApplication::instance();
};

TEST_F(ApplicationTest, application_severalSessions_livesUntilTheLastEnds)
{
    auto second = std::make_unique<CloudAPI>();
    std::swap(api, second);
    second.reset();
    ASSERT_TRUE(made);
    EXPECT_EQ(QCoreApplication::instance(), made);
    std::optional<Loopback> loopback{std::in_place};
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(load());
    bool kept = false;
    const QPointer<QObject> marked(new QObject);
    EXPECT_TRUE(load([&] { marked->deleteLater(), api->processEvents(), kept = bool(marked); }) && kept);
    api->processEvents();
    EXPECT_FALSE(marked) << "is not deleted further down the stack, but here";
    EXPECT_TRUE(networkOf(*api).findChildren<QNetworkReply *>().isEmpty());
    loopback.reset();
    api.reset();
    EXPECT_FALSE(made);
}

TEST_F(ApplicationTest, application_lastSessionDestroyedInACallback_outlivesTheRunningLoop)
{
    const auto destroy = [this] {
        api.reset();
        EXPECT_TRUE(made) << "its event loop still runs";
    };
    bool outer = false;
    const std::function<void()> pumping = [&] { EXPECT_TRUE(load(destroy)); };
    const std::function<void()> pumpingInsideACallback = [&] {
        EXPECT_TRUE(load([&] { pumping(), outer = bool(made); }) && outer);
    };
    const std::function<void()> asking = [&] {
        api->getJobDetails("J1", [&](const auto &, const auto &) { destroy(); });
        EXPECT_EQ(api->currentNetworkStatus(), -1);
        EXPECT_FALSE(api);
    };
    for (const auto &loop : {pumping, pumpingInsideACallback, asking}) {
        made = QCoreApplication::instance();
        Loopback loopback;
        loopback.server.setHandler(
            [](const ReceivedRequest &request) { return request.target == "/api/job/load" ? answer(200) : silence(); });
        api->getUsersFileList(true, [](const auto &, const auto &) { ADD_FAILURE() << "called after the end"; });
        EXPECT_TRUE(pumpUntil([&] { return loopback.server.pausing() == 1; }));
        loop();
        EXPECT_FALSE(made);
        api = std::make_unique<CloudAPI>(); // again
        EXPECT_TRUE(QCoreApplication::instance());
    }
}

/// A session on a plain thread, which goes on from step to step.
struct SessionThread {
    enum Step { Starting, Constructed, Asking, Answered, Ending };

    bool reaches(Step wanted)
    {
        for (QDeadlineTimer deadline(10000); step != wanted && !deadline.hasExpired();)
            QCoreApplication::processEvents(); // this thread serves the requests
        return step == wanted;
    }
    void run()
    {
        CloudAPI session;
        step = Constructed;
        while (step < Asking)
            std::this_thread::yield();
        session.getJobDetails("J1", [this](const auto &, const auto &) { step = Answered; });
        while (step < Ending)
            session.processEvents();
    }

    std::atomic<int> step{Starting};
    std::thread thread{[this] { run(); }};
};

TEST_F(ApplicationTest, session_onAnyThread_completesWhateverSessionsEndedBefore)
{
    const auto run = [this] {
        api.reset();
        SessionThread first; // makes the application object, and ends before the others
        bool good = first.reaches(SessionThread::Constructed);
        SessionThread second;
        good = second.reaches(SessionThread::Constructed) && good;
        api = std::make_unique<CloudAPI>();
        const Loopback loopback;
        for (SessionThread *each : {&first, &second}) {
            each->step = SessionThread::Asking;
            good = each->reaches(SessionThread::Answered) && good;
            each->step = SessionThread::Ending;
            each->thread.join();
            good = load() && good; // on the main thread
        }
        std::_Exit(good ? 0 : 1);
    };
    // In a process of its own: the application object stays when its thread has gone.
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST_F(ApplicationTest, wait_anyThread_sleepsUntilAnEventOrItsTime)
{
    const Loopback loopback;
    const auto wait = [](CloudAPI *session, const std::function<void()> &inCallback) {
        QElapsedTimer timer;
        [[maybe_unused]] std::clock_t start = 0;
        session->processEvents(-1);
        do { // until nothing is left of what began earlier
            timer.start();
            start = std::clock();
        } while (session->processEvents(300));
#ifndef Q_OS_WIN // where it is no clock of the processor
        EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 10) << "polls";
#endif
        EXPECT_GE(timer.elapsed(), 280);
        bool loaded = false;
        session->getJobDetails("J1", [&](const auto &, const auto &) { loaded = true, inCallback(); });
        while (!loaded && session->processEvents(10000))
            ;
        EXPECT_TRUE(loaded);
    };
    std::atomic<bool> ended = false;
    std::thread plain([&] {
        const auto session = std::make_unique<CloudAPI>();
        wait(session.get(), [] {});
        ended = true;
    });
    while (!ended) // serves the other thread's requests
        api->processEvents(100);
    plain.join();
    wait(api.get(), [&] {
        while (api->processEvents(10)) // inside a callback
            ;
    });
    wait(api.get(), [&] { api.reset(); });
    EXPECT_FALSE(api);
    api = std::make_unique<CloudAPI>(); // with Qt 6, trust is restored by an application only
}

TEST_F(ApplicationTest, application_loopOfTheCallerRuns_stays)
{
    std::optional<Loopback> loopback{std::in_place};
    QEventLoop loop;
    api->getJobDetails("J1", [&](const auto &, const auto &) { api.reset(), loop.quit(); });
    loop.exec();
    EXPECT_TRUE(made && !api);
    loopback.reset();
    api = std::make_unique<CloudAPI>(); // finds it and uses it again
    EXPECT_EQ(QCoreApplication::instance(), made);
}

} // namespace
