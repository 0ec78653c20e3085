// From a status and a body, or a lost connection, to one outcome; addresses.

#include "transport/Operations.h"

namespace {

struct Body {
    const char *text;
    const char *message;    // when the status says failure
    const char *results[7]; // of each operation when it says success: JSON; null: empty
};

TEST_F(TransportTest, answer_everyStatusAndBody_givesOneOutcomeAndNoRepetition)
{
    const std::vector<const char *> names = {"getJobDetails", "getAllJobDetails", "generateNewJobID", "checkMFAEnabled",
                                             "sendUserEvent", "getUsersFileList", "untagJob"};
    constexpr const char *list = R"([{"jobId":"J1"}])";
    constexpr Body bodies[] = {
        {R"({"message":"No such job","jobId":"J1"})", "No such job", {R"({"jobId":"J1"})", nullptr, "\"J1\""}},
        {R"({"error":{"message":"inner"}})", "", {}},
        {R"({"message":42,"jobId":7})", "", {}},
        {R"([{"jobId":"J1","message":"in an array"}])", "", {nullptr, list, nullptr, nullptr, nullptr, list, "[{}]"}},
        {"true", "", {nullptr, nullptr, nullptr, "true"}},
        {"<html><body>Bad Gateway</body></html>", "", {}},
        {"", "", {}},
    };
    const QByteArray temptations =
        "Location: /api/elsewhere\r\nWWW-Authenticate: Basic realm=\"r\"\r\n"
        "Proxy-Authenticate: Basic realm=\"r\"\r\nRetry-After: 0\r\nSet-Cookie: a=b; Path=/\r\n";
    int calls = 0;
    for (std::size_t column = 0; column < names.size(); ++column) {
        const Operation &subject = operation(names[column]);
        for (const int status : {0, 200, 201, 204, 299, 300, 302, 307, 308, 400, 401, 404, 407, 408, 500, 503}) {
            for (const Body &body : bodies) {
                SCOPED_TRACE(testing::Message() << subject << " " << status << " " << body.text);
                run(subject.name, status ? answer(status, body.text, "application/json", temptations) : hangUp());
                const bool failed = status >= 300;
                expect(status, failed ? subject.title : "", failed ? body.message : "");
                const char *result = failed || status == 204 || !status ? nullptr : body.results[column];
                EXPECT_TRUE(result ? holds(done.result, parsed(result)) : done.isDefault);
                EXPECT_EQ(server.requests().size(), ++calls);
                EXPECT_TRUE(server.requests().last().header("Cookie").isNull());
            }
        }
    }
}

TEST_F(TransportTest, request_reusedConnectionEnds_isNotSentTwice)
{
    for (const char *name : {"submitNewJob", "getAllJobDetails", "untagJob", "deleteFile", "getSimulationFileList"}) {
        const Operation &subject = operation(name);
        for (const bool headCame : {false, true}) {
            SCOPED_TRACE(name);
            api->getUsersFileList(true, {}); // keeps the connections: they are closed when nothing is in flight
            server.next(answer(200, "[]").paused());
            server.next(answer(200, "{}"));
            ASSERT_TRUE(pausing());
            run("getCurrentUserDetails");
            const ReceivedRequest marker = server.requests().last();
            const int before = sent(subject.verb, subject.target());
            run(name, headCame ? answer(200, "{\"jobId\":\"J1\"}").cut(90) : hangUp());
            EXPECT_EQ(server.requests().last().connection, marker.connection)
                << "the connection was not reused, so this proves nothing";
            EXPECT_EQ(done.error.errorCode, 0) << "also with a complete head";
            EXPECT_TRUE(done.isDefault || subject.path.startsWith("job/files/J1")) << "echoed";
            run("getCurrentUserDetails"); // whatever was sent earlier has arrived
            settle();
            EXPECT_EQ(done.calls, 1);
            EXPECT_EQ(sent(subject.verb, subject.target()), before + 1);
            server.resume();
        }
    }
}

// A session destroyed inside its callbacks: see the tests of the flat functions; at other moments: see torture.
TEST_F(TransportTest, session_destroyedBetweenReplyAndCallback_callsNothing)
{
    QObject context;
    QObject::connect(&networkOf(*api), &QNetworkAccessManager::finished, &context,
                     [&] { later(&context, [&] { api.reset(); }); }); // queued before the callback is
    start("getJobDetails");
    ASSERT_TRUE(EVENTUALLY(!api && server.openConnections() == 0));
    settle();
    EXPECT_EQ(done.calls, 0);
}

TEST_F(TransportTest, smallAnswer_behindALargeOneBeingRead_completesAfterIt)
{
    const QByteArray job = R"({"jobId":"J1","fileDependencies":["a","b"],"simulations":[{"simulationId":"S"}]},)";
    server.next(answer(200, '[' + job.repeated(50000).chopped(1) + ']')); // takes a tenth of a second or more to read
    std::string order;
    QObject context;
    QObject::connect(&networkOf(*api), &QNetworkAccessManager::finished, &context, [&, sent = false]() mutable {
        if (!std::exchange(sent, true))
            api->getJobDetails("J1", [&](const ApiError &, const JobDetails &) { order += "small "; });
    });
    api->getAllJobDetails(
        [&](const ApiError &, const std::list<JobDetails> &jobs) { order += std::to_string(jobs.size()) + ' '; });
    EXPECT_TRUE(EVENTUALLY(order.find("small") != std::string::npos));
    settle();
    EXPECT_EQ(order, "50000 small ");
}

TEST_F(TransportTest, callback_waitsForAnotherOperation_bothCompleteOnce)
{
    std::string order;
    api->getAllJobDetails([&](const ApiError &, const auto &) {
        order += "outer ";
        for (const char *name : {"getJobDetails", "getAllJobDetails"}) {
            run(name); // processes events
            EXPECT_EQ(done.calls, 1) << name;
            order += "inner ";
        }
        order += "end ";
    });
    ASSERT_TRUE(waitUntil([&] { return order.find("end") != std::string::npos; }));
    settle();
    EXPECT_EQ(order, "outer inner inner end ");
    EXPECT_EQ(server.requests().size(), 3);
}

TEST(EndpointsTest, baseUrl_variableNotEmpty_winsOverThePortal) // each portal: see the tests of subscriptions
{
    RestClient rest;
    const ScopedEnvironment address("VELMORA_API_URL", "h%1:99"); // substituted as it stands
    EXPECT_EQ(rest.baseUrl().toStdString(), "https://h%1:99/api/");
    qputenv("VELMORA_API_URL", "");
    EXPECT_EQ(rest.baseUrl().toStdString(), "https://portal.velmora.example/api/") << "the default";
    rest.setPortal(static_cast<PortalTarget>(3));
    EXPECT_EQ(rest.baseUrl().toStdString(), "https:///api/");
}

TEST_F(TransportTest, networkStatus_loggedIn_asksWithoutTheToken)
{
    logIn();
    server.next(answer(500, "<html>"));
    EXPECT_EQ(api->currentNetworkStatus(), 1) << "any body will do";
    const ReceivedRequest probe = server.requests().last();
    EXPECT_EQ(probe.verb + " " + probe.target, "GET /api/");
    EXPECT_TRUE(probe.header("Authorization").isNull() && probe.header("Content-Type").isNull()) << probe.head.data();
    settle();
    EXPECT_TRUE(networkOf(*api).findChildren<QNetworkReply *>().isEmpty()) << "the replies are released";
    EXPECT_TRUE(EVENTUALLY(server.openConnections() == 0)) << "nothing is in flight";
    EXPECT_EQ(log.lines().last(), QStringLiteral("Cloud API: Network Manager Cleared"));
}

} // namespace
