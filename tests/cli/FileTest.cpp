#include "Program.h"

namespace CliTests {

struct FileTest : ProgramTest {
    FileTest() { serve(); }
    void TearDown() override { EXPECT_EQ(m_folder.below("tmp"), Strings()) << "encrypted copies are left"; }
};

TEST_F(FileTest, run_realInputs_bringsBackEveryByte)
{
    serve(1000ms, true, {Storage::Upload::RawPut, Storage::Download::Mixed, 30000, true});
    const auto program = ended(job(2, 100000) + " --each=-v{1,2} --json", 0);
    EXPECT_EQ(q(program->output()).count("\"state\": \"done\""), 3 + 6);
    EXPECT_EQ(m_folder.below("out"), (Strings{"sim-1/results.dat", "sim-1/run.log", "sim-1/summary.json",
                                              "sim-2/results.dat", "sim-2/run.log", "sim-2/summary.json"}));
    for (const string &name : m_folder.below("out"))
        EXPECT_EQ(m_folder.read("out/" + name), m_portal->plainFile(program->text("jobId"), name)) << name;
    const string results = m_folder.read("out/sim-2/results.dat");
    EXPECT_EQ(results.substr(results.find('\n') + 1), "main" + m_folder.read("in/mesh-0"));
}

TEST_F(FileTest, inputs_notUsable_areAllNamedBeforeAnythingIsSent)
{
    const string run = job(1);
    m_folder.write("other/job.json", "x");
    m_folder.remove("in");
    EXPECT_TRUE(contains(ended(run, 2, "b.trninp: No such file")->errors(), "mesh-0: No such file"));
    ended("upload job-wing0001 none", 2, "none: No such file");
    ended("upload job.json other --job job-wing0001", 2, "same name");
    ended("download job-wing0001 --to job.json/x", 2, "nothing can be saved");
    EXPECT_TRUE(m_portal->requests().empty());
}

TEST_F(FileTest, run_oneUploadFails_othersGoOnAndNothingIsSubmitted)
{
    inject("storage", FaultKind::Status, 1, 409); // not worth a second try
    const auto program = ended(job(2, 12000000) + " --json", 1, "no job was submitted");
    EXPECT_EQ(q(program->output()).count("\"state\": \"done\""), 2);
    EXPECT_EQ(m_portal->requestCount("job/submit"), 0U);
}

TEST_F(FileTest, download_anySelection_keepsPathsAndStaysInItsFolder)
{
    m_portal->addFile("job-wing0001", "sim-2/forces.csv", "2");
    m_portal->addFile("job-wing0001", "sim-2/../../evil", "!");
    const std::tuple<string, int, Strings> rows[] = {
        {"forces.csv", 0, {"sim-1/forces.csv", "sim-2/forces.csv"}},
        {"sim-1 wing.*", 0, {"sim-1/forces.csv", "wing.trninp", "wing.mesh"}},
        {"sim-1/rtg/residuals.dat", 0, {"sim-1/rtg/residuals.dat"}},
        {"nothing wing.mesh", 1, {"wing.mesh"}},
        {"", 1, {"sim-1/forces.csv", "sim-2/forces.csv", "wing.trninp", "wing.mesh"}}};
    for (const auto &[arguments, exit, files] : rows) {
        ended("download job-wing0001 " + arguments, exit);
        EXPECT_EQ(m_folder.below("job-wing0001"), files) << arguments;
        for (const string &name : files)
            EXPECT_EQ(m_folder.read("job-wing0001/" + name), m_portal->plainFile("job-wing0001", name)) << name;
        m_folder.remove("job-wing0001");
    }
    EXPECT_EQ(m_folder.below("."), Strings());
}

TEST_F(FileTest, transfer_interrupted_cancelsAndSaysHowToGoOn)
{
    const string run = job(2, 12000000); // more than the sockets' buffers take
    string said;
    for (const bool sends : {true, false}) {
        m_portal->clearFaults();
        inject(sends ? "storage" : "storage/piece", sends ? FaultKind::SlowRead : FaultKind::SlowWrite, 0);
        const auto program = start(run);
        EXPECT_TRUE(program->says(sends ? "mesh-0 sending" : "sim-1/results.dat receiving"));
        program->interrupt();
        EXPECT_EQ(program->end(), 130);
        said = program->errors();
        // The small files may have arrived or not.
        EXPECT_TRUE(contains(said, "interrupted; left undone:\n")) << said;
        EXPECT_EQ(bool(contains(said, "\n  mesh-0\n")) && contains(said, "\nno job was submitted"), sends) << said;
        EXPECT_EQ(m_portal->requestCount("job/submit"), sends ? 0U : 1U);
        for (const string &name : m_folder.below("out"))
            EXPECT_FALSE(contains(name, "results.dat"));
    }
    m_portal->clearFaults();
    const auto from = said.find("velmora download") + 8;
    Program rest(said.substr(from, said.find('\n', from) - from), m_folder.root());
    EXPECT_EQ(rest.end(), 0) << rest.errors();
    EXPECT_GT(m_folder.read("out/sim-1/results.dat").size(), 12000000U);
}

struct FolderTest : FileTest {
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
    const auto files = ended("files job-wing0001 --json", 0)->json()["fileList"].toArray();
    EXPECT_EQ(files.size(), 6);
    for (const QJsonValue &file : files)
        EXPECT_EQ(file["plainSizeAtMost"].toInt() + 1, file["storedSize"].toInt());
}

TEST_F(FolderTest, refusals_sayWhatTheyMean_afterOneNewAddressForEachFile)
{
    m_folder.write("f", "f");
    const string up = "upload job-wing0001 f", down = "download job-wing0001 ", again = "that it does not take either";
    const std::tuple<string, string, int, int, int, string, size_t> rows[] = {
        // command, path, status, times, exit code, message, requests to the storage at most
        {"jobs", "job/list", 503, 0, 1, "Information (status 503); the service has a fault", 0},
        {"jobs", "job/list", 402, 0, 1, "core hours", 0},
        {up, "job/key", 403, 0, 1, "Key (status 403); you may not", 0},
        {up, "storage", 413, 0, 1, "the status 413; that is more", 1},
        {up, "storage", 403, 0, 1, again, 2},
        {up, "storage", 403, 1, 0, "", 2},
        {up, "storage", 503, 2, 0, "", 3},
        {down + "wing.trninp", "storage", 410, 0, 1, "410", 2},
        {down + "wing.mesh", "storage", 403, 0, 1, again, 5}}; // large: another request finds out why nothing comes
    for (const auto &[line, path, status, times, exit, message, most] : rows) {
        m_portal->clearFaults();
        m_portal->clearRequests();
        inject(path, FaultKind::Status, times, status);
        EXPECT_FALSE(contains(ended(line, exit, message)->errors(), "https://")) << line;
        size_t count = 0;
        for (const auto &request : m_portal->requests())
            count += request.target.find("/storage/") == 0 ? 1 : 0;
        EXPECT_LE(count, most) << line << status;
    }
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

} // namespace CliTests
