#include "Program.h"

namespace CliTests {

TEST_F(ProgramTest, arguments_wrongUse_exitsWithTwoAndOneDocument)
{
    for (const string &line :
         {string(), "fly"s, "rm job-1"s, "upload job-1"s, "sync a b"s, "sync a: b:"s, "config set moon 1"s,
          "jobs --watch"s, "jobs --profile none"s, "download job-1 --transfers 0"s, "jobs --portal moon"s,
          "run no-such-file"s, "tags job-1 --account A"s, "status --host https://x"s, "status --ca /none"s,
          "run " + m_folder.write("cut", "{\"jobName\":")})
        EXPECT_EQ(ended(line + " --json", 2)->json()["error"]["exitCode"].toInt(), 2);
}

TEST_F(ProgramTest, validate_badJob_namesEveryFailingCheck)
{
    const string job = R"({"jobName": "B", "coresRequired": 129, "operation": 1, "cores": 3})";
    const auto program = ended("validate --json " + m_folder.write("job.json", job), 2);
    EXPECT_EQ(program->json()["failedChecks"].toArray().size(), 5);
    for (const char *message : {"minimum of 1 simulation", "Currently a MAXIMUM of 128", "unknown key \"cores\""})
        EXPECT_TRUE(contains(program->errors(), message));
    EXPECT_FALSE(contains(program->errors(), "<b>"));
    EXPECT_EQ(ended("validate " + example("hull-sweep.json"), 0)->errors(), "");
}

TEST_F(ProgramTest, jobs_watch_showsTheRunningOnesUntilTheyEnd)
{
    serve(2500ms);
    ended("jobs --watch", 0, "no job is running\n");
    const auto running = start(runOf("beam-single.json"));
    const string id = submitted(*running);
    EXPECT_EQ(ended("jobs --json", 0)->json()["jobDetailsList"][0]["jobId"].toString(), q(id)); // the newest first
    EXPECT_TRUE(contains(ended("jobs --watch", 0, "no job is running any more\n")->output(), id));
    EXPECT_EQ(running->end(), 0);
}

TEST_F(ProgramTest, run_everyFault_stillReachesTheJobsEnd)
{
    const std::tuple<const char *, FaultKind, int, const char *> rows[] = {
        {"socket", FaultKind::Status, 0, "submitted job-"},
        {"socket", FaultKind::SocketDrop, 1, "submitted job-"},
        {"socket", FaultKind::SocketSilence, 0, "submitted job-"},
        {"job/load", FaultKind::ResetAfter, 2, "answers again"}, // one for the library, which follows the job too
        {"job/progress", FaultKind::Status, 0, "submitted job-"}};
    for (const auto &[path, kind, times, notice] : rows) {
        serve();
        inject(path, kind, times);
        const auto program = ended(runOf("hull-sweep.json") + " --json", 0, "finished 100%");
        EXPECT_EQ(q(program->errors()).count(QLatin1String(notice)), 1) << path << int(kind) << program->errors();
        EXPECT_EQ(m_portal->jobStatus(program->text("jobId")), "FINISHED");
    }
    EXPECT_EQ(ended(runOf("beam-single.json") + " --quiet", 0, "finished")->errors(), "");
    serve(500ms, true);
    ended(runOf("beam-single.json"), 4, "did not finish: it was failed");
}

TEST_F(ProgramTest, run_jobThatDoesNotEnd_isLeftInEveryWay)
{
    serve(60s);
    const auto stopped = start(runOf("hull-sweep.json"));
    const string id = submitted(*stopped);
    m_portal->expireTokens();
    EXPECT_EQ(ended("stop --json " + id, 0)->json()["simulationAbortList"].toArray().size(), 5);
    EXPECT_EQ(stopped->end(), 4);
    EXPECT_TRUE(contains(stopped->errors(), "did not finish: it was stopped"));
    EXPECT_EQ(m_portal->requestCount("auth/login"), 2U) << "one to run, one to stop; the first goes on by its token";
    EXPECT_EQ(ended("watch --json " + id, 4)->json()["job"]["jobId"].toString(), q(id));

    const auto interrupted = start(runOf("beam-single.json"));
    const string other = submitted(*interrupted);
    interrupted->interrupt();
    EXPECT_EQ(interrupted->end(), 130);
    EXPECT_TRUE(contains(interrupted->errors(), "velmora watch " + other + m_connection));
    EXPECT_NE(m_portal->jobStatus(other), "STOPPED");

    const auto lost = start("watch --patience 1 " + other);
    EXPECT_TRUE(lost->says(other));
    m_portal.reset();
    EXPECT_EQ(lost->end(), 3);
    EXPECT_TRUE(contains(lost->errors(), "may go on; watch it again with"));
}

TEST_F(ProgramTest, everyCommand_seededJobs_showsTheSameAsTextAndJson)
{
    serve();
    const std::tuple<string, int, const char *, const char *, const char *> rows[] = {
        // command, exit code, what its text holds, a key of its JSON, what the text does not hold
        {"jobs", 0, "job-wing0001", "jobDetailsList", "job-pump0003"},
        {"job job-wing0001", 0, "wing.trninp", "jobId", "error"},
        {"job no-such-job", 1, "no-such-job", "error", "wing"},
        {"progress job-wing0001", 0, "100%", "simulationProgressList", "error"},
        {"files", 0, "job-duct0002", "fileList", "/rtg/"},
        {"files job-wing0001 sim-1 --all", 0, "sim-1/rtg/residuals.dat", "fileList", "wing.mesh"},
        {"rm job-wing0001 wing.trninp#x", 1, "has no file", "error", "deleted"},
        {"archive job-wing0001", 0, "archived job-wing0001", "jobDetailsList", "error"},
        {"watch job-wing0001", 0, "archived", "jobId", "error"},
        {"status", 0, "answers", "host", "error"},
        {"accounts", 0, "ACC-2002", "accountDetailsList", "error"},
        {"balance ACC-1001", 0, "job-wing0001", "recentTransactions", "error"},
        {"me --first-name= --company Wings", 0, "Wings", "companyName", "Aerodynamics"},
        {"hpc ACC-1001 --preferred", 0, "hpc-us-1", "hpcDetailsList", "hpc-lab-1"},
        {"event open mesher", 0, "mesher", "eventType", "eventValue"},
        {"tag job-wing0001 fast", 0, "fast", "itemTagList", "error"},
        {"tags job-wing0001", 0, "fast", "jobId", "duct"},
        {"tags --account ACC-2002", 0, "duct", "accountId", "fast"},
        {"tags", 0, "duct", "accountTagList", "error"},
        {"find wing fast", 0, "job-wing0001", "jobDetailsList", "job-duct0002"},
        {"find wing duct", 0, "", "jobDetailsList", "job-"}};
    for (const auto &[line, exit, text, key, hidden] : rows) {
        EXPECT_FALSE(contains(ended(line, exit, text)->output(), hidden)) << line;
        const auto program = ended(line + " --json", exit);
        EXPECT_TRUE(program->json().toObject().contains(key)) << line << program->output();
    }
    ended("rm job-wing0001 wing.mesh", 0, "deleted wing.mesh");
    ended("untag job-wing0001 fast", 0, "wing");
    const auto me = ended("me --json", 0, "Wings");
    EXPECT_EQ(me->text("forename") + me->text("surname"), "Field");
}

struct SignInTest : ProgramTest {
    SignInTest() { serve(); }
    void signInOnce(size_t user = 0)
    {
        signInAs(m_users[user].email, m_users[user].password, m_users[user].mfaCode);
        ended("login", 0, m_users[user].email + " is signed in");
        signInAs("", "", "");
    }
    string tokenFile() const
    {
        for (const string &name : m_folder.below("config"))
            if (name.find(".token") != string::npos)
                return "config/" + name;
        return "none";
    }
};

TEST_F(SignInTest, login_everyOutcome_hasItsExitCode)
{
    const string right = m_users[0].password, other = m_users[1].password, code = m_users[1].mfaCode;
    const std::tuple<size_t, string, string, int> rows[] = {{0, right, "", 0},       {0, "wrong", "", 1},
                                                            {0, "", "", 2},          {1, other, code, 0},
                                                            {1, other, "111111", 1}, {1, other, "", 2}};
    for (const auto &[user, password, mfa, exit] : rows)
        for (const bool piped : {false, true}) {
            signInAs(m_users[user].email, piped ? "unused" : password, mfa);
            const auto program = start(piped ? "login --json --password-stdin" : "login --json");
            program->write(password.empty() ? "" : (password + "\r\n").c_str());
            program->closeWriteChannel();
            EXPECT_EQ(program->end(), exit) << password << mfa << piped << program->errors();
            EXPECT_EQ(program->json()["error"].isObject(), exit != 0);
            EXPECT_FALSE(contains(program->output(), "oken"));
        }
}

TEST_F(SignInTest, login_once_servesEveryCommandUntilLogout)
{
    signInOnce(1);
    const string token = m_folder.read(tokenFile());
    EXPECT_EQ(token.find("refresh."), 0U);
#ifdef Q_OS_UNIX
    EXPECT_EQ(QFile::permissions(q(m_folder.path(tokenFile()))) & 0x777, 0x600);
#endif
    const auto jobs = ended("jobs --verbose", 0, "job-pump0003");
    EXPECT_FALSE(contains(jobs->errors() + tokenFile(), token));
    EXPECT_EQ(m_portal->requestCount("auth/login"), 1U);
    Program words("words -- job" + m_connection + " job-p", m_folder.root());
    EXPECT_EQ(words.end(), 0);
    EXPECT_EQ(words.output().find("job-pump0003\tPump-"), 0U) << words.output();
    ended("logout", 0, "signed out");
    EXPECT_EQ(tokenFile(), "none");
    ended("jobs", 2, "no user");
    ended("logout", 0, "nobody");
}

TEST_F(SignInTest, storedToken_anyTrouble_isForgottenOnlyWhenRefused)
{
    signInOnce();
    const string file = tokenFile(), token = m_folder.read(file);
    inject("auth/refresh", FaultKind::ResetAfter, 1);
    ended("jobs", 3);
    inject("auth/refresh", FaultKind::Status, 1, 503);
    ended("jobs", 1);
    EXPECT_EQ(m_folder.read(file), token);
    m_folder.write(file, "refresh.old");
    EXPECT_TRUE(contains(ended("jobs", 2, "no password")->errors(), "no longer signed in"));
    EXPECT_EQ(tokenFile(), "none");
}

TEST_F(SignInTest, config_profiles_completeWhatIsNotGiven)
{
    m_connection.clear();
    ended("config set host " + m_portal->host() + " --profile lab", 0, "lab");
    ended("config set ca " + m_portal->caFile() + " --profile lab", 0);
    ended("config set user " + m_users[1].email + " --profile lab", 0);
    ended("config set to out/new", 0);
    ended("status", 3);
    ended("status --profile lab", 0, "answers");
    ended("status --profile lab --host 127.0.0.1:1", 3, "127.0.0.1:1");
    ended("download job-wing0001 wing.mesh --profile lab", 0);
    ended("watch job-wing0001 --profile lab", 0);
    EXPECT_EQ(m_folder.below("out/new").size(), 1U) << "watch fetches nothing without --to";
    signInAs("", m_users[1].password, m_users[1].mfaCode);
    ended("jobs --profile lab", 0, "job-pump0003");
    ended("words -- status --profile la", 0);
    ended("config set user --profile lab", 0);
    ended("jobs --profile lab", 2, "no user");
}

TEST_F(ProgramTest, mistakes_areNamedWithWhatWasMeant)
{
    const VelmoraPortal::Portal untrusted;
    const string refused = "could not reach 127.0.0.1:1: The connection to 127.0.0.1:1 was refused";
    for (const auto &[line, exit, message] : std::initializer_list<std::tuple<string, int, string>>{
             {"jbos", 2, "there is no command \"jbos\"; did you mean \"jobs\"?"},
             {"--quiet dwonload job-1", 2, "did you mean \"download\""},
             {"jobs --jsno", 2, "there is no option --jsno; did you mean \"--json\"?"},
             {"zzzzzz", 2, "there is no command \"zzzzzz\"\n"},
             {"words -- hpc --pre", 0, "--preferred\tPreferred clusters only\n"},
             {"words -- jo", 0, "jobs\tList your jobs, newest first\n"},
             {"words -- jobs --portal =", 0, "production\n"},
             {"words -- jobs --portal = dev", 0, "development\n"},
             {"words -- upload job-1 a", 0, ":files\n"},
             {"words -- sync a", 0, ":folders\n"},
             {"jobs --host 127.0.0.1:1", 3, refused},
             {"status --host 127.0.0.1:1", 3, refused},
             {"jobs --host " + untrusted.host(), 3, "--ca"}})
        ended(line, exit, message);
}

TEST_F(ProgramTest, manualHelpAndPages_nameWhatThereIs)
{
    const auto text = [this](const string &line) { return q(ended(line, 0)->output()); };
    const auto source = [](const QString &path) {
        QFile file(VELMORA_SOURCE_FOLDER "/" + path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        return QString::fromUtf8(file.readAll());
    };
    const auto all = [](const QString &in, const char *pattern) {
        Strings found;
        QRegularExpression lines(pattern, QRegularExpression::MultilineOption);
        for (auto match = lines.globalMatch(in); match.hasNext();)
            found.insert(match.next().captured(1).toStdString());
        return found;
    };
    const QString manual = text("manual").remove('\\'), program = text("--help");
    QMap<QString, QString> helps;
    for (const QString &line : text("words -- ").split('\n', Qt::SkipEmptyParts))
        helps[line.section('\t', 0, 0)] = text(line.section('\t', 0, 0).toStdString() + " --help");
    ASSERT_GT(helps.size(), 25);
    const QString page = source("docs/tasks/command-line.md").section("<!--", 0, 0),
                  shared = manual.section(".SH COMMANDS", 0, 0);
    QString examples = source("README.md") + page;
    for (auto help = helps.begin(); help != helps.end(); ++help) {
        const QString own = manual.section(".SS \"velmora " + help.key() + " [OPTIONS]", 1).section(".SS", 0, 0);
        for (const string &name : all(help.value(), "^  (?:-h,)?(--[a-z-]+)"))
            EXPECT_TRUE(contains((shared + own).toStdString(), "fB" + name + "fR")) << help.key().toStdString();
        EXPECT_TRUE(page.contains("velmora " + help.key())) << help.key().toStdString() << " is not on the page";
        examples += help.value();
    }
    const Strings uses = all(examples, "(?<![/#] )velmora ([a-z]+\\b[^`\"\\n|]*)");
    EXPECT_GT(uses.size(), 50U);
    for (const string &example : uses) {
        const Strings known = all(helps.value(q(example).section(' ', 0, 0)), "(?<![\\w-])(--[a-z][a-z-]+)");
        EXPECT_FALSE(known.empty()) << example;
        for (const string &given : all(q(example), "(?<![\\w-])(--[a-z][a-z-]+)"))
            EXPECT_EQ(known.count(given), 1U) << example;
    }
    QString sources;
    QDirIterator files(VELMORA_SOURCE_FOLDER "/tools/velmora", {"*.cpp"}, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext())
        sources += source(files.next().section("/tools/", 1).prepend("tools/"));
    const QString codes = source("tools/velmora/common/Options.h").section("enum class", 1, 1);
    for (const QString &described : {program, manual}) {
        EXPECT_EQ(all(sources, "\"(VELMORA_[A-Z_]+)\""), all(described, "^  (VELMORA_[A-Z_]+) "));
        EXPECT_EQ(all(codes, "^    \\w+ = (\\d+)"), all(described, "^  (\\d+) "));
    }
    const QString keys = q(ended("config set moon 1", 2)->errors()).section("there are:", 1).trimmed();
    EXPECT_TRUE(contains(helps["config"].toStdString(), keys.split(' ').join(", ").toStdString()));
}

} // namespace CliTests
