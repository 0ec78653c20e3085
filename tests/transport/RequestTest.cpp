// What the service sees of each operation, what comes back, and what the log says meanwhile.

#include "transport/Operations.h"

#include <QRegularExpression>

using namespace Velmora;

namespace {

class EveryOperation : public TransportTest, public testing::WithParamInterface<Operation> {
protected:
    const Operation &subject = GetParam();
    const QByteArray target = QByteArray("/api/") + subject.target;

    void expectRequest(const QByteArray &token)
    {
        ASSERT_GE(server.requests().size(), 1);
        const ReceivedRequest &request = server.requests().last();
        EXPECT_EQ(request.verb, subject.verb);
        EXPECT_EQ(request.target, target);
        EXPECT_EQ(request.body, subject.body);
        EXPECT_EQ(request.header("Host"), server.host());
        EXPECT_EQ(request.header("Authorization"), token) << "a null value is an absent header";
        EXPECT_EQ(request.header("Authorization").isNull(), token.isNull());
        const bool filesCode = target.startsWith("/api/job/files/") && request.verb == "DELETE";
        EXPECT_EQ(request.header("Content-Type"), filesCode ? QByteArray() : QByteArray("application/json"));
        EXPECT_EQ(request.header("Content-Length"), QByteArray::number(subject.body.size())) << "also of none";
    }
};

TEST_P(EveryOperation, LoggedOut)
{
    server.next(answer(200, subject.reply));
    run(subject);
    expectRequest({});
    EXPECT_EQ(done.error.errorCode, 200);
    EXPECT_EQ(done.error.errorTitle, "");
    EXPECT_EQ(done.error.errorMessage, target == "/api/auth/login" ? subject.reply.toStdString() : "");
    const QJsonValue expected = QJsonDocument::fromJson(subject.result).array().first();
    EXPECT_TRUE(holds(done.result, expected)) << toText({{QStringLiteral("result"), done.result}}).toStdString();
    settle();
    EXPECT_EQ(done.calls, 1);
    EXPECT_EQ(server.requests().size(), 1);
    const char *started = subject.verb == QByteArray("POST") ? "Network Request Started with text/JSON data:"
                          : subject.body.isEmpty()           ? "Network Request Started:"
                                                             : "Custom Network Request Started:";
    const QStringList lines = log.lines().filter(QStringLiteral("Cloud API: "));
    EXPECT_EQ(lines.join(QLatin1Char('\n')), QStringLiteral("Cloud API: %1 1 in progress\n"
                                                            "Cloud API: Network Request Finished: 0 remaining\n"
                                                            "Cloud API: Network Manager Cleared")
                                                 .arg(QLatin1String(started)));
}

TEST_P(EveryOperation, LoggedIn)
{
    logIn();
    run(subject);
    expectRequest(target == "/api/auth/login" ? QByteArray() : QByteArray(idToken));
}

TEST_P(EveryOperation, Refused)
{
    server.next(answer(403, R"({"message":"No \u00fcse"})"));
    run(subject);
    EXPECT_EQ(done.error.errorCode, 403);
    EXPECT_EQ(done.error.errorTitle, subject.title);
    EXPECT_EQ(done.error.errorMessage, "No \xC3\xBCse");
    if (target.startsWith("/api/job/files/J1")) { // a deletion answers with the file, whatever the outcome
        EXPECT_TRUE(holds(done.result, QJsonDocument::fromJson(subject.result).array().first()));
    } else {
        EXPECT_TRUE(done.isDefault || done.result.isNull());
    }
}

TEST_P(EveryOperation, AnswerIsNotReadable)
{
    server.next(answer(200, "[{\"jobId\":\"J1\"", "text/html"));
    run(subject);
    EXPECT_EQ(done.error.errorCode, 200);
    EXPECT_TRUE(done.isDefault || done.result.isNull() || target.startsWith("/api/job/files/J1"));
}

TEST_P(EveryOperation, EmptyCallbackIsNotCalled)
{
    subject.call(*api, Into{nullptr});
    EXPECT_TRUE(
        waitUntil([this] { return log.lines().contains(QStringLiteral("Cloud API: Network Manager Cleared")); }));
    settle();
    EXPECT_EQ(server.requests().size(), 1);
}

TEST_P(EveryOperation, LogsNoSecret)
{
    logIn();
    server.next(answer(500, "{\"message\":\"failed\",\"idToken\":\"" + QByteArray(idToken) + "\"}"));
    run(subject);
    EXPECT_EQ(done.error.errorMessage, "failed");
    for (const char *secret : {idToken, refreshToken, "s3cret-pa55"})
        EXPECT_EQ(log.lines().filter(QLatin1String(secret)).join(QLatin1Char('\n')).toStdString(), "");
}

INSTANTIATE_TEST_SUITE_P(Table, EveryOperation, testing::ValuesIn(operations()), [](const auto &row) {
    return QString::fromLatin1(row.param.name).remove(QRegularExpression(QStringLiteral("\\W"))).toStdString();
});

using RequestTest = TransportTest;

TEST_F(RequestTest, MfaCodeIsSentAsNumber)
{
    const struct {
        const char *code;
        const char *line; // of the body; null: absent
    } table[] = {{"000123", "    \"mfaToken\": 123,\n"},
                 {"abc", "    \"mfaToken\": 0,\n"},
                 {"2147483647", "    \"mfaToken\": 2147483647,\n"},
                 {"2147483648", "    \"mfaToken\": 0,\n"},
                 {"99999999999999999999", "    \"mfaToken\": 0,\n"},
                 {"", nullptr}};
    for (const auto &row : table) {
        done = {};
        api->logUserIn("ada", "pw", row.code, Into{&done});
        ASSERT_TRUE(wait(done));
        EXPECT_EQ(server.requests().last().body, QByteArray("{\n    \"emailAddress\": \"ada\",\n") +
                                                     (row.line ? row.line : "") + "    \"password\": \"pw\"\n}\n")
            << row.code;
    }
}

TEST_F(RequestTest, MfaIsEnabledOnlyByTheExactAnswer)
{
    const std::pair<const char *, bool> table[] = {
        {"true", true},      {"True", false},  {"TRUE", false}, {"true\n", false}, {"{\"mfa\":true}", false},
        {"\"true\"", false}, {"false", false}, {"", false}};
    for (const auto &[body, enabled] : table) {
        server.next(answer(200, body));
        run(operation("checkMFAEnabled"));
        EXPECT_EQ(done.result, QJsonValue(enabled)) << body;
    }
}

TEST_F(RequestTest, TagListsComeInTwoShapes)
{
    for (const char *body :
         {R"({"taglist":[{"tag":"a","type":"T"},{"tag":"b"}]})", R"([{"tag":"a","type":"T"},{"tag":"b"}])"}) {
        for (const char *name : {"tagJob", "untagJob", "getJobTags", "getAllAccountTags"}) {
            server.next(answer(200, body));
            run(operation(name));
            EXPECT_TRUE(holds(done.result, QJsonArray{QJsonObject{{QStringLiteral("tag"), QStringLiteral("a")},
                                                                  {QStringLiteral("type"), QStringLiteral("T")}},
                                                      QJsonObject{{QStringLiteral("tag"), QStringLiteral("b")}}}))
                << name << " " << body;
        }
    }
}

TEST_F(RequestTest, JobDefinitionIsSubmittedAsItsText)
{
    JobSubmit job;
    job.jobID = job.jobName = job.mainFile = job.originApplication = "x";
    job.coresRequired = job.ramEstimate = 4;
    job.coreHourEstimate = 2;
    job.simulations = {"-a"};
    const std::string before = job.toSubmissionJson(); // stamped with the second
    api->submitNewJob(job, Into{&done});
    const std::string after = job.toSubmissionJson();
    ASSERT_TRUE(wait(done));
    const std::string body = server.requests().last().body.toStdString();
    EXPECT_TRUE(body == before || body == after) << body;
    EXPECT_EQ(server.requests().last().target, "/api/job/submit");
}

TEST_F(RequestTest, InvalidJobDefinitionIsRefusedAtOnce)
{
    JobSubmit job;
    job.jobID = job.jobName = job.mainFile = "x";
    job.coresRequired = job.ramEstimate = 4;
    job.coreHourEstimate = 2;
    job.simulations = {"-a"};
    api->submitNewJob(job, {}); // an empty callback
    api->submitNewJob(job, Into{&done});
    ASSERT_EQ(done.calls, 1) << "completes inside the call";
    EXPECT_EQ(done.error.errorCode, 400);
    EXPECT_EQ(done.error.errorTitle, "Error Submitting Job");
    EXPECT_EQ(done.error.errorMessage,
              "Bad Job Definition \nThere was no Application Name/ID given in the job submission object\n"
              "\nValidate Job again.");
    EXPECT_TRUE(done.isDefault);
    EXPECT_EQ(log.lines().join(QLatin1Char('\n')).toStdString(), "") << "nothing is sent";
}

TEST_F(RequestTest, RequestsAreCountedAndLogged)
{
    Completion first, second, third;
    server.next(silence());
    operation("getUsersFileList").call(*api, Into{nullptr}); // stays in flight to the end
    server.setHandler([](const ReceivedRequest &) { return answer(200).paused(); });
    ASSERT_TRUE(waitUntil([this] { return server.requests().size() == 1; }));
    log.clear();
    operation("getJobDetails").call(*api, Into{&first});
    ASSERT_TRUE(waitUntil([this] { return server.requests().size() == 2; }));
    operation("untagJob").call(*api, Into{&second});
    ASSERT_TRUE(waitUntil([this] { return server.requests().size() == 3; }));
    server.resume();
    ASSERT_TRUE(waitUntil([&] { return first.calls && second.calls; }));
    EXPECT_EQ(log.lines().join(QLatin1Char('\n')).toStdString(),
              "Cloud API: Network Request Started with text/JSON data: 2 in progress\n"
              "Cloud API: Custom Network Request Started: 3 in progress\n"
              "Cloud API: Network Request Finished: 2 remaining\n"
              "Cloud API: Network Request Finished: 1 remaining")
        << "the connections are cleared only when nothing is in flight";
}

TEST_F(RequestTest, ManagerIsClearedAfterTheLastRequestOnly)
{
    server.setHandler([](const ReceivedRequest &) { return answer(200).paused(); });
    Completion first, second;
    operation("getJobDetails").call(*api, Into{&first});
    operation("getAllJobDetails").call(*api, Into{&second});
    ASSERT_TRUE(waitUntil([this] { return server.pausing() == 2; }));
    server.resumeOldest();
    ASSERT_TRUE(waitUntil([&] { return first.calls + second.calls == 1; }));
    server.resumeOldest();
    ASSERT_TRUE(waitUntil([&] { return first.calls + second.calls == 2; }));
    EXPECT_EQ(log.lines().filter(QStringLiteral("Cloud API")).join(QLatin1Char('\n')).toStdString(),
              "Cloud API: Network Request Started with text/JSON data: 1 in progress\n"
              "Cloud API: Network Request Started with text/JSON data: 2 in progress\n"
              "Cloud API: Network Request Finished: 1 remaining\n"
              "Cloud API: Network Request Finished: 0 remaining\n"
              "Cloud API: Network Manager Cleared");
}

TEST_F(RequestTest, OperationsLogTheirOwnLines)
{
    const std::pair<const char *, const char *> table[] = {
        {"getAllJobDetails", "in CloudAPI::requestAllJobInformation(): ZRV call for information on all jobs"},
        {"getJobProgress", "in CloudAPI::getJobProgress(): Requesting job progress - J1"},
        {"getHpcList", "in CloudAPI::getHpcList(): ZRV call for all hpcs"},
        {"getHpcPreferenceList", "in CloudAPI::getHpcPreferenceList(): ZRV call for all hpcs can access"},
        {"getUsersFileList", "in CloudAPI::getUsersFileList(): ZRV call for all users files"},
        {"deleteFile", "Delete File API call being made:"}};
    for (const auto &[name, line] : table) {
        log.clear();
        run(operation(name));
        EXPECT_EQ(log.lines().value(0).simplified().toStdString(), line);
    }
    log.clear();
    server.next(answer(200, R"([{"fileName":"/rtg/"},{"fileName":"x"}])"));
    run(operation("getJobFileList"));
    EXPECT_EQ(log.lines().filter(QStringLiteral("Received list")).join(QLatin1Char('\n')).toStdString(),
              "Received list of 1 files.");
}

} // namespace
