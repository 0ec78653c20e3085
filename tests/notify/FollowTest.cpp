// A followed job: whatever happens to it, its socket, the service or the session, it has one end, with the right
// reason.

#include "SocketFixture.h"

namespace {

const std::string unknown = "Error Following Job", good = "Job Finished";
const Answer details = answer(200, R"({"jobId":"J1"})");

/// A service with one job, a session that is signed in, and an application that follows the job.
struct FollowTest : NotifyTest {
    using T = FollowTest;
    struct Follower {
        std::vector<int> updates; ///< the progress of the first simulation
        std::size_t simulations = 0;
        int ends = 0;
        ApiError error;
        JobDetails job;
        std::function<void()> inUpdate, inEnd; ///< run once

        /// Runs the action. What belongs to the callback must exist until it returns.
        void act(std::function<void()> &action, const std::string &owned, const std::string &argument)
        {
            const std::string before = owned + argument;
            if (const auto once = std::exchange(action, nullptr))
                once();
            EXPECT_EQ(owned + argument, before);
        }
    };

    void SetUp() override
    {
        server.setRest([this](const ReceivedRequest &request) { return serve(request.target.mid(5)); }); // "/api/"
        ASSERT_TRUE(signIn(*api));
    }
    Answer serve(const QByteArray &operation)
    {
        ++asked[operation];
        if (operation.startsWith("auth/"))
            return tokens;
        if (operation == "job/progress")
            return answer(200, R"({"jobId":"J1","simulationProgressList":[{"simulationId":"s1","progress":10}]})");
        if (!faults.isEmpty())
            return faults.takeFirst();
        QByteArray steps = R"({"jobStatus":"RUNNING","jobStatusDate":1})";
        for (int i = 0; i < history.size(); ++i)
            steps += R"(,{"jobStatus":")" + history[i] + R"(","jobStatusDate":)" + QByteArray::number(i + 2) + "}";
        return answer(200, R"({"jobId":"J1","jobStatus":[)" + steps + "]}");
    }
    void follow(Follower &by)
    {
        partsOf(*api).followers.setPauses(pauses);
        const auto owned = std::make_shared<const std::string>(100, 'x');
        held = owned;
        api->followJob(
            "J1",
            [&by, owned](const JobProgress &progress) {
                EXPECT_EQ(by.ends, 0) << "after the end";
                EXPECT_EQ(progress.jobId, "J1");
                by.updates.push_back(progress.simulationProgressList.front().progress);
                by.simulations = progress.simulationProgressList.size();
                by.act(by.inUpdate, *owned, progress.jobId);
            },
            [&by, owned](const ApiError &error, const JobDetails &job) {
                ++by.ends;
                by.error = error;
                by.job = job;
                by.act(by.inEnd, *owned, job.jobId);
            });
    }
    SocketConnection *following() { return partsOf(*api).followers.sockets().findChild<SocketConnection *>(); }
    bool isIdle() { return networkOf(*api).findChildren<QNetworkReply *>().isEmpty(); }
    /// The newest socket.
    std::size_t line() const
    {
        std::size_t newest = server.clients().size();
        while (newest-- > 0 && (!server.clients()[newest].accepted || server.clients()[newest].gone))
            ;
        return newest;
    }

    // What happens, in chains.
    /// Follows, and waits until the socket is open and the first questions are answered.
    T &start(Follower &by)
    {
        follow(by);
        EXPECT_TRUE(EVENTUALLY(!by.updates.empty() && isOpen(socketOf(following())) && isIdle()));
        settle();
        return *this;
    }
    T &become(const char *status) { return history.append(status), *this; }
    T &send(const QByteArray &text) { return server.send(last = line(), text), *this; }
    /// The job's status changes, and a message says so.
    T &announce(const QByteArray &status)
    {
        return become(status).send(R"({"status":")" + status + R"(","message":"Job status is )" + status + "\"}");
    }
    T &close(const char *reason) { return server.close(last = line(), 1000, reason), *this; }
    T &drop() { return server.drop(last = line(), Drop::Reset), *this; }
    T &awaitSocket()
    {
        EXPECT_TRUE(EVENTUALLY(line() != last && line() < server.clients().size() && isOpen(socketOf(following()))));
        return *this;
    }
    T &shake(Handshake how) { return server.setHandshake(how), *this; }
    T &fail(const QList<Answer> &answers) { return faults += answers, *this; }
    T &fail(int status, int times) { return fail(QVector<Answer>(times, answer(status)).toList()); }
    T &pause(int FollowPauses::*which, int milliseconds) { return pauses.*which = milliseconds, *this; }
    T &renew(const Answer &reply)
    {
        tokens = reply;
        fire(renewalTimerOf(*api));
        return *this;
    }
    /// Neither socket nor question goes out without a token.
    T &expectWaiting()
    {
        EXPECT_TRUE(EVENTUALLY(!following() && server.pausing() == 1));
        settleAll();
        EXPECT_EQ(asked["job/load"], 1);
        server.resume();
        return *this;
    }

    FollowPauses pauses{60000, 5, 5, 20, 5000, 5000};
    QList<Answer> faults; ///< of the job's details
    QByteArrayList history;
    QMap<QByteArray, int> asked;
    const Answer goodTokens = answer(200, R"({"idToken":"t","refreshToken":"r","expiresIn":3600})");
    Answer tokens = goodTokens;
    ScopedTrust trust;
    Follower own, second;
    std::weak_ptr<const std::string> held; ///< by the callbacks of the latest call
    std::size_t last = 0;                  ///< the socket to which something happened last
};

using T = FollowTest;
using P = FollowPauses;

struct Row {
    const char *name;
    int code;
    std::string title;
    int questions; ///< for the details; 0: any number
    std::function<void(T &)> before;
    std::function<void(T &)> then = {}; ///< when the job is followed, and the socket open; empty: not waited for

    friend std::ostream &operator<<(std::ostream &stream, const Row &row) { return stream << row.name; }
};

#define DO(...) [](T &t) { t.__VA_ARGS__; }
constexpr auto none = [](T &) {};
const QList<Answer> noAnswers = {answer(200, "{}"), answer(200, ""), hangUp(), details.cut(details.bytes.size() - 1)};

const Row rows[] = {
    {"finishes", 200, good, 2, none, DO(announce("FINISHED"))},
    {"fails", 400, "Job Failed", 2, none, DO(announce("Failed"))},
    {"stoppedElsewhere", 400, "Job Stopped", 2, none, DO(announce("STOPPED"))},
    {"archivedInSilence", 400, "Job Archived", 0, DO(pause(&P::ask, 20)), DO(become("ARCHIVED"))},
    {"endedBefore", 400, "Job Stopped", 1, DO(become("KILLED"))},
    {"finishedThenArchived", 200, good, 1, DO(become("FINISHED").become("ARCHIVED"))},
    {"oneOfTwoSimulationsFinished", 200, good, 0, none,
     [](T &t) {
         t.send(R"({"simulationId":"s1","progress":77,"message":"simulation finished"})").awaitSocket();
         EXPECT_EQ(t.own.updates.back(), 77);
         t.announce("FINISHED");
     }},
    {"manyMessages", 200, good, 2, DO(pause(&P::gap, 2000)),
     [](T &t) {
         for (int i = 0; i < 9; ++i)
             t.send(R"({"simulationId":"s1","status":"S)" + QByteArray::number(i) + "\"}");
         EXPECT_FALSE(waitUntil([&] { return t.asked["job/load"] > 1; }, 100));
         t.announce("FINISHED");
     }},
    {"answeredInTime", 200, good, 2, DO(pause(&P::answer, 1000)),
     [](T &t) {
         EXPECT_FALSE(waitUntil([&] { return t.asked["job/load"] > 1; }, 1300));
         t.announce("FINISHED");
     }},
    {"closedWithTheStatus", 400, "Job Failed", 2, none, DO(become("FAILED").close("Job status is FAILED"))},
    {"closedThoughItGoesOn", 400, "Job Stopped", 0, none, DO(close("maintenance").awaitSocket().announce("STOPPED"))},
    {"socketLostAtTheEnd", 200, good, 2, none, DO(become("FINISHED").drop())},
    {"handshakeRefused", 200, good, 4, DO(shake(Handshake::RefuseAndKeepOpen).fail(503, 3).become("FINISHED"))},
    {"handshakeIgnored", 200, good, 2, DO(shake(Handshake::Ignore).fail(503, 1).become("FINISHED"))},
    {"failuresOfTheMoment", 200, good, 12,
     DO(fail(500, 1).fail(429, 1).fail(408, 1).fail(425, 1).fail(302, 1).fail(noAnswers).fail(404, 2).become(
         "FINISHED"))},
    {"serviceSilent", 200, good, 0, DO(pause(&P::answer, 500).fail({silence()}).become("FINISHED"))},
    {"unknownJob", 404, unknown, 3, DO(fail(404, 3))},
    {"anothersJob", 403, unknown, 3, DO(fail(400, 2).fail(403, 1))},
    {"refusedNowAndThen", 200, good, 6,
     DO(pause(&P::ask, 20).fail(404, 2).fail({details}).fail(404, 2).become("FINISHED"))},
    {"socketLostOften", 200, good, 0, DO(pause(&P::first, 1).pause(&P::longest, 60000)),
     [](T &t) {
         for (int i = 0; i < 16; ++i)
             t.drop().awaitSocket();
         t.announce("FINISHED");
     }},
    {"refusedToken", 401, unknown, 5, DO(fail(401, 5))},
    {"tokenRenewedAfterARefusal", 200, good, 2,
     DO(pause(&P::longest, 60000).pause(&P::first, 60000).fail(401, 1).become("FINISHED")), DO(renew(t.goodTokens))},
    {"lostDuringARenewal", 200, good, 0, none,
     DO(renew(t.goodTokens.paused()).drop().expectWaiting().awaitSocket().announce("FINISHED"))},
    {"lostDuringARenewalKeptAlive", 200, good, 2, DO(api->setClientOptions(ClientOptions::robust())),
     DO(renew(t.goodTokens.paused()).become("FINISHED").drop().expectWaiting())},
    {"renewalRefused", 401, unknown, 6, DO(pause(&P::token, 50)), DO(renew(answer(400)).fail(401, 5).drop())},
    {"userSignsOut", 400, unknown, 1, none, DO(api->clearActiveAccount())},
    {"anotherUserSignsIn", 400, unknown, 1, none, DO(api->logUserIn("v@example.com", "p", "", {}))},
    {"followedAgain", 200, good, 3, none, DO(start(t.second).announce("FINISHED"))},
};

struct FollowEndTest : FollowTest, testing::WithParamInterface<Row> {};

TEST_P(FollowEndTest, followJob_anyEvent_hasOneEndWithItsReason)
{
    const Row &row = GetParam();
    row.before(*this);
    if (row.then)
        row.then(start(own));
    else
        follow(own);
    EXPECT_TRUE(own.ends == 0) << "never inside a call";
    ASSERT_TRUE(EVENTUALLY(own.ends + second.ends > 0));
    const Follower &ended = own.ends > 0 ? own : second;
    EXPECT_EQ(ended.error.errorCode, row.code);
    EXPECT_EQ(ended.error.errorTitle, row.title);
    EXPECT_EQ(ended.job.jobId, row.title == unknown ? "" : "J1");
    EXPECT_EQ(ended.error.errorMessage.empty(), row.code == 200);
    EXPECT_EQ(row.questions == 0 ? 0 : asked["job/load"], row.questions);
    for (std::size_t i = 1; i < own.updates.size(); ++i)
        EXPECT_LT(own.updates[i - 1], own.updates[i]);
    settleAll();
    EXPECT_EQ(own.ends + second.ends, 1);
    EXPECT_FALSE(following()) << "its socket is closed";
    EXPECT_TRUE(held.expired()) << "the callbacks are released";
}

INSTANTIATE_TEST_SUITE_P(Events, FollowEndTest, testing::ValuesIn(rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(FollowTest, messages_anyOrder_giveGrowingUpdatesAndFewQuestions)
{
    start(own);
    const struct {
        const char *text;
        int progress, questions;
    } messages[] = {
        {R"({"simulationId":"s1","progress":40,"status":"RUNNING"})", 40, 2}, // its status is news
        {R"({"simulationId":"s1","progress":20,"status":"RUNNING"})", 40, 2},
        {R"({"simulationId":"s1","progress":41,"status":"RUNNING"})", 41, 2},
        {R"({"simulationProgressList":[{"simulationId":"s2","progress":5},{"simulationId":"s1","progress":50}]})", 50,
         2},
        {R"({"simulationId":"s1","progress":99})", 99, 2},
        {R"({"simulationId":"s1","progress":100})", 100, 3}, // it may have finished
        {R"({"status":"QUEUED"})", 100, 4}};
    for (const auto &message : messages) {
        QSignalSpy received(following()->client(), &CloudWebSocketClient::signalMessageReceived);
        send(message.text);
        ASSERT_TRUE(EVENTUALLY(!received.isEmpty() && asked["job/load"] >= message.questions && isIdle()));
        settle();
        EXPECT_EQ(own.updates.back(), message.progress) << message.text;
        EXPECT_EQ(asked["job/load"], message.questions) << message.text;
    }
    EXPECT_EQ(own.updates, (std::vector<int>{10, 40, 41, 50, 99, 100}));
    EXPECT_EQ(own.simulations, 2U);
    EXPECT_EQ(asked["job/progress"], 1) << "the socket is not silent";
}

TEST_F(FollowTest, callback_anyAction_isTheLastOne)
{
    const std::function<void()> actions[] = {[this] { api->stopFollowing("J1"); }, [this] { api.reset(); },
                                             [this] { follow(second); }, [this] { api->clearActiveAccount(); }};
    for (const auto &action : actions)
        for (const bool inEnd : {false, true}) {
            SCOPED_TRACE(testing::Message() << "action " << &action - actions << ", end " << inEnd);
            own = second = {};
            (inEnd ? own.inEnd : own.inUpdate) = action;
            history.clear();
            become(inEnd ? "FINISHED" : "RUNNING");
            follow(own);
            ASSERT_TRUE(EVENTUALLY(inEnd ? own.ends == 1 : own.updates.size() == 1));
            if (&action == &actions[2]) {
                become("FAILED");
                EXPECT_TRUE(EVENTUALLY(second.ends == 1));
            }
            settleAll();
            EXPECT_EQ(own.ends, inEnd || &action == &actions[3]);
            api = std::make_unique<CloudAPI>();
            SetUp();
        }
    follow(own = {});
    api->clearActiveAccount();
    api->stopFollowing("J1");
    api->stopFollowing("J2");
    settle();
    EXPECT_EQ(own.ends, 0) << "an end that was not yet reported";
    SetUp();
    fail({silence()}).follow(own);
    ASSERT_TRUE(EVENTUALLY(server.pausing() == 1));
    api->stopFollowing("J1");
    EXPECT_TRUE(EVENTUALLY(isIdle())) << "nobody waits for the answer";
}

TEST_F(FollowTest, subscription_sameJob_isNotDisturbed)
{
    start(own);
    const std::size_t followed = line();
    ASSERT_NO_FATAL_FAILURE(subscribe(listener));
    ASSERT_TRUE(opened());
    const std::size_t subscribedTo = line();
    EXPECT_NE(followed, subscribedTo);
    server.send(followed, R"({"simulationId":"s1","progress":30})");
    server.send(subscribedTo, "flows");
    ASSERT_TRUE(EVENTUALLY(own.updates.back() == 30 && listener.texts == Texts{"flows"}));
    api->stopFollowing("J1");
    EXPECT_TRUE(gone(followed));
    start(own = {});
    expectFlow(listener, subscribedTo);
    api->unsubscribeFromJob("J1");
    announce("FINISHED");
    EXPECT_TRUE(EVENTUALLY(own.ends == 1));
}

} // namespace
