// The portal as a service: strictness, jobs, sockets, faults, the program.
// Needs VELMORA_PORTAL_PROGRAM, the path of the program.

#include "PortalFixture.h"

#include <QDir>
#include <QWebSocket>
#include <algorithm>
#include <csignal>

namespace PortalTests {
namespace {

/// A client's socket with all that happened to it.
struct Listener {
    Listener(const Portal &portal, const QSslConfiguration &trust, const S &job, const S &token)
    {
        QObject::connect(&socket, &QWebSocket::textMessageReceived, &socket,
                         [this](const QString &text) { texts.push_back(text.toStdString()); });
        QObject::connect(&socket, &QWebSocket::disconnected, &socket, [this] { gone = true; });
        QObject::connect(&socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), &socket,
                         [this] { failed = true; });
        QObject::connect(&socket, &QWebSocket::pong, &socket, [this](quint64, auto payload) { pong = payload; });
        socket.setSslConfiguration(trust);
        QNetworkRequest request(QUrl(q("wss://" + portal.host() + "/socket/job/progress/" + job)));
        request.setRawHeader("Authorization", b(token));
        socket.open(request);
    }
    bool heard(const S &part) const
    {
        return std::any_of(texts.begin(), texts.end(), [&](const S &text) { return text.find(part) != S::npos; });
    }
    S reason() const { return socket.closeReason().toStdString(); }

    std::vector<S> texts;
    QByteArray pong;
    bool gone = false;
    bool failed = false;
    QWebSocket socket; // goes first
};

TEST_F(PortalTest, RefusesWhatIsNotExactlyRight)
{
    const S json = "application/json";
    const S own = R"({"jobId":"job-wing0001"})";
    const S tag = R"({"itemId":"job-wing0001","tag":"wing","type":"ProjectTag"})";
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
        {"POST", "job/load", R"({"jobId":"job-pump0003"})", token, json, 403, "another user"},
        {"POST", "job/key", R"({"jobId":"job-pump0003"})", token, json, 403, "another user"},
        {"POST", "job/list", "{}", token, json, 400, "must be empty"},
        {"POST", "job/init", R"({"accountId":"ACC-1001","hpcId":"hpc-lab-1"})", token, json, 409, "no jobs"},
        {"GET", "job/files/list/job-wing0001/sim-9", "", token, json, 404, "sim-9"},
        {"GET", "job/files/list", "", token, "", 415, "missing"},
        {"GET", "job/files/uploadUrl/job-pump0003", "", token, "", 403, "another user"},
        {"DELETE", mesh, "", token, json, 415, "no content type"},
        {"DELETE", mesh, "", token, "", 200, ""},
        {"DELETE", mesh, "", token, "", 404, "wing.mesh"},
        {"DELETE", "job/files/job-wing0001/sim-1/rtg/residuals.dat", "", token, "", 200, ""},
        {"DELETE", "tag/job", tag, token, json, 200, ""},
        {"DELETE", "tag/job", tag, token, json, 404, "wing"},
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
        {"", "", 200, ""},
        {"", "", 409, "submitted before"},
    };
    const S good = submission(newJob());
    const std::size_t before = portal.jobCount();
    for (const auto &row : keys) {
        const Reply reply = post("job/submit", *row.what ? replaced(good, row.what, row.with) : good);
        EXPECT_EQ(reply.status, row.status) << row.with;
        EXPECT_NE(reply.text("message").find(row.message), S::npos) << row.with << ": " << reply.body;
        EXPECT_EQ(portal.jobCount() - before, row.status == 200 || row.status == 409 ? 1U : 0U);
    }
}

TEST_F(PortalTest, TokensExpireAndCodesAreAsked)
{
    const auto refresh = [this](const S &with) {
        return send(request("POST", "auth/refresh", R"({"refreshToken":")" + with + "\"}", {}));
    };
    portal.expireTokens();
    EXPECT_EQ(post("job/list", "").status, 401);
    token = refresh(refreshToken).text("idToken");
    EXPECT_EQ(post("job/list", "").status, 200);
    portal.setTokenLifetime(0s);
    token = refresh(refreshToken).text("idToken");
    ASSERT_FALSE(token.empty());
    EXPECT_EQ(post("job/list", "").status, 401);
    EXPECT_EQ(refresh("refresh.0").status, 401);
    EXPECT_EQ(login(1), "");
    EXPECT_EQ(login(1, R"(,"mfaToken":1)"), "");
    EXPECT_NE(login(1, R"(,"mfaToken":)" + seededUsers()[1].mfaCode), "");
}

TEST_F(PortalTest, JobRunsToItsEndAndTellsTheSocket)
{
    const S job = newJob();
    Listener listener(portal, trust(), job, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(job) == 1; }));
    listener.socket.ping("hello");
    EXPECT_TRUE(eventually([&] { return listener.pong == "hello"; }));
    EXPECT_EQ(portal.sockets().back().pings, std::vector<S>{"hello"});
    post("job/submit", submission(job));
    ASSERT_TRUE(eventually([&] { return listener.gone; }));
    EXPECT_EQ(listener.reason(), "Job status is FINISHED");
    int last[2] = {0, 0};
    for (const S &text : listener.texts) {
        const QJsonObject message = QJsonDocument::fromJson(b(text)).object();
        if (!message.contains(QLatin1String("simulationId")))
            continue;
        int &progress = last[s(message[QLatin1String("simulationId")]) == "sim-2"];
        EXPECT_GE(message[QLatin1String("progress")].toInt(), progress);
        progress = message[QLatin1String("progress")].toInt();
    }
    EXPECT_EQ(last[0] + last[1], 200);
    S history;
    for (const QJsonValue &entry : post("job/archive", R"({"jobId":")" + job + "\"}")
                                       .array()
                                       .last()
                                       .toObject()[QLatin1String("jobStatus")]
                                       .toArray())
        history += s(entry.toObject()[QLatin1String("jobStatus")]) + ' ';
    EXPECT_EQ(history, "SUBMITTED QUEUED RUNNING FINISHED ARCHIVED ");
}

TEST_F(PortalTest, StoppedJobNeverReadsAsFinished)
{
    portal.setJobDuration(1h);
    const S job = newJob();
    Listener listener(portal, trust(), job, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(job) == 1; }));
    post("job/submit", submission(job));
    const S own = R"({"jobId":")" + job + "\"}";
    EXPECT_EQ(post("job/archive", own).status, 409);
    EXPECT_EQ(post("job/stop", own).array().size(), 2);
    ASSERT_TRUE(eventually([&] { return listener.gone; }));
    EXPECT_EQ(listener.reason(), "Job status is STOPPED");
    EXPECT_FALSE(listener.heard("FINISHED"));
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
    for (const bool reused : {false, true}) {
        for (const auto &row : table) {
            SCOPED_TRACE(static_cast<int>(row.kind) * 10 + reused);
            const S bytes = request("POST", "job/submit", submission(newJob()), token);
            Fault fault;
            fault.path = "job/submit";
            fault.kind = row.kind;
            fault.status = 503;
            fault.body = row.kind == FaultKind::Raw ? "HTTP/1.1 299 Odd\r\nContent-Length: 9\r\n\r\nbusy" : "busy";
            fault.keepOpen = row.kind != FaultKind::Raw;
            fault.bytes = 7;
            fault.delay = row.kind == FaultKind::Delay ? 300ms : 0ms;
            QSslSocket socket;
            if (reused) {
                ASSERT_TRUE(connect(socket));
                ASSERT_EQ(exchange(socket, request("POST", "job/list", "", token)).status, 200);
            }
            portal.inject(fault);
            const std::size_t before = portal.jobCount();
            const int patience = row.kind == FaultKind::Silence ? 700 : 10000;
            QElapsedTimer timer;
            timer.start();
            const Reply reply = reused || connect(socket) ? exchange(socket, bytes, patience) : Reply{0, {}, {}, true};
            EXPECT_EQ(portal.jobCount() - before, row.processed ? 1U : 0U);
            EXPECT_EQ(reply.closed, row.closed);
            EXPECT_EQ(reply.status, row.status);
            EXPECT_EQ(reply.head.empty(), row.status == 0 && row.bodyBytes == 0 && row.kind != FaultKind::CutHead);
            if (row.status != 200) {
                EXPECT_EQ(reply.body.size(), row.bodyBytes);
            }
            EXPECT_GE(timer.elapsed(), fault.delay.count());
            EXPECT_EQ(portal.faultCount(), 0U);
        }
    }
    EXPECT_EQ(portal.requestCount("job/submit"), 2 * 9U); // a reset before the request leaves no trace
}

TEST_F(PortalTest, SocketsAreRefusedDroppedClosedAndSilenced)
{
    Listener badToken(portal, trust(), "job-wing0001", "x");
    Listener badJob(portal, trust(), "job-none", token);
    EXPECT_TRUE(eventually([&] { return badToken.failed && badJob.failed; }));
    EXPECT_TRUE(badToken.socket.errorString().contains(QLatin1String("401")));
    EXPECT_TRUE(badJob.socket.errorString().contains(QLatin1String("404")));

    const S job = newJob();
    Fault fault;
    fault.kind = FaultKind::SocketClose;
    fault.messages = 2;
    fault.closeCode = 4001;
    fault.reason = "maintenance";
    portal.inject(fault);
    Listener closing(portal, trust(), job, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(job) == 1; }));
    EXPECT_EQ(portal.sendToSockets(job, "word") + portal.sendToSockets(job, "word"), 2U);
    ASSERT_TRUE(eventually([&] { return closing.gone && portal.openSocketCount() == 0; }));
    EXPECT_EQ(closing.texts.size(), 2U);
    EXPECT_EQ(closing.reason(), "maintenance");
    EXPECT_EQ(int(closing.socket.closeCode()), 4001);

    Listener silent(portal, trust(), job, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(job) == 1; }));
    EXPECT_EQ(portal.silenceSockets(job), 1U);
    post("job/submit", submission(job));
    ASSERT_TRUE(eventually([&] { return portal.jobStatus(job) == "FINISHED"; }));
    silent.socket.ping("still there");
    EXPECT_TRUE(eventually([&] { return silent.pong == "still there"; }));
    EXPECT_TRUE(silent.texts.empty());
    EXPECT_EQ(portal.dropSockets(job), 1U);
    EXPECT_TRUE(eventually([&] { return silent.gone && portal.openSocketCount() == 0; }));
    EXPECT_TRUE(silent.failed); // the remote host closed: no close frame came
}

TEST_F(PortalTest, OutlivesClientsThatVanishAndSaysWhyItCannotStart)
{
    for (int i = 0; i < 40; ++i) {
        QSslSocket socket;
        ASSERT_TRUE(connect(socket));
        socket.write(b(request("POST", "job/list", "", token)).left(i * 5));
        socket.waitForBytesWritten(1000);
        socket.abort();
    }
    EXPECT_EQ(post("job/list", "").status, 200);
    EXPECT_EQ(send("GARBAGE\r\n\r\n").status, 400);
    EXPECT_EQ(send("POST /api/job/list HTTP/1.1\r\nHost: p\r\nContent-Length: 99999999\r\n\r\n").status, 413);
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
    for (const bool signalled : {false, true}) {
        const QTemporaryDir parent;
        const QString directory = parent.filePath(QStringLiteral("private"));
        QProcess program;
        program.start(QStringLiteral(VELMORA_PORTAL_PROGRAM), {QStringLiteral("--directory"), directory});
        ASSERT_TRUE(eventually([&] { return program.canReadLine() || program.waitForReadyRead(10); }));
        const QJsonObject line = QJsonDocument::fromJson(program.readLine()).object();
        EXPECT_EQ(QFile::permissions(directory) & 0x077, 0);
        const S ca = s(line[QLatin1String("ca")]);
        EXPECT_EQ(run("grep", {QStringLiteral("-rl"), QStringLiteral("PRIVATE KEY"), directory}, ""), "");
        const S state = run("curl",
                            {QStringLiteral("-sS"), QStringLiteral("--cacert"), q(ca),
                             q("https://" + s(line[QLatin1String("host")]) + "/control/state")},
                            "");
        EXPECT_EQ(QJsonDocument::fromJson(b(state)).object()[QLatin1String("jobs")].toArray().size(), 3);
        if (signalled)
            ::kill(static_cast<pid_t>(program.processId()), SIGTERM);
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
