#include "Portal.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>

#include <chrono>
#include <csignal>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace std::chrono_literals;
using VelmoraPortal::Fault;
using VelmoraPortal::FaultKind;

namespace {

constexpr int PatienceMs = 30000;

/// The program, detached from the terminal, so that it finds none to ask on.
class Program : public QProcess {
public:
    Program(const QStringList &arguments, const QProcessEnvironment &environment)
    {
        setProcessEnvironment(environment);
        start(QCoreApplication::applicationDirPath() + QStringLiteral("/velmora"), arguments);
    }
    ~Program() override
    {
        if (state() != NotRunning) {
            kill();
            waitForFinished();
        }
    }

    int end()
    {
        if (state() != NotRunning && !waitForFinished(PatienceMs))
            return -1;
        takeErrors();
        return exitStatus() == NormalExit ? exitCode() : -2;
    }
    bool says(const QString &text)
    {
        const QDeadlineTimer deadline(PatienceMs);
        setReadChannel(StandardError);
        for (takeErrors(); !m_errors.contains(text); takeErrors())
            if (deadline.hasExpired() || !waitForReadyRead(int(deadline.remainingTime())))
                return takeErrors().contains(text);
        return true;
    }
    QString takeErrors() { return m_errors += QString::fromUtf8(readAllStandardError()); }
    QJsonObject json()
    {
        QJsonParseError error;
        const QJsonObject object = QJsonDocument::fromJson(readAllStandardOutput(), &error).object();
        EXPECT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString();
        return object;
    }

protected:
    void setupChildProcess() override
    {
        ::setsid();
        // Left open, the portal's listening socket would outlive the portal in the program.
        for (int descriptor = STDERR_FILENO + 1; descriptor < 1024; ++descriptor)
            ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }

private:
    QString m_errors;
};

class ProgramTest : public testing::Test {
protected:
    void serve(std::chrono::milliseconds jobDuration = 1500ms)
    {
        VelmoraPortal::Options options;
        options.jobDuration = jobDuration;
        m_portal = std::make_unique<VelmoraPortal::Portal>(options);
    }

    QProcessEnvironment environment(size_t user = 0)
    {
        QProcessEnvironment result = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"VELMORA_MFA", "VELMORA_API_URL", "QT_LOGGING_RULES"})
            result.remove(QLatin1String(name));
        result.insert(QStringLiteral("VELMORA_USER"), of(VelmoraPortal::seededUsers()[user].email));
        result.insert(QStringLiteral("VELMORA_PASSWORD"), of(VelmoraPortal::seededUsers()[user].password));
        return result;
    }

    std::unique_ptr<Program> start(QStringList arguments, size_t user = 0)
    {
        arguments << QStringLiteral("--host") << of(m_portal->host()) << QStringLiteral("--ca")
                  << of(m_portal->caFile());
        return std::make_unique<Program>(arguments, environment(user));
    }
    std::unique_ptr<Program> startRun(const char *file = "beam-single.json", const QStringList &more = {})
    {
        return start(
            QStringList{QStringLiteral("run"), example(file), QStringLiteral("--account"), QStringLiteral("ACC-1001")} +
            more);
    }

    /// Waits until the program has submitted its job. @return the job's id.
    static QString submitted(Program &program)
    {
        EXPECT_TRUE(program.says(QStringLiteral(" submitted\n"))) << program.takeErrors().toStdString();
        const QString errors = program.takeErrors();
        const int from = errors.indexOf(QStringLiteral("submitted ")) + 10;
        return errors.mid(from, errors.indexOf(QLatin1Char('\n'), from) - from);
    }

    QString jobFile(const char *text)
    {
        const QString path = m_directory.filePath(QStringLiteral("job.json"));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text);
        return path;
    }

    static QString of(const std::string &text) { return QString::fromStdString(text); }
    static QString example(const char *name)
    {
        return QStringLiteral(VELMORA_SOURCE_FOLDER "/examples/jobs/") + QLatin1String(name);
    }

    QTemporaryDir m_directory;
    std::unique_ptr<VelmoraPortal::Portal> m_portal;
};

TEST_F(ProgramTest, arguments_wrongUse_exitsWithTwoAndOneDocument)
{
    for (const QStringList &arguments :
         {QStringList{},
          {QStringLiteral("fly")},
          {QStringLiteral("job")},
          {QStringLiteral("jobs"), QStringLiteral("--portal"), QStringLiteral("moon")},
          {QStringLiteral("run"), QStringLiteral("no-such-file")},
          {QStringLiteral("status"), QStringLiteral("--host"), QStringLiteral("https://x")},
          {QStringLiteral("status"), QStringLiteral("--ca"), QStringLiteral("/none")},
          {QStringLiteral("run"), jobFile("{\"jobName\": ")}}) {
        Program program(arguments + QStringList{QStringLiteral("--json")}, environment());
        EXPECT_EQ(program.end(), 2) << arguments.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(program.json().value(QLatin1String("error")).toObject().value(QLatin1String("exitCode")).toInt(), 2);
    }
}

TEST_F(ProgramTest, validate_badJob_namesEveryFailingCheck)
{
    const QString path = jobFile(R"({"jobName": "B", "coresRequired": 129, "operation": 1, "cores": 3})");
    Program program({QStringLiteral("validate"), path}, environment());
    EXPECT_EQ(program.end(), 2);
    const QString errors = program.takeErrors();
    for (const char *message : {"minimum of 1 simulation", "Currently a MAXIMUM of 128", "unknown key \"cores\""})
        EXPECT_TRUE(errors.contains(QLatin1String(message))) << message << " in\n" << errors.toStdString();
    EXPECT_FALSE(errors.contains(QLatin1String("<b>")));
    EXPECT_FALSE(errors.contains(QLatin1String("jobID")));

    Program asJson({QStringLiteral("validate"), path, QStringLiteral("--json")}, environment());
    EXPECT_EQ(asJson.end(), 2);
    EXPECT_EQ(asJson.json().value(QLatin1String("failedChecks")).toArray().size(), 5);
    for (const char *name : {"beam-single.json", "hull-sweep.json"}) {
        Program good({QStringLiteral("validate"), example(name)}, environment());
        EXPECT_EQ(good.end(), 0) << good.takeErrors().toStdString();
        EXPECT_TRUE(good.takeErrors().isEmpty()) << good.takeErrors().toStdString();
    }
}

TEST_F(ProgramTest, login_everyOutcome_hasItsExitCode)
{
    serve();
    const struct {
        size_t user;
        const char *password, *mfa;
        int exit;
    } rows[] = {{0, nullptr, nullptr, 0},  {0, "wrong", nullptr, 1}, {0, "", nullptr, 2}, {1, nullptr, "246810", 0},
                {1, nullptr, "111111", 1}, {1, nullptr, nullptr, 2}, {1, nullptr, "x", 2}};
    for (const auto &row : rows) {
        QProcessEnvironment variables = environment(row.user);
        if (row.password != nullptr)
            variables.insert(QStringLiteral("VELMORA_PASSWORD"), QLatin1String(row.password));
        if (row.mfa != nullptr)
            variables.insert(QStringLiteral("VELMORA_MFA"), QLatin1String(row.mfa));
        Program program({QStringLiteral("login"), QStringLiteral("--json"), QStringLiteral("--host"),
                         of(m_portal->host()), QStringLiteral("--ca"), of(m_portal->caFile())},
                        variables);
        EXPECT_EQ(program.end(), row.exit)
            << row.user << (row.mfa ? row.mfa : "") << program.takeErrors().toStdString();
        const QJsonObject document = program.json();
        EXPECT_EQ(document.contains(QLatin1String("error")), row.exit != 0);
        EXPECT_FALSE(QJsonDocument(document).toJson().contains("oken"));
    }
}

TEST_F(ProgramTest, anyCommand_noConnection_exitsWithThreeAndSaysWhy)
{
    QTcpServer closed;
    ASSERT_TRUE(closed.listen(QHostAddress::LocalHost));
    const QString address = QStringLiteral("127.0.0.1:%1").arg(closed.serverPort());
    closed.close();
    for (const char *command : {"login", "jobs", "status"}) {
        Program program({QLatin1String(command), QStringLiteral("--host"), address}, environment());
        EXPECT_EQ(program.end(), 3) << command;
        EXPECT_TRUE(
            program.takeErrors().contains(QStringLiteral("could not reach %1: Connection refused").arg(address)))
            << program.takeErrors().toStdString();
    }
    serve();
    Program untrusted({QStringLiteral("jobs"), QStringLiteral("--host"), of(m_portal->host())}, environment());
    EXPECT_EQ(untrusted.end(), 3);
    EXPECT_TRUE(untrusted.takeErrors().contains(QStringLiteral("--ca"))) << untrusted.takeErrors().toStdString();
}

TEST_F(ProgramTest, run_bothExamples_finishWithOneDocument)
{
    serve();
    for (const char *name : {"beam-single.json", "hull-sweep.json"}) {
        const auto program = startRun(name, {QStringLiteral("--json")});
        EXPECT_EQ(program->end(), 0) << program->takeErrors().toStdString();
        const QJsonObject job = program->json();
        EXPECT_EQ(m_portal->jobStatus(job.value(QLatin1String("jobId")).toString().toStdString()), "FINISHED");
        EXPECT_TRUE(program->takeErrors().contains(QLatin1String("finished 100%")));
    }
    const auto quiet = startRun("beam-single.json", {QStringLiteral("--quiet")});
    EXPECT_EQ(quiet->end(), 0);
    EXPECT_TRUE(quiet->takeErrors().isEmpty()) << quiet->takeErrors().toStdString();
    EXPECT_TRUE(quiet->readAllStandardOutput().contains("finished"));
}

TEST_F(ProgramTest, run_everyTrouble_stillReachesTheJobsEnd)
{
    const struct {
        const char *path;
        FaultKind kind;
        int times;
        const char *notice;
    } rows[] = {{"socket", FaultKind::Status, 0, "was lost"},
                {"socket", FaultKind::SocketDrop, 1, "was lost"},
                {"socket", FaultKind::SocketClose, 1, "was lost"},
                {"socket", FaultKind::SocketSilence, 0, "submitted job-"},
                {"socket", FaultKind::Silence, 0, "submitted job-"},
                {"job/load", FaultKind::Status, 2, "answers again"},
                {"job/load", FaultKind::ResetAfter, 1, "answers again"},
                {"job/progress", FaultKind::Status, 0, "submitted job-"}};
    // Side by side, each with a portal of its own.
    std::vector<std::unique_ptr<VelmoraPortal::Portal>> portals;
    std::vector<std::unique_ptr<Program>> programs;
    for (const auto &row : rows) {
        serve();
        Fault fault;
        fault.path = row.path;
        fault.kind = row.kind;
        fault.times = row.times;
        fault.status = 503;
        fault.messages = 2;
        m_portal->inject(fault);
        programs.push_back(startRun());
        portals.push_back(std::move(m_portal));
    }
    for (size_t i = 0; i < programs.size(); ++i) {
        const int end = programs[i]->end();
        const QString errors = programs[i]->takeErrors();
        EXPECT_EQ(end, 0) << rows[i].path << int(rows[i].kind) << errors.toStdString();
        EXPECT_EQ(errors.count(QLatin1String(rows[i].notice)), 1)
            << rows[i].path << int(rows[i].kind) << errors.toStdString();
    }
}

TEST_F(ProgramTest, run_sessionExpires_signsInAgain)
{
    serve(3000ms);
    const auto program = startRun();
    submitted(*program);
    m_portal->expireTokens();
    EXPECT_EQ(program->end(), 0) << program->takeErrors().toStdString();
    EXPECT_EQ(m_portal->requestCount("auth/login"), 2U);
}

TEST_F(ProgramTest, run_answerToSubmitLost_saysThatTheJobMayExist)
{
    serve();
    Fault fault;
    fault.path = "job/submit";
    fault.kind = FaultKind::ResetAfter;
    m_portal->inject(fault);
    const size_t before = m_portal->jobCount();
    const auto program = startRun("beam-single.json", {QStringLiteral("--json")});
    EXPECT_EQ(program->end(), 3);
    const QString id = program->json().value(QLatin1String("jobId")).toString();
    EXPECT_TRUE(program->takeErrors().contains(QStringLiteral("velmora job %1 --host").arg(id)));
    EXPECT_EQ(m_portal->jobCount(), before + 1);
    EXPECT_EQ(m_portal->requestCount("job/submit"), 1U);
}

TEST_F(ProgramTest, run_stoppedByAnotherClient_exitsWithFour)
{
    serve(60s);
    const auto program = startRun("hull-sweep.json");
    const QString id = submitted(*program);
    const auto other = start({QStringLiteral("stop"), id, QStringLiteral("--json")});
    EXPECT_EQ(other->end(), 0) << other->takeErrors().toStdString();
    EXPECT_EQ(other->json().value(QLatin1String("simulationAbortList")).toArray().size(), 5);
    EXPECT_EQ(program->end(), 4);
    EXPECT_TRUE(program->takeErrors().contains(QLatin1String("did not finish: it was stopped")));
    const auto watch = start({QStringLiteral("watch"), id, QStringLiteral("--json")});
    EXPECT_EQ(watch->end(), 4);
    EXPECT_EQ(watch->json().value(QLatin1String("job")).toObject().value(QLatin1String("jobId")).toString(), id);
}

TEST_F(ProgramTest, run_interrupted_leavesTheJobAndSaysHowToWatchIt)
{
    serve(60s);
    const auto program = startRun();
    const QString id = submitted(*program);
    ::kill(pid_t(program->processId()), SIGINT);
    EXPECT_EQ(program->end(), 130);
    EXPECT_TRUE(program->takeErrors().contains(
        QStringLiteral("velmora watch %1 --host %2 --ca %3").arg(id, of(m_portal->host()), of(m_portal->caFile()))))
        << program->takeErrors().toStdString();
    EXPECT_NE(m_portal->jobStatus(id.toStdString()), "STOPPED");
}

TEST_F(ProgramTest, run_serviceGone_exitsWithThreeWhenPatienceEnds)
{
    serve(60s);
    const auto program = startRun("beam-single.json", {QStringLiteral("--patience"), QStringLiteral("1")});
    submitted(*program);
    m_portal.reset();
    EXPECT_EQ(program->end(), 3);
    EXPECT_TRUE(program->takeErrors().contains(QLatin1String("may go on; watch it again with")));
}

TEST_F(ProgramTest, queries_seededJobs_areShown)
{
    serve();
    const struct {
        QStringList arguments;
        int exit;
        const char *text;
    } rows[] = {{{QStringLiteral("jobs")}, 0, "job-wing0001"},
                {{QStringLiteral("job"), QStringLiteral("job-wing0001")}, 0, "wing.trninp"},
                {{QStringLiteral("progress"), QStringLiteral("job-wing0001")}, 0, "100%"},
                {{QStringLiteral("archive"), QStringLiteral("job-wing0001")}, 0, "archived job-wing0001"},
                {{QStringLiteral("watch"), QStringLiteral("job-wing0001")}, 0, "archived"},
                {{QStringLiteral("status")}, 0, "answers"},
                {{QStringLiteral("job"), QStringLiteral("no-such-job")}, 1, ""}};
    for (const auto &row : rows) {
        const auto program = start(row.arguments);
        EXPECT_EQ(program->end(), row.exit) << program->takeErrors().toStdString();
        EXPECT_TRUE(program->readAllStandardOutput().contains(row.text)) << row.text;
    }
}

} // namespace
