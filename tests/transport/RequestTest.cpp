// What the service sees of each operation, what comes back, and what the log says meanwhile.

#include "transport/Operations.h"

namespace {

/// What these log first, by the names of the functions.
const QMap<QByteArray, const char *> firstLines = {
    {"getAllJobDetails", "in CloudAPI::requestAllJobInformation(): ZRV call for information on all jobs"},
    {"getJobProgress", "in CloudAPI::getJobProgress(): Requesting job progress -  J1"},
    {"getHpcList", "in CloudAPI::getHpcList(): ZRV call for all hpcs"},
    {"getHpcPreferenceList", "in CloudAPI::getHpcPreferenceList(): ZRV call for all hpcs can access"},
    {"getUsersFileList", "in CloudAPI::getUsersFileList(): ZRV call for all users files"},
    {"getJobFileList", "in CloudAPI::getJobFileList(): ZRV call for all users files in this job:  J1%2"},
    {"getSimulationFileList", "in CloudAPI::getJobFileList(): ZRV call for all users files in this simulation: "
                              "JobID:  %1 \tSimID:  S 1"},
    {"deleteFile", "Delete File API call being made:"}};

struct OperationTest : TransportTest, testing::WithParamInterface<Operation> {
    const Operation &subject = GetParam();
    const bool login = subject.path == "auth/login" || subject.path == "auth/refresh";
    const bool deletion = subject.path.startsWith("job/files/J1/"); // returns the file, whatever the outcome

    void expectRequest(const QByteArray &token)
    {
        const ReceivedRequest request = server.requests().last();
        EXPECT_EQ(request.verb, subject.verb);
        EXPECT_EQ(request.target, subject.target());
        EXPECT_EQ(request.body, subject.body);
        EXPECT_EQ(request.header("Host"), server.host());
        EXPECT_EQ(request.header("Authorization"), token);
        EXPECT_EQ(request.header("Authorization").isNull(), token.isNull()) << "a null value is an absent header";
        EXPECT_EQ(request.header("Content-Type"), deletion ? "" : "application/json");
        EXPECT_EQ(request.header("User-Agent"), "Velmora/" VELMORA_VERSION);
        EXPECT_EQ(request.header("Content-Length"), QByteArray::number(subject.body.size())) << "also of none";
    }
};

TEST_P(OperationTest, request_loggedOut_hasItsBytesResultAndLogLines)
{
    run(subject.name, answer(200, subject.reply));
    expectRequest({});
    expect(200, "", login ? subject.reply.toStdString() : "");
    EXPECT_TRUE(holds(done.result, parsed(subject.result)))
        << toText({{QStringLiteral("result"), done.result}}).toStdString();
    settle();
    EXPECT_EQ(done.calls, 1);
    EXPECT_EQ(server.requests().size(), 1);
    const char *started = subject.verb == QByteArray("POST") ? "Network Request Started with text/JSON data:"
                          : subject.body.isEmpty()           ? "Network Request Started:"
                                                             : "Custom Network Request Started:";
    const char *const firstLine = firstLines.value(QByteArray(subject.name).split(' ')[0]);
    EXPECT_TRUE(!firstLine || log.lines().value(0) == QLatin1String(firstLine)) << log.text();
    const QStringList lines = log.lines().filter(QStringLiteral("Cloud API: "));
    EXPECT_EQ(lines.join(QLatin1Char('\n')), QStringLiteral("Cloud API: %1 1 in progress\n"
                                                            "Cloud API: Network Request Finished: 0 remaining\n"
                                                            "Cloud API: Network Manager Cleared")
                                                 .arg(QLatin1String(started)));
    log.clear();
    subject.call(*api, {}); // an empty callback
    EXPECT_TRUE(EVENTUALLY(log.text().find("Manager Cleared") != std::string::npos));
    settle();
    EXPECT_EQ(server.requests().size(), 2);
}

TEST_P(OperationTest, request_loggedInAndRefused_carriesTheTokenAndGivesTheError)
{
    logIn();
    log.clear();
    run(subject.name, answer(403, "{\"message\":\"No \\u00fcse\",\"idToken\":\"" + QByteArray(idToken) + "\"}"));
    expectRequest(login ? QByteArray() : QByteArray(idToken));
    expect(403, subject.title, "No \xC3\xBCse");
    EXPECT_TRUE(deletion ? holds(done.result, parsed(subject.result)) : done.isDefault);
    for (const char *secret : {idToken, refreshToken, "s3cret-pa55"})
        EXPECT_EQ(log.text().find(secret), std::string::npos) << log.text();
}

INSTANTIATE_TEST_SUITE_P(Table, OperationTest, testing::ValuesIn(operations()), [](const auto &row) {
    return QString::fromLatin1(row.param.name).replace(QLatin1Char(' '), QLatin1Char('_')).toStdString();
});

using RequestTest = TransportTest;

TEST_F(RequestTest, logUserIn_anyMfaCode_isSentAsNumber)
{
    const std::pair<const char *, QByteArray> table[] = {
        {"000123", "123"}, {"abc", "0"}, {"2147483647", "2147483647"}, {"2147483648", "0"}, {"", ""}};
    for (const auto &[code, number] : table) {
        const QByteArray line = number.isEmpty() ? number : "    \"mfaToken\": " + number + ",\n";
        api->logUserIn("ada", "pw", code, Into{&done});
        ASSERT_TRUE(wait(done));
        EXPECT_EQ(server.requests().last().body,
                  QByteArray("{\n    \"emailAddress\": \"ada\",\n") + line + "    \"password\": \"pw\"\n}\n");
    }
}

TEST_F(RequestTest, result_severalShapes_areRead)
{
    for (const char *body : {"True", "true\n", "{\"mfa\":true}", "\"true\"", "false"}) { // only "true" is the word
        run("checkMFAEnabled", answer(200, body));
        EXPECT_EQ(done.result, QJsonValue(false)) << body;
    }
    const QByteArray tags = R"([{"tag":"a","type":"T"},{"tag":"b"}])";
    for (const QByteArray &body : {"{\"taglist\":" + tags + "}", tags}) {
        for (const char *name : {"tagJob", "untagJob", "getJobTags", "getAllAccountTags"}) {
            run(name, answer(200, body));
            EXPECT_TRUE(holds(done.result, parsed(tags))) << name << body.data();
        }
    }
}

TEST_F(RequestTest, deleteFile_pathWithDots_isRefusedInsideTheCall)
{
    for (const DeleteFileDetails &file :
         {DeleteFileDetails{"J1", "", ".."}, {"J1", "..", "a"}, {"J1", "", "a/./b"}, {"..", "", "a"}}) {
        api->deleteFile(file, Into{&done});
        EXPECT_EQ(done.calls, 1);
        EXPECT_EQ(done.error.errorCode, 400);
        EXPECT_EQ(done.error.errorTitle, "Error Transferring Files");
        EXPECT_EQ(done.result, toJson(file));
    }
    EXPECT_EQ(log.text(), "") << "nothing is sent";
}

TEST_F(RequestTest, submitNewJob_anyJob_isSentOrCompletesInsideTheCall)
{
    JobSubmit job;
    job.jobID = job.jobName = job.mainFile = "x";
    job.coresRequired = job.ramEstimate = 4;
    job.coreHourEstimate = 2;
    job.simulations = {"-a"};
    api->submitNewJob(job, {}); // an empty callback
    api->submitNewJob(job, Into{&done});
    ASSERT_EQ(done.calls, 1) << "completes inside the call";
    expect(400, "Error Submitting Job",
           "Bad Job Definition \nThere was no Application Name/ID given in the job submission object\n"
           "\nValidate Job again.");
    EXPECT_TRUE(done.isDefault);
    EXPECT_EQ(log.text(), "") << "nothing is sent";
    job.originApplication = "x";
    api->submitNewJob(job, Into{&done});
    EXPECT_TRUE(wait(done) && server.requests().last().body.size() == int(job.toSubmissionJson().size()));
}

} // namespace
