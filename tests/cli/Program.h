#pragma once

#include "portal/Portal.h"
#include "support/TestFolder.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <csignal>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <unistd.h>
#endif

namespace CliTests {

using namespace std::chrono_literals;
using std::string;
using VelmoraPortal::FaultKind;
using namespace std::string_literals;

inline QString q(const string &text) { return QString::fromStdString(text); }

inline testing::AssertionResult contains(const string &text, const string &part)
{
    const bool found = text.find(part) != string::npos;
    return (found ? testing::AssertionSuccess() : testing::AssertionFailure()) << '"' << part << "\" in\n" << text;
}

/// The program, detached from the terminal, so that it cannot ask for input.
class Program : public QProcess {
public:
    static constexpr int PatienceMs = 30000;

    Program(const string &line, const QString &folder)
    {
        setWorkingDirectory(folder);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char *variable : {"TMPDIR", "TMP"}) // of encrypted copies
            environment.insert(variable, folder + "/tmp");
        environment.insert("VELMORA_CONFIG_DIR", folder + "/config"); // not the user's own
        setProcessEnvironment(environment);
#if defined(Q_OS_UNIX) && QT_VERSION_MAJOR >= 6
        setChildProcessModifier(detach);
#endif
        start(QCoreApplication::applicationDirPath() + "/velmora", q(line).split(' ', Qt::SkipEmptyParts));
    }
    ~Program() override
    {
        kill();
        waitForFinished();
    }

    int end()
    {
        if (state() != NotRunning && !waitForFinished(PatienceMs))
            return -1;
        return exitStatus() == NormalExit ? exitCode() : -2;
    }
    bool says(const string &text)
    {
        setReadChannel(StandardError);
        while (errors().find(text) == string::npos) {
            if (!waitForReadyRead(PatienceMs))
                return false;
        }
        return true;
    }
#ifdef Q_OS_UNIX
    void interrupt() { ::kill(pid_t(processId()), SIGINT); }
#else
    void interrupt() { ADD_FAILURE() << "no console to press Ctrl-C on"; }
#endif
    string errors() { return m_errors += readAllStandardError().toStdString(); }
    string output() { return m_output += readAllStandardOutput().toStdString(); }
    QJsonValue json()
    {
        const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(output()));
        EXPECT_TRUE(document.isObject()) << output();
        return document.object();
    }
    string text(const char *key) { return json()[key].toString().toStdString(); }

#ifdef Q_OS_UNIX
#if QT_VERSION_MAJOR < 6
protected:
    void setupChildProcess() override { detach(); }
#endif

private:
    static void detach()
    {
        ::setsid();
        std::signal(SIGINT, SIG_DFL); // the program that started the tests may ignore it
        // An inherited listening socket would stay open after the portal has closed it.
        for (int descriptor = STDERR_FILENO + 1; descriptor < 1024; ++descriptor)
            ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
#endif

private:
    string m_errors;
    string m_output;
};

class ProgramTest : public testing::Test {
protected:
    ProgramTest()
    {
        for (const char *name : {"VELMORA_API_URL", "QT_LOGGING_RULES"})
            qunsetenv(name);
        QDir(m_folder.root()).mkdir("tmp");
        signInAs(VelmoraPortal::seededUsers()[0].email, VelmoraPortal::seededUsers()[0].password, "");
    }
    static void signInAs(const string &user, const string &password, const string &mfa)
    {
        qputenv("VELMORA_USER", user.c_str());
        qputenv("VELMORA_PASSWORD", password.c_str());
        qputenv("VELMORA_MFA", mfa.c_str());
    }
    void serve(std::chrono::milliseconds jobDuration = 1500ms, VelmoraPortal::Options options = {})
    {
        options.jobDuration = jobDuration;
        m_portal = std::make_unique<VelmoraPortal::Portal>(options);
    }
    void inject(const string &path, FaultKind kind, int times, int status = 500)
    {
        VelmoraPortal::Fault fault;
        fault.path = path;
        fault.kind = kind;
        fault.times = times;
        fault.status = status;
        fault.messages = 2;
        m_portal->inject(fault);
    }
    string connection() const { return " --host " + m_portal->host() + " --ca " + m_portal->caFile(); }
    std::unique_ptr<Program> start(const string &line) const
    {
        return std::make_unique<Program>(m_portal ? line + connection() : line, m_folder.root());
    }
    std::unique_ptr<Program> ended(const string &line, int exit, const string &message = {}) const
    {
        auto program = start(line);
        EXPECT_EQ(program->end(), exit) << line << program->errors();
        EXPECT_TRUE(contains(program->output() + program->errors(), message)) << line;
        return program;
    }
    static string example(const string &name) { return VELMORA_SOURCE_FOLDER "/examples/jobs/" + name; }
    /// The command that runs an example without its files.
    static string runOf(const string &job)
    {
        return "run --account ACC-1001 --no-upload --no-download " + example(job);
    }
    static string submitted(Program &program)
    {
        EXPECT_TRUE(program.says(" submitted\n")) << program.errors();
        return program.errors().substr(program.errors().find("submitted job-") + 10, 12);
    }

    const TestFolder m_folder;
    std::unique_ptr<VelmoraPortal::Portal> m_portal;
};

} // namespace CliTests
