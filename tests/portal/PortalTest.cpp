// The portal seen by clients of another make: bare TLS sockets, QWebSocket and, for the program, curl.
// Needs VELMORA_PORTAL_PROGRAM, the path of the program.

#include "Portal.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
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

namespace {

struct Reply {
    int status = 0; ///< 0: no whole answer came
    std::string head;
    std::string body;
    bool closed = false; ///< by the portal
    QJsonObject object() const { return QJsonDocument::fromJson(QByteArray::fromStdString(body)).object(); }
    QJsonArray array() const { return QJsonDocument::fromJson(QByteArray::fromStdString(body)).array(); }
    std::string text(const char *key) const { return object()[QLatin1String(key)].toString().toStdString(); }
};

class PortalTest : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static int argc = 1;
        static char name[] = "portal_test";
        static char *argv[] = {name, nullptr};
        if (!QCoreApplication::instance())
            static QCoreApplication application(argc, argv);
    }

    static Options quick()
    {
        Options options;
        options.jobDuration = 400ms;
        return options;
    }

    QSslConfiguration trust() const
    {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setCaCertificates(QSslCertificate::fromData(QByteArray::fromStdString(portal.caPem())));
        return configuration;
    }

    bool connect(QSslSocket &socket) const
    {
        socket.setSslConfiguration(trust());
        socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), portal.port());
        return socket.waitForEncrypted(5000);
    }

    /// Sends one request and reads until its answer is whole, the portal closes, or `patience` is over.
    static Reply exchange(QSslSocket &socket, const std::string &request, int patience = 5000)
    {
        socket.write(QByteArray::fromStdString(request));
        Reply reply;
        std::string all;
        QElapsedTimer timer;
        timer.start();
        for (;;) {
            all += socket.readAll().toStdString();
            const auto end = all.find("\r\n\r\n");
            const auto length = all.find("Content-Length: ");
            reply.head = all.substr(0, end == std::string::npos ? end : end + 4);
            reply.body = end == std::string::npos ? "" : all.substr(end + 4);
            if (end != std::string::npos && reply.body.size() >= std::stoul(all.substr(length + 16))) {
                reply.status = std::stoi(all.substr(9, 3));
                return reply;
            }
            reply.closed = socket.state() != QAbstractSocket::ConnectedState;
            const int left = patience - static_cast<int>(timer.elapsed());
            if (reply.closed || left <= 0)
                return reply;
            socket.waitForReadyRead(left);
        }
    }

    static std::string request(const std::string &verb, const std::string &path, const std::string &body,
                               const std::string &authorization, const std::string &type = "application/json")
    {
        return verb + " /api/" + path + " HTTP/1.1\r\nHost: portal\r\n" +
               (type.empty() ? "" : "Content-Type: " + type + "\r\n") +
               (authorization.empty() ? "" : "Authorization: " + authorization + "\r\n") +
               "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    Reply send(const std::string &bytes, int patience = 5000) const
    {
        QSslSocket socket;
        return connect(socket) ? exchange(socket, bytes, patience) : Reply{0, {}, {}, true};
    }

    Reply post(const std::string &path, const std::string &body) { return send(request("POST", path, body, token)); }

    std::string login(std::size_t user, const std::string &more = {})
    {
        const SeededUser &who = seededUsers()[user];
        const Reply reply = send(
            request("POST", "auth/login",
                    R"({"emailAddress":")" + who.email + R"(","password":")" + who.password + '"' + more + '}', {}));
        refreshToken = reply.text("refreshToken");
        return reply.text("idToken");
    }

    std::string newJob() { return post("job/init", R"({"accountId":"ACC-1001"})").text("jobId"); }

    static std::string replaced(std::string text, const std::string &what, const std::string &with)
    {
        const auto at = text.find(what);
        return at == std::string::npos ? text : text.replace(at, what.size(), with);
    }

    static std::string submission(const std::string &jobId)
    {
        return R"({"jobId":")" + jobId +
               R"(","accountId":"ACC-1001","jobName":"Beam-140309-050321","mainFile":"b.trninp",
            "dockerTag":" ","fileDependencies":["a"],"fileAliases":["b"],"operation":"mpi",
            "simulations":[{"consoleParameters":"-x 1"},{"consoleParameters":"-x 2"}],
            "jobType":"Cloud Configuration - Simulation Sweep","precision":"single","coresRequired":4,
            "coreHourEstimate":2.5,"ramEstimate":1024,"numberOfParts":4,"application":"test"})";
    }

    template <typename Condition> static bool eventually(Condition condition, int patience = 8000)
    {
        QElapsedTimer timer;
        for (timer.start(); !condition() && timer.elapsed() < patience;)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
        return condition();
    }

    Portal portal{quick()};
    std::string refreshToken;
    std::string token = login(0);
};

/// A client's socket with all that happened to it.
struct Listener {
    Listener(const Portal &portal, const QSslConfiguration &trust, const std::string &job, const std::string &token)
    {
        QObject::connect(&socket, &QWebSocket::textMessageReceived, &socket,
                         [this](const QString &text) { texts.push_back(text.toStdString()); });
        QObject::connect(&socket, &QWebSocket::disconnected, &socket, [this] { gone = true; });
        QObject::connect(&socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), &socket,
                         [this] { failed = true; });
        QObject::connect(&socket, &QWebSocket::pong, &socket,
                         [this](quint64, const QByteArray &payload) { pong = payload.toStdString(); });
        socket.setSslConfiguration(trust);
        QNetworkRequest request(QUrl(QString::fromStdString("wss://" + portal.host() + "/socket/job/progress/" + job)));
        request.setRawHeader("Authorization", QByteArray::fromStdString(token));
        socket.open(request);
    }
    bool heard(const std::string &part) const
    {
        for (const std::string &text : texts)
            if (text.find(part) != std::string::npos)
                return true;
        return false;
    }
    std::string reason() const { return socket.closeReason().toStdString(); }

    std::vector<std::string> texts;
    std::string pong;
    bool gone = false;
    bool failed = false;
    QWebSocket socket; // goes first
};

TEST_F(PortalTest, RefusesWhatIsNotExactlyRight)
{
    const std::string json = "application/json";
    const std::string own = R"({"jobId":"job-wing0001"})";
    const struct {
        const char *verb, *path;
        std::string body, authorization, type;
        int status;
        const char *message;
    } table[] = {
        {"POST", "job/load", own, token, json, 200, ""},
        {"GET", "job/load", own, token, json, 405, "takes POST"},
        {"PUT", "tag/job", "{}", token, json, 405, "takes POST, DELETE"},
        {"POST", "job/loads", own, token, json, 404, "job/loads"},
        {"POST", "job/load/x", own, token, json, 404, "job/load/x"},
        {"POST", "job/load", own, token, "", 415, "missing"},
        {"POST", "job/load", own, token, "text/plain", 415, "text/plain"},
        {"POST", "job/load", own, token, json + "; charset=utf-8", 415, "charset"},
        {"POST", "job/load", own, "", json, 401, "missing"},
        {"POST", "job/load", own, "Bearer " + token, json, 401, "scheme"},
        {"POST", "job/load", own, token + "0", json, 401, "not valid"},
        {"POST", "job/load", "", token, json, 400, "empty"},
        {"POST", "job/load", "{", token, json, 400, "not valid JSON"},
        {"POST", "job/load", "[]", token, json, 400, "object"},
        {"POST", "job/load", "{}", token, json, 400, "\"jobId\" is missing"},
        {"POST", "job/load", R"({"jobId":7})", token, json, 400, "must be a string"},
        {"POST", "job/load", R"({"jobId":"job-wing0001","x":1})", token, json, 400, "\"x\" is not a known key"},
        {"POST", "job/load", R"({"jobId":"job-none"})", token, json, 404, "job-none"},
        {"POST", "job/load", R"({"jobId":"job-pump0003"})", token, json, 403, "another user"},
        {"POST", "job/list", "{}", token, json, 400, "must be empty"},
        {"POST", "job/init", R"({"accountId":"ACC-1001","hpcId":"hpc-lab-1"})", token, json, 409, "no jobs"},
        {"POST", "job/init", R"({"accountId":"ACC-9"})", token, json, 404, "ACC-9"},
        {"GET", "job/files/list/job-wing0001/sim-1", "", token, json, 200, ""},
        {"GET", "job/files/list", "", token, "", 415, "missing"},
        {"DELETE", "job/files/job-wing0001/wing.mesh", "", token, json, 415, "no content type"},
        {"DELETE", "job/files/job-wing0001/wing.mesh", "", token, "", 200, ""},
        {"DELETE", "job/files/job-wing0001/wing.mesh", "", token, "", 404, "wing.mesh"},
        {"DELETE", "tag/job", R"({"itemId":"job-wing0001","tag":"wing","type":"ProjectTag"})", token, json, 200, ""},
        {"DELETE", "tag/job", R"({"itemId":"job-wing0001","tag":"wing","type":"ProjectTag"})", token, json, 404,
         "wing"},
        {"POST", "tag/job", R"({"itemId":"job-wing0001","tag":"a","type":"Other"})", token, json, 400, "ProjectTag"},
        {"POST", "user/modify", R"({"lastName":"a","firstName":"b"})", token, json, 400, "companyName"},
        {"POST", "job/files/credentials", "{}", token, json, 501, "credentials"},
    };
    for (const auto &row : table) {
        const Reply reply = send(request(row.verb, row.path, row.body, row.authorization, row.type));
        EXPECT_EQ(reply.status, row.status) << row.verb << ' ' << row.path << ' ' << row.body << ' ' << reply.body;
        EXPECT_NE(reply.text("message").find(row.message), std::string::npos) << row.path << ": " << reply.body;
    }
}

TEST_F(PortalTest, ChecksEverySubmittedKey)
{
    const struct {
        const char *what, *with;
        int status;
        const char *message;
    } table[] = {
        {"\"operation\":\"mpi\",", "", 400, "\"operation\" is missing"},
        {"\"mpi\"", "\"fly\"", 400, "\"operation\" must be one of"},
        {"\"coresRequired\":4", "\"coresRequired\":129", 400, "from 1 to 128"},
        {"\"coresRequired\":4", "\"coresRequired\":\"4\"", 400, "whole number"},
        {"\"coresRequired\":4", "\"coresRequired\":99999999999999999999", 400, "coresRequired"},
        {"1024", "1843200", 400, "ramEstimate"},
        {"2.5", "0", 400, "greater than 0"},
        {"\"numberOfParts\":4", "\"numberOfParts\":1", 400, "numberOfParts"},
        {"Simulation Sweep", "Single Simulation", 400, "jobType"},
        {"\"-x 1\"", "1", 400, "simulations[0].consoleParameters"},
        {"[\"b\"]", "[\"b\",\"c\"]", 400, "fileAliases"},
        {"\"single\"", "\"half\"", 400, "precision"},
        {"\"application\":\"test\"", "\"application\":\"\"", 400, "application"},
        {"ACC-1001", "ACC-3", 404, "ACC-3"},
    };
    const std::string good = submission(newJob());
    const std::size_t before = portal.jobCount();
    for (const auto &row : table) {
        const Reply reply = post("job/submit", replaced(good, row.what, row.with));
        EXPECT_EQ(reply.status, row.status) << row.with;
        EXPECT_NE(reply.text("message").find(row.message), std::string::npos) << row.with << ": " << reply.body;
    }
    EXPECT_EQ(post("job/submit", submission("job-guess")).status, 404);
    EXPECT_EQ(portal.jobCount(), before);
    EXPECT_EQ(post("job/submit", good).status, 200);
    EXPECT_EQ(post("job/submit", good).status, 409);
    EXPECT_EQ(portal.jobCount(), before + 1);
}

TEST_F(PortalTest, TokensExpireAndAreRenewed)
{
    const auto refresh = [this](const std::string &with) {
        return send(request("POST", "auth/refresh", R"({"refreshToken":")" + with + "\"}", {}));
    };
    portal.expireTokens();
    EXPECT_EQ(post("job/list", "").status, 401);
    const Reply renewed = refresh(refreshToken);
    EXPECT_EQ(renewed.object()[QLatin1String("expiresIn")].toInt(), 3600);
    EXPECT_FALSE(renewed.object().contains(QLatin1String("refreshToken")));
    token = renewed.text("idToken");
    EXPECT_EQ(post("job/list", "").status, 200);
    portal.setTokenLifetime(0s);
    token = refresh(refreshToken).text("idToken");
    ASSERT_FALSE(token.empty());
    EXPECT_EQ(post("job/list", "").status, 401);
    EXPECT_EQ(refresh("refresh.0").status, 401);
}

TEST_F(PortalTest, AsksForTheSecondFactor)
{
    EXPECT_EQ(login(1), "");
    EXPECT_EQ(login(1, R"(,"mfaToken":1)"), "");
    EXPECT_NE(login(1, R"(,"mfaToken":)" + seededUsers()[1].mfaCode), "");
    EXPECT_EQ(post("auth/hasMFA", R"({"emailAddress":")" + seededUsers()[0].email + "\"}").body, "false");
    EXPECT_EQ(post("auth/hasMFA", R"({"emailAddress":")" + seededUsers()[1].email + "\"}").body, "true");
}

TEST_F(PortalTest, JobRunsToItsEndAndTellsTheSocket)
{
    const std::string job = newJob();
    Listener listener(portal, trust(), job, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(job) == 1; }));
    EXPECT_EQ(*findHeader(portal.sockets().back().headers, "authorization"), token);
    listener.socket.ping("hello");
    EXPECT_TRUE(eventually([&] { return listener.pong == "hello"; }));
    EXPECT_EQ(portal.sockets().back().pings, std::vector<std::string>{"hello"});

    const std::string console = post("job/submit", submission(job))
                                    .object()[QLatin1String("simulations")]
                                    .toArray()[1]
                                    .toObject()[QLatin1String("consoleParameters")]
                                    .toString()
                                    .toStdString();
    EXPECT_EQ(console, "-noterm -s -x 2");
    ASSERT_TRUE(eventually([&] { return listener.gone; }));
    EXPECT_EQ(listener.socket.closeCode(), QWebSocketProtocol::CloseCodeNormal);
    EXPECT_EQ(listener.reason(), "Job status is FINISHED");
    EXPECT_NE(listener.texts.back().find("Job status is FINISHED"), std::string::npos);
    int last[2] = {0, 0};
    for (const std::string &text : listener.texts) {
        const QJsonObject message = QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
        const QString simulation = message[QLatin1String("simulationId")].toString();
        if (simulation.isEmpty())
            continue;
        int &progress = last[simulation == QLatin1String("sim-2")];
        EXPECT_GE(message[QLatin1String("progress")].toInt(), progress);
        progress = message[QLatin1String("progress")].toInt();
    }
    EXPECT_EQ(last[0] + last[1], 200);

    const QJsonArray simulations =
        post("job/load", R"({"jobId":")" + job + "\"}").object()[QLatin1String("simulations")].toArray();
    const auto date = [&](int simulation, int entry) {
        const QJsonArray history = simulations[simulation].toObject()[QLatin1String("simulationStatus")].toArray();
        return history[entry].toObject()[QLatin1String("simulationStatusDate")].toVariant().toLongLong();
    };
    EXPECT_LT(date(0, 2), date(1, 2)); // they start one after the other,
    EXPECT_LT(date(1, 2), date(0, 3)); // overlap
    EXPECT_LT(date(0, 3), date(1, 3)); // and end in turn

    const Reply archived = post("job/archive", R"({"jobId":")" + job + "\"}");
    EXPECT_EQ(archived.array().size(), 3);
    std::string history;
    qint64 previous = 0;
    for (const QJsonValue &entry : archived.array().last().toObject()[QLatin1String("jobStatus")].toArray()) {
        history += entry.toObject()[QLatin1String("jobStatus")].toString().toStdString() + ' ';
        EXPECT_GE(entry.toObject()[QLatin1String("jobStatusDate")].toVariant().toLongLong(), previous);
        previous = entry.toObject()[QLatin1String("jobStatusDate")].toVariant().toLongLong();
    }
    EXPECT_EQ(history, "SUBMITTED QUEUED RUNNING FINISHED ARCHIVED ");
}

TEST_F(PortalTest, StoppedJobNeverReadsAsFinished)
{
    portal.setJobDuration(1h);
    const std::string job = newJob();
    Listener listener(portal, trust(), job, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(job) == 1; }));
    post("job/submit", submission(job));
    const std::string one = R"({"jobId":")" + job + R"(","simulationId":"sim-1"})";
    EXPECT_EQ(post("job/simulation/stop", one).text("status"), "STOPPED");
    EXPECT_EQ(post("job/archive", R"({"jobId":")" + job + "\"}").status, 409);
    EXPECT_EQ(post("job/stop", R"({"jobId":")" + job + "\"}").array().size(), 2);
    ASSERT_TRUE(eventually([&] { return listener.gone; }));
    EXPECT_EQ(listener.reason(), "Job status is STOPPED");
    EXPECT_FALSE(listener.heard("Job status is FINISHED"));
    EXPECT_EQ(portal.jobStatus(job), "STOPPED");
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
            const std::string bytes = request("POST", "job/submit", submission(newJob()), token);
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
            EXPECT_EQ(reply.head.find("\r\n\r\n") == std::string::npos, row.status == 0 && row.bodyBytes == 0);
            if (row.status != 200) {
                EXPECT_EQ(reply.body.size(), row.bodyBytes);
            }
            EXPECT_GE(timer.elapsed(), fault.delay.count());
            EXPECT_EQ(portal.faultCount(), 0U);
        }
    }
    EXPECT_EQ(portal.requestCount("job/submit"), 2 * 7U); // a reset before the request leaves no trace
}

TEST_F(PortalTest, SocketsAreRefusedDroppedClosedAndSilenced)
{
    Listener badToken(portal, trust(), "job-wing0001", "x");
    Listener badJob(portal, trust(), "job-none", token);
    EXPECT_TRUE(eventually([&] { return badToken.failed && badJob.failed; }));
    EXPECT_TRUE(badToken.socket.errorString().contains(QLatin1String("401")))
        << badToken.socket.errorString().toStdString();
    EXPECT_TRUE(badJob.socket.errorString().contains(QLatin1String("404")))
        << badJob.socket.errorString().toStdString();

    const std::string job = newJob();
    Fault fault;
    fault.path = "socket";
    fault.status = 503;
    portal.inject(fault);
    Listener refused(portal, trust(), job, token);
    EXPECT_TRUE(eventually([&] { return refused.failed; }));
    fault.kind = FaultKind::SocketClose;
    fault.messages = 2;
    fault.closeCode = 4001;
    fault.reason = "maintenance";
    portal.inject(fault);
    Listener closing(portal, trust(), job, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(job) == 1; }));
    Listener steady(portal, trust(), job, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(job) == 2; }));
    post("job/submit", submission(job));
    ASSERT_TRUE(eventually([&] { return closing.gone && steady.gone; }));
    EXPECT_EQ(closing.texts.size(), 2U);
    EXPECT_EQ(closing.reason(), "maintenance");
    EXPECT_EQ(int(closing.socket.closeCode()), 4001);

    const std::string idle = newJob();
    Listener dropped(portal, trust(), idle, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(idle) == 1; }));
    EXPECT_EQ(portal.sendToSockets(idle, "word"), 1U);
    EXPECT_TRUE(eventually([&] { return dropped.heard("word"); }));
    EXPECT_EQ(portal.dropSockets(idle), 1U);
    EXPECT_TRUE(eventually([&] { return dropped.gone && portal.openSocketCount() == 0; }));
    EXPECT_TRUE(dropped.failed); // the remote host closed: no close frame came
    EXPECT_EQ(dropped.reason(), "");

    Listener silent(portal, trust(), idle, token);
    ASSERT_TRUE(eventually([&] { return portal.openSocketCount(idle) == 1; }));
    EXPECT_EQ(portal.silenceSockets(idle), 1U);
    post("job/submit", submission(idle));
    ASSERT_TRUE(eventually([&] { return portal.jobStatus(idle) == "FINISHED"; }));
    silent.socket.ping("still there");
    EXPECT_TRUE(eventually([&] { return silent.pong == "still there"; }));
    EXPECT_TRUE(silent.texts.empty());
    EXPECT_FALSE(silent.gone);
}

TEST_F(PortalTest, OutlivesClientsThatVanish)
{
    for (int i = 0; i < 40; ++i) {
        QSslSocket socket;
        ASSERT_TRUE(connect(socket));
        socket.write(QByteArray::fromStdString(request("POST", "job/list", "", token)).left(i * 5));
        socket.waitForBytesWritten(1000);
        socket.abort();
    }
    EXPECT_EQ(post("job/list", "").status, 200);
    EXPECT_EQ(send("GARBAGE\r\n\r\n").status, 400);
    EXPECT_EQ(send("POST /api/job/list HTTP/1.1\r\nHost: p\r\nContent-Length: 99999999\r\n\r\n").status, 413);
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
    for (const bool signalled : {false, true}) {
        const QTemporaryDir parent;
        const QString directory = parent.filePath(QStringLiteral("private"));
        QProcess program;
        program.start(QStringLiteral(VELMORA_PORTAL_PROGRAM), {QStringLiteral("--directory"), directory});
        ASSERT_TRUE(eventually([&] { return program.canReadLine() || program.waitForReadyRead(10); }));
        const QJsonObject line = QJsonDocument::fromJson(program.readLine()).object();
        const QString host = line[QLatin1String("host")].toString();
        EXPECT_EQ(line[QLatin1String("users")].toArray().size(), 2);
        EXPECT_EQ(QFile::permissions(directory) & 0x077, 0);
        for (const QString &name : QDir(directory).entryList(QDir::Files)) {
            QFile file(directory + QLatin1Char('/') + name);
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            EXPECT_FALSE(file.readAll().contains("PRIVATE KEY")) << name.toStdString();
        }
        QProcess curl;
        curl.start(QStringLiteral("curl"),
                   {QStringLiteral("-sS"), QStringLiteral("--cacert"), line[QLatin1String("ca")].toString(),
                    QStringLiteral("https://%1/control/state").arg(host)});
        ASSERT_TRUE(curl.waitForFinished());
        EXPECT_EQ(QJsonDocument::fromJson(curl.readAll()).object()[QLatin1String("jobs")].toArray().size(), 3);
        if (signalled)
            ::kill(static_cast<pid_t>(program.processId()), SIGTERM);
        else
            program.closeWriteChannel();
        ASSERT_TRUE(program.waitForFinished());
        EXPECT_EQ(program.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(program.exitCode(), 0);
    }
}

} // namespace
