// The portal seen by clients of another make: bare TLS sockets, QWebSocket, `openssl enc` and, for the
// program, curl. Needs VELMORA_PORTAL_PROGRAM, the path of the program.

#include "Portal.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QWebSocket>
#include <csignal>
#include <gtest/gtest.h>

using namespace VelmoraPortal;
using namespace std::chrono_literals;
using S = std::string;

namespace {

QString q(const S &text) { return QString::fromStdString(text); }
QByteArray b(const S &text) { return QByteArray::fromStdString(text); }
S s(const QJsonValue &value) { return value.toString().toStdString(); }

struct Reply {
    int status = 0; ///< 0: no whole answer came
    S head;
    S body;
    bool closed = false; ///< by the portal
    QJsonObject object() const { return QJsonDocument::fromJson(b(body)).object(); }
    QJsonArray array() const { return QJsonDocument::fromJson(b(body)).array(); }
    S text(const char *key) const { return s(object()[QLatin1String(key)]); }
};

S replaced(S text, const S &what, const S &with)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != S::npos; at += with.size())
        text.replace(at, what.size(), with);
    return text;
}

S request(const S &verb, const S &path, const S &body, const S &authorization, const S &type = "application/json")
{
    return verb + " /api/" + path + " HTTP/1.1\r\nHost: portal:1\r\n" +
           (type.empty() ? "" : "Content-Type: " + type + "\r\n") +
           (authorization.empty() ? "" : "Authorization: " + authorization + "\r\n") +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

S submission(const S &jobId)
{
    return R"({"jobId":")" + jobId +
           R"(","accountId":"ACC-1001","jobName":"Beam-140309-050321","mainFile":"dir/b.trninp",
        "dockerTag":" ","fileDependencies":["a"],"fileAliases":["b"],"operation":"mpi",
        "simulations":[{"consoleParameters":"-x 1"},{"consoleParameters":"-x 2"}],
        "jobType":"Cloud Configuration - Simulation Sweep","precision":"single","coresRequired":4,
        "coreHourEstimate":2.5,"ramEstimate":1024,"numberOfParts":4,"application":"test"})";
}

template <typename Condition> bool eventually(Condition condition, int patience = 8000)
{
    QElapsedTimer timer;
    for (timer.start(); !condition() && timer.elapsed() < patience;)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
    return condition();
}

S run(const char *program, const QStringList &arguments, const S &input)
{
    QProcess process;
    process.start(QLatin1String(program), arguments);
    process.write(b(input));
    process.closeWriteChannel();
    return process.waitForFinished() && process.exitCode() == 0 ? process.readAllStandardOutput().toStdString() : "";
}

class PortalTest : public testing::Test {
protected:
    static Options quick()
    {
        Options options;
        options.jobDuration = 400ms;
        options.requireInputs = testing::UnitTest::GetInstance()->current_test_info()->name() == S("JobsNeedTheirInputs");
        return options;
    }

    QSslConfiguration trust() const
    {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setCaCertificates(QSslCertificate::fromData(b(portal.caPem())));
        return configuration;
    }

    bool connect(QSslSocket &socket) const
    {
        socket.setSslConfiguration(trust());
        socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), portal.port());
        return socket.waitForEncrypted(5000);
    }

    /// Sends one request and reads until its answer is whole, the portal closes, or `patience` is over.
    static Reply exchange(QSslSocket &socket, const S &bytes, int patience = 5000)
    {
        socket.write(b(bytes));
        Reply reply;
        S all;
        QElapsedTimer timer;
        for (timer.start();;) {
            all += socket.readAll().toStdString();
            const auto end = all.find("\r\n\r\n");
            const auto length = all.find("Content-Length: ");
            reply.head = all.substr(0, end == S::npos ? end : end + 4);
            reply.body = end == S::npos ? "" : all.substr(end + 4);
            reply.closed = socket.state() != QAbstractSocket::ConnectedState;
            const std::size_t size = length < end ? std::stoul(all.substr(length + 16)) : reply.closed ? 0 : S::npos;
            if (end != S::npos && (reply.body.size() >= size || all.substr(9, 3) == "204")) {
                reply.status = std::stoi(all.substr(9, 3));
                return reply;
            }
            const int left = patience - static_cast<int>(timer.elapsed());
            if (reply.closed || left <= 0)
                return reply;
            socket.waitForReadyRead(left);
        }
    }

    Reply send(const S &bytes, int patience = 5000) const
    {
        QSslSocket socket;
        return connect(socket) ? exchange(socket, bytes, patience) : Reply{0, {}, {}, true};
    }
    Reply post(const S &path, const S &body) { return send(request("POST", path, body, token)); }
    S newJob() { return post("job/init", R"({"accountId":"ACC-1001"})").text("jobId"); }

    S login(std::size_t user, const S &more = {})
    {
        const SeededUser &who = seededUsers()[user];
        const Reply reply = send(request(
            "POST", "auth/login", R"({"emailAddress":")" + who.email + R"(","password":")" + who.password + '"' + more + '}',
            {}));
        refreshToken = reply.text("refreshToken");
        return reply.text("idToken");
    }

    /// As another program would do it.
    S crypt(const S &job, const S &text, bool encrypt = true) const
    {
        const QStringList way = encrypt ? QStringList() : QStringList(QStringLiteral("-d"));
        return run("openssl",
                   QStringList{QStringLiteral("enc"), QStringLiteral("-aes-256-cbc"), QStringLiteral("-iv"),
                               QStringLiteral("5C19E307A24F6BD0913E28C7F40A66B5"), QStringLiteral("-K"),
                               QString::fromLatin1(b(portal.jobKey(job)).toHex())} + way,
                   text);
    }

    Reply uploadAddress(const S &job) { return send(request("GET", "job/files/uploadUrl/" + job, "", token, "")); }

    /// The request that an address object asks for.
    static S filled(const QJsonObject &address, const S &name, const S &file)
    {
        const auto fill = [&](const QJsonValue &text) {
            const S encoded = QString::fromLatin1(QUrl::toPercentEncoding(q(name))).toStdString();
            return replaced(replaced(replaced(s(text), "#fileName#", name), "#fileSize#", std::to_string(file.size())),
                            "#urlEncodedFileName#", encoded);
        };
        const QJsonObject headers = address[QLatin1String("headers")].toObject();
        const QJsonObject fields = address[QLatin1String("formFields")].toObject();
        S head = s(address[QLatin1String("method")]) + ' ' +
                 fill(address[QLatin1String("uri")]).substr(S("https://portal:1").size()) + " HTTP/1.1\r\nHost: p\r\n";
        for (auto header = headers.begin(); header != headers.end(); ++header)
            head += header.key().toStdString() + ": " + fill(header.value()) + "\r\n";
        S body = fields.isEmpty() ? file : "";
        for (auto field = fields.begin(); field != fields.end(); ++field)
            body += "--x y\r\nContent-Disposition: form-data; name=\"" + field.key().toStdString() + "\"\r\n\r\n" +
                    s(field.value()) + "\r\n";
        if (!fields.isEmpty() && !name.empty())
            body += "--x y\r\ncontent-disposition: form-data; name=\"file\"; filename=\"" + replaced(name, "\"", "%22") +
                    "\"\r\nX: y\r\n\r\n" + file + "\r\n";
        if (!fields.isEmpty())
            head += "Content-Type: multipart/form-data; boundary=\"x y\"\r\n", body += "--x y--\r\n";
        return head + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    Portal portal{quick()};
    S refreshToken;
    S token = login(0);
};

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
        {"PUT", "tag/job", "{}", token, json, 405, "takes POST, DELETE"},
        {"POST", "job/load/x", own, token, json, 404, "job/load/x"},
        {"POST", "job/load", own, token, "", 415, "missing"},
        {"POST", "job/load", own, token, json + "; charset=utf-8", 415, "charset"},
        {"POST", "job/load", own, "", json, 401, "missing"},
        {"POST", "job/load", own, "Bearer " + token, json, 401, "scheme"},
        {"POST", "job/load", "{", token, json, 400, "not valid JSON"},
        {"POST", "job/load", "{}", token, json, 400, "\"jobId\" is missing"},
        {"POST", "job/load", R"({"jobId":7})", token, json, 400, "must be a string"},
        {"POST", "job/load", R"({"jobId":"job-wing0001","x":1})", token, json, 400, "\"x\" is not a known key"},
        {"POST", "job/load", R"({"jobId":"job-none"})", token, json, 404, "job-none"},
        {"POST", "job/load", R"({"jobId":"job-pump0003"})", token, json, 403, "another user"},
        {"POST", "job/key", R"({"jobId":"job-pump0003"})", token, json, 403, "another user"},
        {"POST", "job/list", "{}", token, json, 400, "must be empty"},
        {"POST", "job/init", R"({"accountId":"ACC-1001","hpcId":"hpc-lab-1"})", token, json, 409, "no jobs"},
        {"GET", "job/files/list/job-wing0001/sim-1", "", token, json, 200, ""},
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
        {"\"-x 1\"", "1", 400, "simulations[0].consoleParameters"},
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
    };
    for (const bool reused : {false, true}) {
        for (const auto &row : table) {
            SCOPED_TRACE(static_cast<int>(row.kind) * 10 + reused);
            const S bytes = request("POST", "job/submit", submission(newJob()), token);
            Fault fault;
            fault.path = "job/submit";
            fault.kind = row.kind;
            fault.status = 503;
            fault.body = "busy";
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
    EXPECT_EQ(portal.requestCount("job/submit"), 2 * 7U); // a reset before the request leaves no trace
}
