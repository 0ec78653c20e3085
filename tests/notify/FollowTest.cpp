// A followed job: whatever happens to it, its socket, the service or the session, it has one end, with the right
// reason.

#include "SocketFixture.h"

#include <QMap>

namespace {

const std::string unknown = "Error Following Job";
const Answer details = answer(200, R"({"jobId":"J1"})");

/// A service with one job, a session that is signed in, and an application that follows the job.
class FollowTest : public NotifyTest {
public:
    using NotifyTest::api;
    using NotifyTest::server;

    struct Follower {
        std::vector<int> updates; ///< the progress of the first simulation
        std::size_t simulations = 0;
        int ends = 0;
        ApiError error;
        JobDetails job;
        std::function<void()> inUpdate, inEnd; ///< run once
    };

    void SetUp() override
    {
        server.setRest([this](const ReceivedRequest &request) { return serve(request.target.mid(5)); }); // "/api/"
        api->logUserIn("u@example.com", "p", "", {});
        ASSERT_TRUE(waitUntil([this] { return api->isUserLoggedIn(); }));
    }
    Answer serve(const QByteArray &operation)
    {
        ++asked[operation];
        if (operation.startsWith("auth/"))
            return tokens;
        if (operation == "job/progress")
            return answer(200, R"({"jobId":"J1","simulationProgressList":[{"simulationId":"s1","progress":10}]})");
        if (!faults.isEmpty())
            return faultsStay ? faults.first() : faults.takeFirst();
        QByteArray steps = R"({"jobStatus":"RUNNING","jobStatusDate":1})";
        for (int i = 0; i < history.size(); ++i)
            steps += R"(,{"jobStatus":")" + history[i] + R"(","jobStatusDate":)" + QByteArray::number(i + 2) + "}";
        return answer(200, R"({"jobId":"J1","jobStatus":[)" + steps + "]}");
    }
    void follow(Follower &by)
    {
        partsOf(*api).followers.setPauses(pauses);
        const auto act = [](std::function<void()> &action) {
            if (const auto once = std::exchange(action, nullptr))
                once();
        };
        api->followJob(
            "J1",
            [&by, act, owned = std::string(100, 'x')](const JobProgress &progress) {
                EXPECT_EQ(by.ends, 0) << "after the end";
                by.updates.push_back(progress.simulationProgressList.front().progress);
                by.simulations = progress.simulationProgressList.size();
                act(by.inUpdate);
                EXPECT_EQ(progress.jobId + owned, "J1" + std::string(100, 'x')) << "exists until the callback returns";
            },
            [&by, act, owned = std::string(100, 'x')](const ApiError &error, const JobDetails &job) {
                ++by.ends;
                by.error = error;
                by.job = job;
                act(by.inEnd);
                EXPECT_EQ(job.jobId + owned, by.job.jobId + std::string(100, 'x'))
                    << "exists until the callback returns";
            });
    }
    SocketConnection *following() { return partsOf(*api).followers.sockets().findChild<SocketConnection *>(); }
    bool isOpen()
    {
        const auto sockets = following() ? following()->client()->findChildren<QWebSocket *>() : QList<QWebSocket *>();
        return !sockets.isEmpty() && sockets.last()->isValid();
    }
    bool isIdle() { return networkOf(*api).findChildren<QNetworkReply *>().isEmpty(); }
    /// Follows, and waits until the socket is open and the first questions are answered.
    void start(Follower &by)
    {
        follow(by);
        EXPECT_TRUE(waitUntil([&] { return !by.updates.empty() && isOpen() && isIdle(); }));
        settle();
    }
    /// The newest socket.
    std::size_t line() const
    {
        std::size_t newest = server.clients().size();
        while (newest-- > 0 && (!server.clients()[newest].accepted || server.clients()[newest].gone))
            ;
        return newest;
    }
    void send(const char *text) { server.send(line(), text); }
    void become(const char *status) { history.append(status); }
    /// The job's status changes, and a message says so.
    void announce(const char *status)
    {
        become(status);
        send(R"({"jobId":"J1","status":")" + QByteArray(status) + R"(","message":"Job status is )" + status + "\"}");
    }
    void send(const QByteArray &text) { send(text.constData()); }
    void drop()
    {
        ASSERT_LT(line(), server.clients().size()) << "there is no socket";
        server.drop(line(), Drop::Reset);
    }
    void awaitSocket(std::size_t after)
    {
        EXPECT_TRUE(waitUntil([=] { return line() != after && line() < server.clients().size() && isOpen(); }));
    }
    void fail(const Answer &how, int times = 1)
    {
        for (int i = 0; i < times; ++i)
            faults.append(how);
    }

    FollowPauses pauses{60000, 5, 5, 20, 5000, 5000};
    QList<Answer> faults; ///< of the job's details
    bool faultsStay = false;
    QByteArrayList history;
    QMap<QByteArray, int> asked;
    Answer tokens = answer(200, R"({"idToken":"first","refreshToken":"r","expiresIn":3600})");
    ScopedTrust trust;
    Follower own, second;
};

using T = FollowTest;

struct Row {
    const char *name;
    int code;
    std::string title;
    int questions; ///< for the details; 0: any number
    std::function<void(T &)> before;
    std::function<void(T &)> then; ///< when the job is followed, and the socket open; empty: not waited for

    friend std::ostream &operator<<(std::ostream &stream, const Row &row) { return stream << row.name; }
};

constexpr auto none = [](T &) {};
constexpr auto byAsking = [](T &t) { t.pauses.ask = 20; };

/// Neither socket nor question goes out without a token.
void loseDuringARenewal(T &t)
{
    t.tokens = t.tokens.paused();
    fire(renewalTimerOf(*t.api));
    const std::size_t before = t.line();
    t.become("FINISHED");
    t.drop();
    EXPECT_TRUE(waitUntil([&] { return !t.following() && t.server.pausing() == 1; }));
    for (int i = 0; i < 20; ++i)
        settle();
    EXPECT_EQ(t.asked["job/load"], 1);
    t.server.resume();
    EXPECT_TRUE(waitUntil([&] { return t.line() != before && t.line() < t.server.clients().size(); }));
}

const Row rows[] = {
    {"finishes", 200, "Job Finished", 2, none, [](T &t) { t.announce("FINISHED"); }},
    {"fails", 400, "Job Failed", 2, none, [](T &t) { t.announce("Failed"); }},
    {"stoppedElsewhere", 400, "Job Stopped", 2, none, [](T &t) { t.announce("STOPPED"); }},
    {"archivedInSilence", 400, "Job Archived", 0, byAsking, [](T &t) { t.become("ARCHIVED"); }},
    {"finishedInSilence", 200, "Job Finished", 0, byAsking, [](T &t) { t.become("FINISHED"); }},
    {"endedBefore", 400, "Job Stopped", 1, [](T &t) { t.become("KILLED"); }, {}},
    {"finishedThenArchived",
     200,
     "Job Finished",
     1,
     [](T &t) {
         t.become("FINISHED");
         t.become("ARCHIVED");
     },
     {}},
    {"oneOfTwoSimulationsFinished", 200, "Job Finished", 0, none,
     [](T &t) {
         const std::size_t first = t.line();
         t.send(R"({"simulationId":"s1","progress":100,"message":"simulation finished"})");
         t.awaitSocket(first);
         EXPECT_EQ(t.own.updates.back(), 100);
         t.announce("FINISHED");
     }},
    {"closedWithTheStatus", 400, "Job Failed", 2, none,
     [](T &t) {
         t.become("FAILED");
         t.server.close(t.line(), 1000, "Job status is FAILED");
     }},
    {"closedThoughItGoesOn", 400, "Job Stopped", 0, none,
     [](T &t) {
         const std::size_t first = t.line();
         t.server.close(first, 1000, "maintenance");
         t.awaitSocket(first);
         t.announce("STOPPED");
     }},
    {"socketLostTwice", 200, "Job Finished", 0, none,
     [](T &t) {
         for (int i = 0; i < 2; ++i) {
             const std::size_t before = t.line();
             t.drop();
             t.awaitSocket(before);
         }
         t.announce("FINISHED");
     }},
    {"socketLostAtTheEnd", 200, "Job Finished", 2, none,
     [](T &t) {
         t.become("FINISHED");
         t.drop();
     }},
    {"handshakeRefused",
     200,
     "Job Finished",
     4,
     [](T &t) {
         t.server.setHandshake(Handshake::RefuseAndKeepOpen);
         t.fail(answer(503), 3);
         t.become("FINISHED");
     },
     {}},
    {"handshakeIgnored",
     200,
     "Job Finished",
     2,
     [](T &t) {
         t.server.setHandshake(Handshake::Ignore);
         t.fail(answer(503));
         t.become("FINISHED");
     },
     {}},
    {"failuresOfTheMoment",
     200,
     "Job Finished",
     11,
     [](T &t) {
         for (const Answer &each :
              {answer(500), answer(429), answer(408), answer(302), answer(200, "{}"), answer(200, "no JSON"), hangUp(),
               details.cut(details.bytes.size() - 1), answer(404), answer(404)})
             t.fail(each);
         t.become("FINISHED");
     },
     {}},
    {"serviceSilent",
     200,
     "Job Finished",
     3,
     [](T &t) {
         t.pauses.answer = 500;
         t.fail(silence());
         t.become("FINISHED");
     },
     {}},
    {"unknownJob", 404, unknown, 3, [](T &t) { t.fail(answer(404), 3); }, {}},
    {"anothersJob", 403, unknown, 3, [](T &t) { t.fail(answer(403, R"({"message":"It is not yours"})"), 3); }, {}},
    {"refusedToken", 401, unknown, 5, [](T &t) { t.fail(answer(401), 5); }, {}},
    {"tokenRenewedAfterARefusal", 200, "Job Finished", 2,
     [](T &t) {
         t.pauses.longest = t.pauses.first = 60000;
         t.fail(answer(401));
         t.become("FINISHED");
     },
     [](T &t) { fire(renewalTimerOf(*t.api)); }},
    {"lostDuringARenewal", 200, "Job Finished", 2, none, loseDuringARenewal},
    {"lostDuringARenewalKeptAlive", 200, "Job Finished", 2,
     [](T &t) { t.api->setClientOptions(ClientOptions::robust()); }, loseDuringARenewal},
    {"renewalRefused", 401, unknown, 6, [](T &t) { t.pauses.token = 50; },
     [](T &t) {
         t.tokens = answer(400);
         fire(renewalTimerOf(*t.api));
         t.fail(answer(401), 5);
         t.drop();
     }},
    {"userSignsOut", 400, unknown, 1, none, [](T &t) { t.api->clearActiveAccount(); }},
    {"anotherUserSignsIn", 400, unknown, 1, none, [](T &t) { t.api->logUserIn("v@example.com", "p", "", {}); }},
    {"followedAgain", 200, "Job Finished", 3, none,
     [](T &t) {
         t.start(t.second);
         t.announce("FINISHED");
     }},
};

class FollowEndTest : public FollowTest, public testing::WithParamInterface<Row> {};

TEST_P(FollowEndTest, followJob_anyEvent_hasOneEndWithItsReason)
{
    const Row &row = GetParam();
    row.before(*this);
    if (row.then) {
        start(own);
        row.then(*this);
    } else {
        follow(own);
    }
    EXPECT_TRUE(own.ends == 0) << "never inside a call";
    ASSERT_TRUE(waitUntil([this] { return own.ends + second.ends > 0; }));
    const Follower &ended = own.ends > 0 ? own : second;
    EXPECT_EQ(ended.error.errorCode, row.code);
    EXPECT_EQ(ended.error.errorTitle, row.title);
    EXPECT_EQ(ended.job.jobId, row.title == unknown ? "" : "J1");
    EXPECT_EQ(ended.error.errorMessage.empty(), row.code == 200);
    EXPECT_EQ(row.questions == 0 ? 0 : asked["job/load"], row.questions);
    for (std::size_t i = 1; i < own.updates.size(); ++i)
        EXPECT_LT(own.updates[i - 1], own.updates[i]);
    for (int i = 0; i < 20; ++i)
        settle();
    EXPECT_EQ(own.ends + second.ends, 1);
    EXPECT_FALSE(following()) << "its socket is closed";
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
        {"", 50, 2},
        {R"({"status":"QUEUED"})", 50, 3}};
    for (const auto &message : messages) {
        QSignalSpy received(following()->client(), &CloudWebSocketClient::signalMessageReceived);
        send(message.text);
        ASSERT_TRUE(
            waitUntil([&] { return !received.isEmpty() && asked["job/load"] >= message.questions && isIdle(); }));
        settle();
        EXPECT_EQ(own.updates.back(), message.progress) << message.text;
        EXPECT_EQ(asked["job/load"], message.questions) << message.text;
    }
    EXPECT_EQ(own.updates, (std::vector<int>{10, 40, 41, 50}));
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
            ASSERT_TRUE(waitUntil([&] { return inEnd ? own.ends == 1 : own.updates.size() == 1; }));
            const bool follows = &action == &actions[2];
            if (follows && !inEnd)
                become("FAILED");
            if (follows) {
                EXPECT_TRUE(waitUntil([this] { return second.ends == 1; }));
            }
            for (int i = 0; i < 20; ++i)
                settle();
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
}

TEST_F(FollowTest, subscription_sameJob_isNotDisturbed)
{
    start(own);
    const std::size_t followed = line();
    ASSERT_NO_FATAL_FAILURE(subscribe(listener));
    ASSERT_TRUE(waitUntil([this] { return socket() && socket()->isValid(); }));
    const std::size_t subscribedTo = line();
    EXPECT_NE(followed, subscribedTo);
    server.send(followed, R"({"simulationId":"s1","progress":30})");
    server.send(subscribedTo, "flows");
    ASSERT_TRUE(waitUntil([this] { return own.updates.back() == 30 && listener.texts == Texts{"flows"}; }));
    api->stopFollowing("J1");
    EXPECT_TRUE(gone(followed));
    start(own = {});
    expectFlow(listener, subscribedTo);
    api->unsubscribeFromJob("J1");
    announce("FINISHED");
    EXPECT_TRUE(waitUntil([this] { return own.ends == 1; }));
}

} // namespace
