#include "Program.h"

#include <QDateTime>

using namespace CliTests;

namespace {

using Strings = std::set<string>;

class FolderTest : public ProgramTest {
protected:
    FolderTest() { serve(); }
    Strings stored() const
    {
        Strings names;
        for (const auto &file : m_portal->files(Job))
            names.insert(file.name);
        return names;
    }
    void setAge(const string &name, int seconds) const
    {
        QFile file(q(m_folder.path(name)));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        file.setFileTime(QDateTime::currentDateTime().addSecs(-seconds), QFileDevice::FileModificationTime);
    }
    /// What a command moved, deleted and left, as its document says.
    string done(const string &line, int exit = 0) const
    {
        const auto document = ended(line + " --json", exit)->json();
        const auto count = [&](const char *key) { return std::to_string(document[key].toArray().size()); };
        return count("uploads") + count("downloads") + count("deletions") + ' ' +
               std::to_string(document["same"].toInt());
    }

    static constexpr const char *Job = "job-wing0001";
    const string m_results = "sim-1/forces.csv";
};

TEST_F(FolderTest, upload_foldersAndFiles_arriveByNameInEitherGrammar)
{
    m_folder.write("in/a.mesh", "a");
    m_folder.write("in/deep/b#1%.mesh", string(70000, 'b'));
    m_folder.write("in/UNCONFIRMED_DOWNLOAD.x.VELMORA", "left by another program");
    m_folder.write("c", "");
    const auto program = ended("upload job-wing0001 in c --json --bwlimit 50M --transfers 2", 0);
    EXPECT_EQ(program->json()["uploads"].toArray().size(), 3);
    EXPECT_EQ(m_portal->plainFile(Job, "b#1%.mesh"), string(70000, 'b'));
    EXPECT_EQ(stored().count("UNCONFIRMED_DOWNLOAD.x.VELMORA"), 0U);
    m_folder.write("c", "new");
    EXPECT_TRUE(contains(ended("upload c --job job-wing0001", 0)->errors(), "velmora upload JOB"));
    EXPECT_EQ(m_portal->plainFile(Job, "c"), "new");

    EXPECT_EQ(ended("cat job-wing0001 b#1%.mesh", 0)->output(), string(70000, 'b'));
    EXPECT_EQ(ended("cat job-wing0001 none", 1)->output(), "");
    EXPECT_EQ(m_folder.below("tmp"), Strings());
    const auto files = ended("files job-wing0001 --json", 0)->json()["fileList"].toArray();
    EXPECT_EQ(files.size(), 6);
    for (const QJsonValue &file : files)
        EXPECT_EQ(file["plainSizeAtMost"].toInt() + 1, file["storedSize"].toInt());
}

TEST_F(FolderTest, rm_anySelection_deletesThatAndNothingElse)
{
    const Strings all = stored();
    for (const auto &[arguments, exit, kept] : std::initializer_list<std::tuple<string, int, Strings>>{
             {"none", 1, all},
             {"wing.mesh none --yes", 1, all},
             {"sim-1 --yes", 2, all},
             {"*.csv --yes", 1, all},
             {"wing.*", 2, all}, // there is no terminal to answer on
             {"wing.mesh", 0, {m_results, "sim-1/rtg/residuals.dat", "wing.trninp"}},
             {"sim-1 --recursive --yes", 0, {"sim-1/rtg/residuals.dat", "wing.trninp"}},
             {"sim-1/rtg/residuals.dat", 0, {"wing.trninp"}},
             {"wing.* --yes", 0, {}}}) {
        ended("rm job-wing0001 " + arguments, exit);
        EXPECT_EQ(stored(), kept) << arguments;
    }
    EXPECT_EQ(m_portal->requestCount("job/files/job-wing0001/wing.mesh"), 1U);
}

TEST_F(FolderTest, sync_eachDirection_movesOnlyWhatDiffers)
{
    EXPECT_EQ(done("sync job-wing0001: dir --dry-run"), "030 0");
    EXPECT_EQ(m_folder.below("dir"), Strings());
    EXPECT_EQ(done("sync job-wing0001: dir"), "030 0");
    for (const string &name : m_folder.below("dir"))
        EXPECT_EQ(m_folder.read("dir/" + name), m_portal->plainFile(Job, name)) << name;
    EXPECT_EQ(done("sync job-wing0001: dir"), "000 3");
    EXPECT_EQ(done("sync dir job-wing0001:"), "000 2") << "results stay where they are";

    const string mesh = m_folder.read("dir/wing.mesh");
    m_folder.write("dir/wing.mesh", string(mesh.size(), 'x')); // the same size, another time
    EXPECT_EQ(done("sync dir job-wing0001: --dry-run"), "100 1");
    EXPECT_EQ(done("sync dir job-wing0001:"), "100 1");
    EXPECT_EQ(m_portal->plainFile(Job, "wing.mesh"), string(mesh.size(), 'x'));
    EXPECT_EQ(done("sync dir job-wing0001:"), "000 2");
    m_folder.write("dir/wing.mesh", mesh + string(100, 'y'));
    setAge("dir/wing.mesh", 1000000); // older, but of another size
    EXPECT_EQ(done("sync dir job-wing0001:"), "100 1");
    setAge("dir/" + m_results, 5);
    EXPECT_EQ(done("sync job-wing0001: dir"), "020 1") << "the mesh has the date of its upload now";
}

TEST_F(FolderTest, sync_delete_needsAnAnswerAndAllElseInPlace)
{
    ended("download job-wing0001 --to dir", 0);
    m_folder.write("dir/own", "o");
    EXPECT_EQ(done("sync job-wing0001: dir"), "000 3");
    ended("sync job-wing0001: dir --delete", 2, "own");
    inject("job/key", FaultKind::Status, 0, 403);
    setAge("dir/wing.mesh", 5);
    EXPECT_EQ(done("sync job-wing0001: dir --delete --yes", 1), "011 2");
    EXPECT_EQ(m_folder.read("dir/own"), "o");
    m_portal->clearFaults();
    EXPECT_EQ(done("sync job-wing0001: dir --delete --yes"), "011 2");
    EXPECT_EQ(m_folder.below("dir"), (Strings{m_results, "wing.mesh", "wing.trninp"}));

    QFile::remove(q(m_folder.path("dir/wing.mesh")));
    EXPECT_EQ(done("sync dir job-wing0001: --delete --yes"), "001 1");
    EXPECT_EQ(stored(), (Strings{m_results, "sim-1/rtg/residuals.dat", "wing.trninp"}));
}

} // namespace
