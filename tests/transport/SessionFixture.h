#pragma once

// A session whose renewals a test makes due.

#include "transport/Operations.h"

namespace {

struct SessionTest : TransportTest {
    int renewals() const { return sent("POST", "/api/auth/refresh"); }
    QTimer *timer() { return renewalTimerOf(*api); }
    /// Makes the renewal due now.
    void renew(const Answer &reply)
    {
        server.next(reply);
        const int before = renewals();
        timer()->start(0);
        ASSERT_TRUE(EVENTUALLY(renewals() == before + 1));
    }
    void keepAlive(int answerTimeout = 0, int pauseUnit = 1)
    {
        setOptions(*api,
                   [=](ClientOptions &options) { options.keepAlive = true, options.answerTimeout = answerTimeout; });
        if (pauseUnit > 0)
            session().setPauseUnit(pauseUnit);
    }
    Session &session() { return partsOf(*api).session; }
    QTimer *sessionTimer(const char *name) { return session().findChild<QTimer *>(QLatin1String(name)); }
    /// A renewal that is not answered yet, and some requests that wait for it.
    void renewAndAsk(const Answer &reply, Completion (&asked)[2])
    {
        renew(reply.paused());
        log.clear();
        operation("getJobDetails").call(*api, Into{&asked[0]});
        operation("killJob").call(*api, Into{&asked[1]});
        settle();
    }
    /// The token that a request made now carries.
    QByteArray token()
    {
        run("getJobDetails");
        return server.requests().last().header("Authorization");
    }
    bool waitForLogin() { return EVENTUALLY(api->isUserLoggedIn()); }
    bool cleared() { return EVENTUALLY(log.lines().last().endsWith(QLatin1String("Cleared"))); }
};

} // namespace
