#pragma once

#include "portal/Portal.h"
#include "support/TestFolder.h"

#include <csignal>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <unistd.h>
#endif

namespace CliTests {

using namespace std::literals;
using std::string;
using Strings = std::set<string>;
using Storage = VelmoraPortal::StorageOptions;
using VelmoraPortal::FaultKind;

inline QString q(const string &text) { return QString::fromStdString(text); }

inline testing::AssertionResult contains(const string &text, const string &part)
{
    const bool found = text.find(part) != string::npos;
    return (found ? testing::AssertionSuccess() : testing::AssertionFailure()) << '"' << part << "\" in\n" << text;
}

/// The program, detached from the terminal, so that it cannot ask for input.
struct Program : QProcess {
    Program(const string &line, const QString &folder)
    {
        setWorkingDirectory(folder);
        setEnvironment(systemEnvironment() << "TMPDIR=" + folder + "/tmp"
                                           << "TMP=" + folder + "/tmp"                     // of encrypted copies
                                           << "VELMORA_CONFIG_DIR=" + folder + "/config"); // not the user's own
#if defined(Q_OS_UNIX) && QT_VERSION_MAJOR >= 6
        setChildProcessModifier(detach);
#endif
        start(QCoreApplication::applicationDirPath() + "/velmora", q(line).split(' ', Qt::SkipEmptyParts));
    }
    int end()
    {
        waitForFinished();
        return state() == NotRunning && exitStatus() == NormalExit ? exitCode() : -1;
    }
    bool says(const string &text)
    {
        setReadChannel(StandardError);
        while (errors().find(text) == string::npos && waitForReadyRead()) {
        }
        return m_errors.find(text) != string::npos;
    }
#ifdef Q_OS_UNIX
    void interrupt() { ::kill(pid_t(processId()), SIGINT); }
#if QT_VERSION_MAJOR < 6
    void setupChildProcess() override { detach(); }
#endif
    static void detach()
    {
        ::setsid();
        std::signal(SIGINT, SIG_DFL); // the program that started the tests may ignore it
        // An inherited listening socket would stay open after the portal has closed it.
        for (int descriptor = STDERR_FILENO + 1; descriptor < 1024; ++descriptor)
            ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
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
    string m_errors, m_output;
};

struct ProgramTest : testing::Test {
    ProgramTest()
    {
        for (const char *name : {"VELMORA_API_URL", "QT_LOGGING_RULES"})
            qunsetenv(name);
        QDir(m_folder.root()).mkdir("tmp");
        signInAs(m_users[0].email, m_users[0].password);
    }
    static void signInAs(const string &user, const string &password, const string &mfa = {})
    {
        qputenv("VELMORA_USER", user.c_str());
        qputenv("VELMORA_PASSWORD", password.c_str());
        qputenv("VELMORA_MFA", mfa.c_str());
    }
    void serve(std::chrono::milliseconds jobDuration = 1500ms, bool requireInputs = false, const Storage &storage = {})
    {
        const VelmoraPortal::Options options{0, {}, jobDuration, 3600s, storage, requireInputs, {}};
        m_portal = std::make_unique<VelmoraPortal::Portal>(options);
        m_connection = " --host " + m_portal->host() + " --ca " + m_portal->caFile();
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
    std::unique_ptr<Program> start(const string &line) const
    {
        return std::make_unique<Program>(line + m_connection, m_folder.root());
    }
    std::unique_ptr<Program> ended(const string &line, int exit, const string &message = {}) const
    {
        auto program = start(line);
        EXPECT_EQ(program->end(), exit) << line << program->errors();
        EXPECT_TRUE(contains(program->output() + program->errors(), message)) << line;
        return program;
    }
    static string example(const string &name) { return VELMORA_SOURCE_FOLDER "/examples/jobs/" + name; }
    /// The command that runs an example without its files, as a new job.
    string runOf(const string &job) const
    {
        QFile::copy(q(example(job)), q(m_folder.path(job)));
        return "run --again --account ACC-1001 --no-upload --no-download " + job;
    }
    /// The command that runs a job of a main file and that many inputs, the last of which is empty.
    string job(int inputs, int size = 1000, double coreHours = 1) const
    {
        m_folder.write("in/b.trninp", "main");
        QJsonArray names, aliases;
        for (int i = 0; i < inputs; ++i) {
            names.append(q("in/mesh-" + std::to_string(i)));
            aliases.append("x");
            m_folder.write("in/mesh-" + std::to_string(i), i < inputs - 1 ? noise(size, i).toStdString() : "");
        }
        auto job = QJsonDocument::fromJson(R"({"jobName": "B", "mainFile": "in/b.trninp", "operation": 1,
            "simulations": ["-v 1"], "coresRequired": 1, "ramEstimate": 100, "accountID": "ACC-1001"})")
                       .object();
        job["dependentFilesList"] = names;
        job["dependentFilesAliasList"] = aliases;
        job["coreHourEstimate"] = coreHours;
        m_folder.write("job.json", QJsonDocument(job).toJson().toStdString());
        return "run job.json --to out";
    }
    static string submitted(Program &program)
    {
        EXPECT_TRUE(program.says(" submitted\n")) << program.errors();
        return program.errors().substr(program.errors().find("submitted job-") + 10, 12);
    }

    const std::vector<VelmoraPortal::SeededUser> &m_users = VelmoraPortal::seededUsers();
    const TestFolder m_folder;
    string m_connection;
    std::unique_ptr<VelmoraPortal::Portal> m_portal;
};

} // namespace CliTests
