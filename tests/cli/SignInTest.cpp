#include "Program.h"

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace CliTests {

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

TEST_F(SignInTest, login_once_servesEveryCommandUntilLogout)
{
    signInOnce(1);
    const string token = m_folder.read(tokenFile());
    EXPECT_EQ(token.find("refresh."), 0U);
#ifdef Q_OS_UNIX
    struct stat file {};
    EXPECT_EQ(::stat(m_folder.path(tokenFile()).c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777U, 0600U);
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
    EXPECT_EQ(m_folder.below("out/new").size(), 1U);
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

TEST_F(ProgramTest, manualHelpAndReadme_nameTheSameCommandsAndOptions)
{
    const auto text = [this](const string &line) { return q(ended(line, 0)->output()); };
    const QString manual = text("manual").remove('\\');
    QMap<QString, QString> helps;
    for (const QString &line : text("words -- ").split('\n', Qt::SkipEmptyParts))
        helps[line.section('\t', 0, 0)] = text(line.section('\t', 0, 0).toStdString() + " --help");
    ASSERT_GT(helps.size(), 25);
    static const QRegularExpression option("(?<![\\w-])--[a-z][a-z-]+"), use("velmora ([a-z]+)([^`\\n|]*)"),
        entry("^  (?:-h,)?(--[a-z-]+)", QRegularExpression::MultilineOption);
    QFile readme(VELMORA_SOURCE_FOLDER "/README.md");
    ASSERT_TRUE(readme.open(QIODevice::ReadOnly));
    QString examples = QString::fromUtf8(readme.readAll());
    const QString shared = manual.section(".SH COMMANDS", 0, 0);
    for (auto help = helps.begin(); help != helps.end(); ++help) {
        const QString own = manual.section(".SS \"velmora " + help.key() + " [OPTIONS]", 1).section(".SS", 0, 0);
        for (auto found = entry.globalMatch(help.value()); found.hasNext();)
            EXPECT_TRUE(contains((shared + own).toStdString(), "fB" + found.next().captured(1).toStdString() + "fR"));
        examples += help.value();
    }
    int uses = 0;
    for (auto found = use.globalMatch(examples.replace("bin/velmora --host HOST --ca CA.pem", "velmora"));
         found.hasNext(); ++uses) {
        const QRegularExpressionMatch example = found.next();
        const QString help = helps.value(example.captured(1));
        EXPECT_FALSE(help.isEmpty()) << example.captured().toStdString();
        for (auto given = option.globalMatch(example.captured(2)); given.hasNext();)
            EXPECT_TRUE(help.contains(given.next().captured())) << example.captured().toStdString();
    }
    EXPECT_GT(uses, 10);
}

} // namespace CliTests
