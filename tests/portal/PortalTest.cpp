// The portal as a service: strictness, jobs, sockets, faults, the program.
// Needs VELMORA_PORTAL_PROGRAM, the path of the program.

#include "PortalFixture.h"

#include <QSignalSpy>
#include <QWebSocket>

namespace PortalTests {
namespace {

/// A client's socket that records its texts and errors.
struct Listener : QWebSocket {
    Listener(const Portal &portal, const string &job, const string &token)
    {
        QNetworkRequest request(toQString("wss://" + portal.host() + "/socket/job/progress/" + job));
        request.setRawHeader("Authorization", toBytes(token));
        open(request);
    }
    /// Waits for the end; returns the reason.
    string end()
    {
        EXPECT_TRUE(EVENTUALLY(!errors.isEmpty() || state() == QAbstractSocket::UnconnectedState));
        return (closeReason().isEmpty() ? errorString() : closeReason()).toStdString();
    }
    QSignalSpy texts{this, &QWebSocket::textMessageReceived};
    QSignalSpy errors{this, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error)};
};

TEST_F(PortalTest, request_notExactlyRight_refused)
{
    const string own = R"({"jobId":"job-wing0001"})", job = newJob(), load = request("POST", "job/load", own, token),
                 mesh = "job/files/job-wing0001/wing.mesh";
    const std::size_t before = portal.jobCount();
    portal.setJobDuration(3600s);
    const auto submit = [&](const string &what, const string &with) {
        return request("POST", "job/submit", replaced(submission(job), what, with), token);
    };
    const string socket = "GET /socket/job/progress/job-wing0001 HTTP/1.1\r\nHost: p\r\nUpgrade: websocket\r\n"
                          "Connection: Upgrade\r\nSec-WebSocket-Version: 13\r\nAuthorization: " +
                          token + "\r\nSec-WebSocket-Key: MDEyMzQ1Njc4OTAxMjM0NQ==\r\n\r\n";
    const std::tuple<string, int, const char *> table[] = {
        // request; the status, and a part of the message
        {load, 200, ""},
        {request("GET", "job/load", own, token), 405, "takes POST"},
        {request("POST", "job/load", own, token, ""), 415, "missing"},
        {request("POST", "job/load", own, token, "application/json; charset=utf-8"), 415, "charset"},
        {request("POST", "job/load", own, ""), 401, "missing"},
        {request("POST", "job/load", own, "Bearer " + token), 401, "scheme"},
        {request("POST", "job/load", "{", token), 400, "not valid JSON"},
        {request("POST", "job/load", R"({"jobId":7})", token), 400, "must be a string"},
        {request("POST", "job/load", R"({"jobId":"job-wing0001","x":1})", token), 400, "\"x\" is not a known key"},
        {request("POST", "job/load", R"({"jobId":"job-none"})", token), 404, "job-none"},
        {request("POST", "job/key", R"({"jobId":"job-pump0003"})", token), 403, "another user"},
        {request("POST", "job/list", "{}", token), 400, "must be empty"},
        {request("POST", "auth/refresh", R"({"refreshToken":"refresh.0"})", ""), 401, "not valid"},
        {request("POST", "job/init", R"({"accountId":"ACC-1001","hpcId":"hpc-lab-1"})", token), 409, "no jobs"},
        {request("DELETE", mesh, "", token), 415, "no content type"},
        {request("DELETE", mesh, "", token, ""), 200, ""},
        {request("DELETE", mesh, "", token, ""), 404, "wing.mesh"},
        {request("GET", "job/files/uploadUrl/job-pump0003", "", token, ""), 403, "another user"},
        {submit("\"operation\":\"mpi\",", ""), 400, "\"operation\" is missing"},
        {submit("Required\":4", "Required\":99999999999999999999"), 400, "coresRequired"},
        {submit("2.5", "0"), 400, "greater than 0"},
        {submit("Simulation Sweep", "Single Simulation"), 400, "jobType"},
        {submit("[\"b\"]", "[\"b\",\"c\"]"), 400, "fileAliases"},
        {submit("ACC-1001", "ACC-3"), 404, "ACC-3"},
        {submit("job-", "job_"), 404, "ask for a job id"},
        {request("POST", "job/submit", submission(job), token), 200, ""},
        {request("POST", "job/submit", submission(job), token), 409, "submitted before"},
        {request("POST", "job/archive", R"({"jobId":")" + job + "\"}", token), 409, "still at work"},
        // looser than HTTP allows
        {replaced(load, "Host: portal:1\r\n", ""), 400, "Host"},
        {replaced(load, "Authorization:", "Authorization: x\r\nAuthorization:"), 400, "more than one Authorization"},
        {replaced(load, "job/load ", "job/load?a=b "), 400, "takes no query"},
        {replaced(load, "24\r\n\r\n{", "35\r\n\r\n{\"jobId\":\"\","), 400, "\"jobId\" twice"},
        {replaced(socket, "MDEyMzQ1Njc4OTAxMjM0NQ==", ""), 400, "Sec-WebSocket-Key"},
        {"GARBAGE\r\n\r\n", 400, ""},
        {"POST /api/job/list HTTP/1.1\r\nHost: p\r\nContent-Length: 99999999\r\n\r\n", 413, ""}};
    for (const auto &[sent, status, message] : table) {
        const Reply reply = send(sent);
        EXPECT_EQ(reply.status, status) << sent << reply.body;
        EXPECT_NE(reply.text("message").find(message), string::npos) << sent << reply.body;
    }
    EXPECT_EQ(portal.jobCount(), before + 1);
}

TEST_F(PortalTest, socket_refusedOrFaulty_clientSeesTheReason)
{
    EXPECT_NE(Listener(portal, "job-wing0001", "x").end().find("401"), string::npos);
    EXPECT_NE(Listener(portal, "job-none", token).end().find("404"), string::npos);

    const string job = newJob();
    for (const bool closes : {true, false}) {
        Fault fault;
        fault.kind = closes ? FaultKind::SocketClose : FaultKind::SocketRaw;
        fault.messages = 1;
        fault.closeCode = 4001;
        fault.reason = "maintenance";
        fault.body = "\x81\x04goes\xf1\x02on"; // reserved bits
        portal.inject(fault);
        Listener listener(portal, job, token);
        ASSERT_TRUE(EVENTUALLY(portal.openSocketCount(job) == 1));
        EXPECT_EQ(portal.sendToSockets(job, "word"), 1U);
        const string end = listener.end();
        EXPECT_EQ(end == "maintenance", closes) << end;
        EXPECT_EQ(int(listener.closeCode()) == 4001, closes);
        EXPECT_EQ(listener.texts.size(), closes ? 1 : 2);
        ASSERT_TRUE(EVENTUALLY(portal.openSocketCount() == 0));
    }

    Listener silent(portal, job, token);
    ASSERT_TRUE(EVENTUALLY(portal.openSocketCount(job) == 1));
    EXPECT_EQ(portal.silenceSockets(job), 1U);
    post("job/submit", submission(job));
    ASSERT_TRUE(EVENTUALLY(portal.jobStatus(job) == "FINISHED"));
    QSignalSpy pongs(&silent, &QWebSocket::pong);
    silent.ping("hello");
    EXPECT_TRUE(EVENTUALLY(!pongs.isEmpty() && pongs[0][1].toByteArray() == "hello"));
    EXPECT_EQ(portal.sockets().back().pings, std::vector<string>{"hello"});
    EXPECT_TRUE(silent.texts.isEmpty());
    EXPECT_EQ(portal.dropSockets(job), 1U);
    EXPECT_NE(silent.end().find("remote host closed"), string::npos); // without a close frame
}

TEST_F(PortalTest, control_badFault_refusedWithItsReason)
{
    const auto control = [&](const char *verb, const string &body, const char *path = "faults") {
        return send(replaced(request(verb, path, body, ""), "/api/", "/control/"));
    };
    constexpr std::pair<const char *, const char *> table[] = {
        {R"({"path":"*"})", "\"kind\" is missing"},
        {R"({"kind":"odd","path":"*"})", "\"kind\" must be one of \"cutBody\", \"cutHead\""},
        {R"({"kind":"drip","path":""})", "\"path\" must not be empty"},
        {R"({"kind":"status","path":"*","status":99})", "\"status\" must be from 200 to 599"},
        {R"({"kind":"delay","path":"*","delay":"1"})", "\"delay\" must be a whole number"},
        {R"({"kind":"raw","path":"*","informational":[99]})", "\"informational\" must hold whole numbers from 100"},
        {R"([{"kind":"gzip","path":"*"},{"kind":"gzip","path":"*","contentType":""}])", "\"contentType\" must not be"},
        {R"({"kind":"socketDrop","odd":1})", "\"odd\" is not a known key"}};
    for (const auto &[body, message] : table) {
        const Reply reply = control("POST", body);
        EXPECT_EQ(reply.status, 400) << body;
        EXPECT_EQ(reply.text("message").find(message), 0U) << reply.body;
    }
    EXPECT_EQ(portal.faultCount(), 0U);
    const string good = R"({"kind":"socketClose","messages":3,"closeCode":4000,"reason":"r","keepOpen":0,"delay":7,)"
                        R"("closing":"skip","informational":[100,103]})";
    const QJsonObject fault = control("POST", good).array()[0].toObject();
    const QJsonObject sent = QJsonDocument::fromJson(toBytes(good)).object();
    for (const QString &field : sent.keys())
        EXPECT_EQ(fault[field], sent[field]) << field.toStdString();
    EXPECT_EQ(fault["path"], "socket");
    EXPECT_EQ(fault["rate"], 65536);
    EXPECT_EQ(control("DELETE", "").status, 200);
    EXPECT_EQ(control("POST", R"({"kind":"resetBefore"})").array().size(), 1);
    portal.clearFaults();
    EXPECT_EQ(control("POST", R"({"expiredStatus":402})", "storage").status, 400);
    EXPECT_EQ(control("POST", R"({"expiredStatus":410,"addressUses":3})", "storage").object()["addressUses"], 3);
    EXPECT_EQ(portal.storage().expiredStatus, 410);
}

TEST_F(PortalTest, program_portTakenOrDirectoryShared_refusesToStart)
{
    const QTemporaryDir shared;
    QFile::setPermissions(shared.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther);
    EXPECT_EQ(run(VELMORA_PORTAL_PROGRAM, {"--port", QString::number(portal.port())}), "");
    EXPECT_EQ(run(VELMORA_PORTAL_PROGRAM, {"--directory", shared.path()}), "");
}

TEST_F(PortalTest, program_inputClosedOrSignalled_stopsCleanly)
{
    for (const bool signalled : {false, true}) {
        const QTemporaryDir parent;
        const QString directory = parent.filePath("private");
        QProcess program;
        program.start(VELMORA_PORTAL_PROGRAM, {"--directory", directory});
        ASSERT_TRUE(EVENTUALLY(program.canReadLine()));
        EXPECT_EQ(QFile::permissions(directory) & 0x077, 0);
        EXPECT_EQ(run("grep", {"-rl", "PRIVATE KEY", directory}), "");
        signalled ? program.terminate() : program.closeWriteChannel();
        ASSERT_TRUE(program.waitForFinished());
        EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
        EXPECT_TRUE(QDir(directory).isEmpty()); // neither keys nor files of jobs remain
    }
}

} // namespace
} // namespace PortalTests
