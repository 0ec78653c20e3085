// The portal as a service: strictness, jobs, sockets, faults, the program.
// Needs VELMORA_PORTAL_PROGRAM, the path of the program.

#include "PortalFixture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QWebSocket>

namespace PortalTests {
namespace {

/// A client's socket with all that happened to it.
struct Listener : QWebSocket {
    Listener(const Portal &portal, const S &job, const S &token)
    {
        QNetworkRequest request(q("wss://" + portal.host() + "/socket/job/progress/" + job));
        request.setRawHeader("Authorization", b(token));
        open(request);
    }
    /// What ended it.
    S end()
    {
        EXPECT_TRUE(waitUntil([this] { return !errors.isEmpty() || state() == QAbstractSocket::UnconnectedState; }));
        return (closeReason().isEmpty() ? errorString() : closeReason()).toStdString();
    }
    bool isPonged()
    {
        ping("hello");
        return waitUntil([this] { return !pongs.isEmpty() && pongs.last()[1] == "hello"; });
    }

    QSignalSpy texts{this, &QWebSocket::textMessageReceived}, pongs{this, &QWebSocket::pong},
        errors{this, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error)};
};

TEST_F(PortalTest, RefusesWhatIsNotExactlyRight)
{
    const S json = "application/json";
    const S own = R"({"jobId":"job-wing0001"})";
    const S mesh = "job/files/job-wing0001/wing.mesh";
    const struct {
        const char *verb;
        S path, body, authorization, type;
        int status;
        const char *message;
    } table[] = {
        {"POST", "job/load", own, token, json, 200, ""},
        {"GET", "job/load", own, token, json, 405, "takes POST"},
        {"POST", "job/load", own, token, "", 415, "missing"},
        {"POST", "job/load", own, token, json + "; charset=utf-8", 415, "charset"},
        {"POST", "job/load", own, "", json, 401, "missing"},
        {"POST", "job/load", own, "Bearer " + token, json, 401, "scheme"},
        {"POST", "job/load", "{", token, json, 400, "not valid JSON"},
        {"POST", "job/load", R"({"jobId":7})", token, json, 400, "must be a string"},
        {"POST", "job/load", R"({"jobId":"job-wing0001","x":1})", token, json, 400, "\"x\" is not a known key"},
        {"POST", "job/load", R"({"jobId":"job-none"})", token, json, 404, "job-none"},
        {"POST", "job/key", R"({"jobId":"job-pump0003"})", token, json, 403, "another user"},
        {"POST", "job/list", "{}", token, json, 400, "must be empty"},
        {"POST", "job/init", R"({"accountId":"ACC-1001","hpcId":"hpc-lab-1"})", token, json, 409, "no jobs"},
        {"GET", "job/files/list", "", token, "", 415, "missing"},
        {"GET", "job/files/uploadUrl/job-pump0003", "", token, "", 403, "another user"},
        {"DELETE", mesh, "", token, json, 415, "no content type"},
        {"DELETE", mesh, "", token, "", 200, ""},
        {"DELETE", mesh, "", token, "", 404, "wing.mesh"},
    };
    for (const auto &row : table) {
        const Reply reply = send(request(row.verb, row.path, row.body, row.authorization, row.type));
        EXPECT_EQ(reply.status, row.status) << row.verb << ' ' << row.path << ' ' << row.body << ' ' << reply.body;
        EXPECT_NE(reply.text("message").find(row.message), S::npos) << row.path << ": " << reply.body;
    }
    const struct {
        const char *what, *with;
        int status;
        const char *message;
    } keys[] = {
        {"\"operation\":\"mpi\",", "", 400, "\"operation\" is missing"},
        {"\"coresRequired\":4", "\"coresRequired\":99999999999999999999", 400, "coresRequired"},
        {"2.5", "0", 400, "greater than 0"},
        {"Simulation Sweep", "Single Simulation", 400, "jobType"},
        {"[\"b\"]", "[\"b\",\"c\"]", 400, "fileAliases"},
        {"ACC-1001", "ACC-3", 404, "ACC-3"},
        {"job-", "job_", 404, "ask for a job id"},
        {"Sweep", "Sweep", 200, ""},
        {"Sweep", "Sweep", 409, "submitted before"},
    };
    const S good = submission(newJob());
    const std::size_t before = portal.jobCount();
    for (const auto &row : keys) {
        const Reply reply = post("job/submit", replaced(good, row.what, row.with));
        EXPECT_EQ(reply.status, row.status) << row.with;
        EXPECT_NE(reply.text("message").find(row.message), S::npos) << row.with << ": " << reply.body;
        EXPECT_EQ(portal.jobCount() - before, row.status == 200 || row.status == 409 ? 1U : 0U);
    }
    EXPECT_EQ(send("GARBAGE\r\n\r\n").status, 400);
    EXPECT_EQ(send("POST /api/job/list HTTP/1.1\r\nHost: p\r\nContent-Length: 99999999\r\n\r\n").status, 413);
}

TEST_F(PortalTest, TokensExpireAndCodesAreAsked)
{
    const auto refresh = [this](const S &with) {
        const Reply reply = send(request("POST", "auth/refresh", R"({"refreshToken":")" + with + "\"}", {}));
        token = reply.text("idToken");
        return reply.status;
    };
    portal.expireTokens();
    EXPECT_EQ(post("job/list", "").status, 401);
    EXPECT_EQ(refresh(refreshToken), 200);
    EXPECT_EQ(post("job/list", "").status, 200);
    portal.setTokenLifetime(0s);
    EXPECT_EQ(refresh(refreshToken), 200);
    EXPECT_EQ(post("job/list", "").status, 401);
    EXPECT_EQ(refresh("refresh.0"), 401);
    EXPECT_EQ(login(1), "");
    EXPECT_EQ(login(1, R"(,"mfaToken":1)"), "");
    EXPECT_NE(login(1, R"(,"mfaToken":)" + seededUsers()[1].mfaCode), "");
}

TEST_F(PortalTest, JobRunsToItsEndOrIsStoppedAndTellsTheSocket)
{
    for (const S end : {"FINISHED", "STOPPED"}) {
        const bool stops = end == "STOPPED";
        portal.setJobDuration(stops ? 3600s : 1s);
        const S job = newJob(), own = R"({"jobId":")" + job + "\"}";
        Listener listener(portal, job, token);
        ASSERT_TRUE(waitUntil([&] { return portal.openSocketCount(job) == 1; }));
        EXPECT_TRUE(listener.isPonged());
        EXPECT_EQ(portal.sockets().back().pings, std::vector<S>{"hello"});
        post("job/submit", submission(job));
        EXPECT_EQ(post("job/archive", own).status, 409);
        if (stops) {
            EXPECT_EQ(post("job/stop", own).array().size(), 2);
        }
        EXPECT_EQ(listener.end(), "Job status is " + end);
        int last[2] = {0, 0};
        for (const QVariantList &text : listener.texts) {
            EXPECT_FALSE(stops && text[0].toString().contains("FINISHED"));
            const QJsonObject message = QJsonDocument::fromJson(text[0].toByteArray()).object();
            int &progress = last[message["simulationId"].toString() == "sim-2"];
            EXPECT_GE(message["progress"].toInt(progress), progress);
            progress = message["progress"].toInt(progress);
        }
        EXPECT_TRUE(stops || last[0] + last[1] == 200);
        S history;
        for (const QJsonValue &entry : post("job/archive", own).array().last()["jobStatus"].toArray())
            history += s(entry["jobStatus"]) + ' ';
        EXPECT_TRUE(stops || history == "SUBMITTED QUEUED RUNNING FINISHED ARCHIVED ") << history;
        EXPECT_NE(history.find(end + " ARCHIVED "), S::npos);
    }
}

TEST_F(PortalTest, EachFaultStrikesAsItSays)
{
    const struct {
        FaultKind kind;
        bool processed, closed;
        int status;
        std::size_t bodyBytes;
    } table[] = {
        {FaultKind::Status, false, false, 503, 4},   {FaultKind::Delay, true, false, 200, 0},
        {FaultKind::CutHead, true, true, 0, 0},      {FaultKind::CutBody, true, true, 0, 7},
        {FaultKind::ResetBefore, false, true, 0, 0}, {FaultKind::ResetAfter, true, true, 0, 0},
        {FaultKind::HangUp, false, true, 0, 0},      {FaultKind::Silence, false, false, 0, 0},
        {FaultKind::Drip, true, false, 200, 0},      {FaultKind::Raw, false, true, 0, 4},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(static_cast<int>(row.kind));
        const S bytes = request("POST", "job/submit", submission(newJob()), token);
        Fault fault;
        fault.path = "job/submit";
        fault.kind = row.kind;
        fault.status = 503;
        fault.body = row.kind == FaultKind::Raw ? "HTTP/1.1 299 Odd\r\nContent-Length: 9\r\n\r\nbusy" : "busy";
        fault.keepOpen = row.kind != FaultKind::Raw;
        fault.bytes = 7;
        fault.delay = row.kind == FaultKind::Delay ? 300ms : 0ms;
        portal.inject(fault);
        const std::size_t before = portal.jobCount();
        QElapsedTimer timer;
        timer.start();
        const Reply reply = send(bytes, row.kind == FaultKind::Silence ? 700 : 10000);
        EXPECT_EQ(portal.jobCount() - before, row.processed ? 1U : 0U);
        EXPECT_EQ(reply.closed, row.closed);
        EXPECT_EQ(reply.status, row.status);
        EXPECT_EQ(reply.head.empty(), row.status == 0 && row.bodyBytes == 0 && row.kind != FaultKind::CutHead);
        EXPECT_TRUE(row.status == 200 || reply.body.size() == row.bodyBytes) << reply.body;
        EXPECT_GE(timer.elapsed(), fault.delay.count());
        EXPECT_EQ(portal.faultCount(), 0U);
    }
    EXPECT_EQ(portal.requestCount("job/submit"), 9U); // a reset before the request leaves no trace
}

TEST_F(PortalTest, SocketsAreRefusedDroppedClosedSilencedAndMistreated)
{
    EXPECT_NE(Listener(portal, "job-wing0001", "x").end().find("401"), S::npos);
    EXPECT_NE(Listener(portal, "job-none", token).end().find("404"), S::npos);

    const S job = newJob();
    Fault fault;
    fault.kind = FaultKind::SocketClose;
    fault.messages = 2;
    fault.closeCode = 4001;
    fault.reason = "maintenance";
    portal.inject(fault);
    Listener closing(portal, job, token);
    ASSERT_TRUE(waitUntil([&] { return portal.openSocketCount(job) == 1; }));
    EXPECT_EQ(portal.sendToSockets(job, "word") + portal.sendToSockets(job, "word"), 2U);
    EXPECT_EQ(closing.end(), "maintenance");
    EXPECT_EQ(closing.texts.size(), 2);
    EXPECT_EQ(int(closing.closeCode()), 4001);
    ASSERT_TRUE(waitUntil([&] { return portal.openSocketCount() == 0; }));

    fault.kind = FaultKind::SocketRaw;
    fault.messages = 1;
    fault.body = "\x81\x04goes\xf1\x02on"; // reserved bits
    portal.inject(fault);
    Listener raw(portal, job, token);
    ASSERT_TRUE(waitUntil([&] { return portal.openSocketCount(job) == 1; }));
    EXPECT_EQ(portal.sendToSockets(job, "word"), 1U);
    EXPECT_NE(raw.end(), "");
    EXPECT_EQ(raw.texts.size(), 2);
    ASSERT_TRUE(waitUntil([&] { return portal.openSocketCount() == 0; }));

    Listener silent(portal, job, token);
    ASSERT_TRUE(waitUntil([&] { return portal.openSocketCount(job) == 1; }));
    EXPECT_EQ(portal.silenceSockets(job), 1U);
    post("job/submit", submission(job));
    ASSERT_TRUE(waitUntil([&] { return portal.jobStatus(job) == "FINISHED"; }));
    EXPECT_TRUE(silent.isPonged());
    EXPECT_TRUE(silent.texts.isEmpty());
    EXPECT_EQ(portal.dropSockets(job), 1U);
    EXPECT_NE(silent.end().find("remote host closed"), S::npos); // no close frame came
}

TEST_F(PortalTest, SaysWhyItCannotStart)
{
    Options taken;
    taken.port = portal.port();
    EXPECT_THROW(Portal{taken}, std::runtime_error);
    const QTemporaryDir shared;
    QFile::setPermissions(shared.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther);
    Options open;
    open.directory = shared.path().toStdString();
    EXPECT_THROW(Portal{open}, std::runtime_error);
}

TEST_F(PortalTest, ProgramServesAndStopsCleanly)
{
    EXPECT_NE(run(VELMORA_PORTAL_PROGRAM, {"--help"}).find("--job-duration"), S::npos);
    for (const bool signalled : {false, true}) {
        const QTemporaryDir parent;
        const QString directory = parent.filePath("private");
        QProcess program;
        program.start(VELMORA_PORTAL_PROGRAM, {"--directory", directory});
        ASSERT_TRUE(waitUntil([&] { return program.canReadLine(); }));
        const QJsonObject line = QJsonDocument::fromJson(program.readLine()).object();
        EXPECT_EQ(QFile::permissions(directory) & 0x077, 0);
        EXPECT_EQ(run("grep", {"-rl", "PRIVATE KEY", directory}), "");
        const QString control = "https://" + line["host"].toString() + "/control/state";
        const S state = run("curl", {"-sS", "--cacert", line["ca"].toString(), control});
        EXPECT_EQ(QJsonDocument::fromJson(b(state))["jobs"].toArray().size(), 3);
        if (signalled)
            program.terminate();
        else
            program.closeWriteChannel();
        ASSERT_TRUE(program.waitForFinished());
        EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(program.exitCode(), 0);
        EXPECT_TRUE(QDir(directory).isEmpty()); // no key, no file of a job stays behind
    }
}

} // namespace
} // namespace PortalTests
