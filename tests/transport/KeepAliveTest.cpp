// Renewals with `keepAlive`, and by the wall clock: who waits for them, and how the waiting ends.

#include "transport/SessionFixture.h"

namespace {

using KeepAliveTest = SessionTest;

TEST_F(KeepAliveTest, renewalUnderWay_requestsWaitForItsToken)
{
    logIn();
    keepAlive();
    const Answer renewed = answer(200, tokens(3600, "renewed"));
    for (const Answer &first : {renewed, hangUp(), answer(503), answer(200, "<html>"), renewed.cut(90), silence()}) {
        const int before = server.requests().size();
        Completion asked[2];
        session().setRenewalPatience(first.pauseAt == 0 ? 200 : 60000);
        ASSERT_NO_FATAL_FAILURE(renewAndAsk(first, asked));
        EXPECT_TRUE(api->isUserLoggedIn());
        EXPECT_EQ(log.text(), "") << "neither sent nor counted yet";
        const bool isAnswered = first.bytes == renewed.bytes;
        for (const Answer &next : isAnswered ? QList<Answer>() : QList<Answer>{answer(500), answer(502), renewed})
            server.next(next);
        server.resume();
        ASSERT_TRUE(wait(asked[0]) && wait(asked[1]));
        const auto sentNow = server.requests().mid(before);
        EXPECT_EQ(sentNow.size(), isAnswered ? 3 : 6);
        for (int i = 0; i < sentNow.size(); ++i) {
            const bool isRenewal = i < sentNow.size() - 2;
            EXPECT_EQ(sentNow[i].target == "/api/auth/refresh", isRenewal) << i;
            EXPECT_EQ(sentNow[i].header("Authorization"), isRenewal ? "" : "renewed") << i;
            EXPECT_EQ(sentNow[i].body == indented({{"refreshToken", refreshToken}}), isRenewal) << i;
        }
    }
}

TEST_F(KeepAliveTest, renewalFailing_pausesGrowAndWaitingEndsAtLast)
{
    logIn();
    keepAlive(1, 0);
    Completion asked[2];
    ASSERT_NO_FATAL_FAILURE(renewAndAsk(silence(), asked));
    for (const int pause : {1, 2, 4, 8, 16, 30, 30}) {
        ASSERT_TRUE(EVENTUALLY(sessionTimer("pause")->isActive()));
        EXPECT_EQ(sessionTimer("pause")->interval(), pause * 1000);
        settle();
        EXPECT_EQ(asked[1].calls, pause >= 4 ? 1 : 0) << pause;
        server.next(pause == 1 ? silence() : answer(500)); // in all, they wait for more than a second
        sessionTimer("pause")->start(0);
        ASSERT_TRUE(EVENTUALLY(!sessionTimer("pause")->isActive()));
    }
    EXPECT_EQ(asked[0].error.errorCode, 0);
    EXPECT_EQ(server.requests().last().target, "/api/auth/refresh");
    EXPECT_NE(api->lastNetworkError().find("the renewal"), std::string::npos) << api->lastNetworkError();
}

TEST_F(KeepAliveTest, renewalEndsOtherwise_requestsGoOutWithoutAToken)
{
    enum End { Refused, LoggedOut, OtherUser, Resumed, Destroyed };
    server.setHandler([](const ReceivedRequest &request) {
        const bool signsIn = request.target == "/api/auth/login" || request.body.contains("another");
        return signsIn ? answer(200, tokens(3600, "another's")) : answer(401);
    });
    for (const End end : {Refused, LoggedOut, OtherUser, Resumed, Destroyed}) {
        SCOPED_TRACE(end);
        logIn();
        keepAlive();
        Completion asked[2];
        ASSERT_NO_FATAL_FAILURE(renewAndAsk(answer(401), asked));
        const int before = server.requests().size(), renewed = renewals();
        Completion next;
        const std::function<void()> ends[] = {
            [] {}, [&] { api->clearActiveAccount(); }, [&] { api->logUserIn("bob", "pw", "", Into{&next}); },
            [&] { api->resumeSession("another", Into{&next}); }, [&] { api.reset(); }};
        ends[end]();
        server.resume();
        if (end == Destroyed) {
            settle();
            EXPECT_EQ(asked[0].calls + asked[1].calls, 0);
            EXPECT_EQ(server.requests().size(), before);
            break;
        }
        ASSERT_TRUE(wait(asked[0]) && wait(asked[1]));
        ASSERT_TRUE(end < OtherUser || wait(next));
        settle();
        EXPECT_EQ(asked[0].calls + asked[1].calls, 2);
        EXPECT_EQ(asked[0].error.errorCode, 401);
        EXPECT_EQ(api->isUserLoggedIn(), end >= OtherUser);
        EXPECT_EQ(renewals(), renewed + (end == Resumed)) << "not tried again";
        for (const ReceivedRequest &request : server.requests().mid(before))
            EXPECT_TRUE(request.header("Authorization").isNull());
        api = std::make_unique<CloudAPI>();
    }
}

TEST_F(KeepAliveTest, uploadIsCancelled_sendsNothingMore)
{
    logIn();
    keepAlive();
    ASSERT_NO_FATAL_FAILURE(renew(answer(200, tokens(3600)).paused()));
    const FileUploadDetails file{QCoreApplication::applicationFilePath().toStdString(), "J1", 0};
    api->uploadFile(file, {}, Into{&done});
    EXPECT_TRUE(api->cancelUpload(file));
    EXPECT_EQ(done.calls, 1);
    server.resume();
    ASSERT_TRUE(cleared());
    EXPECT_EQ(sent("POST", "/api/job/key"), 0);
    server.next(silence());
    api->uploadFile(file, {}, {});
    ASSERT_TRUE(pausing());
    EXPECT_TRUE(api->cancelUpload(file));
    EXPECT_TRUE(cleared()) << "the request for the key is no longer in flight";
}

TEST_F(KeepAliveTest, renewal_machineWasAsleep_comesAtOnce)
{
    for (const bool keepsAlive : {false, true}) {
        qint64 now = 1000000;
        session().setClock([&] { return now; });
        logIn();
        now += 3595000 - 1;
        ASSERT_TRUE(sessionTimer("watch")->isActive());
        EXPECT_LE(sessionTimer("watch")->interval(), 5000);
        const int before = renewals();
        const auto look = [this] { QMetaObject::invokeMethod(sessionTimer("watch"), "timeout"); };
        look();
        EXPECT_EQ(token(), idToken);
        EXPECT_EQ(renewals(), before);
        ++now;
        server.next(answer(200, tokens(3600, "renewed")));
        keepsAlive ? keepAlive() : look(); // with it the next request looks
        ASSERT_TRUE(keepsAlive || waitForLogin());
        EXPECT_EQ(token(), "renewed");
        EXPECT_EQ(renewals(), before + 1);
    }
}

} // namespace
