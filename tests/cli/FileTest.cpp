#include "Program.h"

#include <random>
#include <set>

using namespace CliTests;

namespace {

using Strings = std::set<string>;

class FileTest : public ProgramTest {
protected:
    static string bytesOf(char seed, size_t size)
    {
        string bytes;
        while (bytes.size() < size)
            bytes += seed + std::to_string(bytes.size());
        return bytes.substr(0, size);
    }
    /// The command that runs a job of two simulations with three input files.
    string job(size_t meshSize = 100000) const
    {
        write("in/b.trninp", bytesOf('t', 4000));
        write("in/b.mesh", bytesOf('m', meshSize));
        write("m.mat", "");
        return "run --to out " + write("job.json", R"({"jobName": "B", "mainFile": "in/b.trninp", "operation": 1,
            "dependentFilesList": ["in/b.mesh", "m.mat"], "dependentFilesAliasList": ["mesh", "mat"],
            "simulations": ["-v 1", "-v 2"], "coresRequired": 1, "coreHourEstimate": 1, "ramEstimate": 100,
            "accountID": "ACC-1001"})");
    }
    /// Every file below a folder of the test's.
    Strings below(const string &folder) const
    {
        Strings names;
        QDirIterator each(q(path(folder)), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (each.hasNext())
            names.insert(QDir(q(path(folder))).relativeFilePath(each.next()).toStdString());
        return names;
    }
};

TEST_F(FileTest, run_realInputs_bringsBackEveryByte)
{
    VelmoraPortal::Options options;
    options.requireInputs = true;
    options.storage.pieceSize = 30000;
    options.storage.shuffle = true;
    options.storage.upload = VelmoraPortal::StorageOptions::Upload::RawPut;
    options.storage.download = VelmoraPortal::StorageOptions::Download::Mixed;
    serve(1000ms, options);
    const auto program = ended(job() + " --json", 0);
    EXPECT_EQ(q(program->output()).count("\"state\": \"done\""), 3 + 6);
    EXPECT_EQ(below("out"), (Strings{"sim-1/results.dat", "sim-1/run.log", "sim-1/summary.json", "sim-2/results.dat",
                                     "sim-2/run.log", "sim-2/summary.json"}));
    for (const string &name : below("out"))
        EXPECT_EQ(read("out/" + name), m_portal->plainFile(program->text("jobId"), name)) << name;
    const string results = read("out/sim-2/results.dat");
    EXPECT_EQ(results.substr(results.find('\n') + 1), bytesOf('t', 4000) + bytesOf('m', 100000));
    EXPECT_EQ(below("tmp"), Strings());
}

TEST_F(FileTest, inputs_notUsable_areAllNamedBeforeAnythingIsSent)
{
    serve();
    const string run = job();
    write("other/m.mat", "x");
    QDir(q(path("in"))).removeRecursively();
    EXPECT_TRUE(contains(ended(run, 2, "b.trninp: No such file")->errors(), "b.mesh: No such file"));
    ended("upload other --job job-wing0001", 2, "other: is a folder");
    ended("upload m.mat other/m.mat --job job-wing0001", 2, "same name");
    ended("download job-wing0001 --to m.mat/x", 2, "nothing can be saved");
    EXPECT_TRUE(m_portal->requests().empty());
}

TEST_F(FileTest, run_oneUploadFails_othersGoOnAndNothingIsSubmitted)
{
    // Any of them may be the one, and the silence of a large one is taken for a slow link's.
    for (const auto &[kind, exit, size] :
         {std::tuple(FaultKind::Status, 1, 12000000), {FaultKind::Silence, 3, 100000}}) {
        serve();
        inject("storage", kind, 1, 409); // not worth a second try
        const auto program = ended(job(size) + " --timeout 1 --json", exit, "no job was submitted");
        EXPECT_EQ(q(program->output()).count("\"state\": \"done\""), 2);
        EXPECT_EQ(m_portal->requestCount("job/submit"), 0U);
        EXPECT_EQ(below("tmp"), Strings());
    }
}

TEST_F(FileTest, download_anySelection_keepsPathsAndStaysInItsFolder)
{
    serve();
    m_portal->addFile("job-wing0001", "sim-2/forces.csv", "2");
    m_portal->addFile("job-wing0001", "sim-2/../../evil", "!");
    const struct {
        const char *arguments;
        int exit;
        Strings files;
    } rows[] = {{"forces.csv", 0, {"sim-1/forces.csv", "sim-2/forces.csv"}},
                {"sim-1 wing.*", 0, {"sim-1/forces.csv", "wing.trninp", "wing.mesh"}},
                {"sim-1/rtg/residuals.dat", 0, {"sim-1/rtg/residuals.dat"}},
                {"nothing wing.mesh", 1, {"wing.mesh"}},
                {"", 1, {"sim-1/forces.csv", "sim-2/forces.csv", "wing.trninp", "wing.mesh"}}};
    for (const auto &row : rows) {
        ended("download job-wing0001 "s + row.arguments, row.exit);
        EXPECT_EQ(below("job-wing0001"), row.files) << row.arguments;
        for (const string &name : row.files)
            EXPECT_EQ(read("job-wing0001/" + name), m_portal->plainFile("job-wing0001", name)) << name;
        QDir(q(path("job-wing0001"))).removeRecursively();
    }
    EXPECT_EQ(below("."), Strings());
}

TEST_F(FileTest, transfer_interrupted_cancelsAndSaysHowToGoOn)
{
    serve();
    const string run = job(12000000); // more than the sockets' buffers take
    inject("storage", FaultKind::SlowRead, 0);
    const auto sending = start(run);
    EXPECT_TRUE(sending->says("b.mesh sending"));
    sending->interrupt();
    EXPECT_EQ(sending->end(), 130);
    EXPECT_TRUE(contains(sending->errors(), "interrupted; left undone:\n  b.mesh\nno job was submitted"));
    EXPECT_EQ(m_portal->requestCount("job/submit"), 0U);
    EXPECT_EQ(below("tmp"), Strings());

    m_portal->clearFaults();
    inject("storage/piece", FaultKind::SlowWrite, 0);
    const auto receiving = start(run);
    EXPECT_TRUE(receiving->says("sim-1/results.dat receiving"));
    receiving->interrupt();
    EXPECT_EQ(receiving->end(), 130);
    for (const string &name : below("out"))
        EXPECT_FALSE(contains(name, "results.dat"));
    m_portal->clearFaults();
    const string said = receiving->errors();
    const auto from = said.find("velmora download") + 8;
    Program rest(said.substr(from, said.find('\n', from) - from), m_directory.path());
    EXPECT_EQ(rest.end(), 0) << rest.errors();
    EXPECT_GT(read("out/sim-1/results.dat").size(), 12000000U);
}

// Whenever the process is killed, a file is the old one or whole, here and at the service. VELMORA_KILLS: how often.
TEST_F(FileTest, transfer_killedAtAnyMoment_leavesFilesOldOrWhole)
{
    VelmoraPortal::Options options;
    options.storage.pieceSize = 1 << 20;
    serve(1000ms, options);
    const string bytes = bytesOf('n', 6 << 20), download = "download job-wing0001 big --to out",
                 upload = "upload new --job job-wing0001";
    m_portal->addFile("job-wing0001", "big", bytes);
    write("new", bytes);
    std::mt19937 random(20);
    int left[2] = {};
    for (int i = std::max(20, qEnvironmentVariableIntValue("VELMORA_KILLS")); i > 0; --i) {
        SCOPED_TRACE(i);
        const bool sends = i % 2 == 0;
        write("out/big", "old");
        m_portal->removeFile("job-wing0001", "new");
        const auto program = start(sends ? upload : download);
        program->waitForFinished(int(random() % 400));
        program->kill();
        program->waitForFinished();
        const auto file = sends ? m_portal->plainFile("job-wing0001", "new") : read("out/big");
        EXPECT_TRUE(!file || *file == bytes || (!sends && *file == "old"));
        left[sends] += file == bytes ? 0 : 1;
    }
    EXPECT_TRUE(left[0] > 0 && left[1] > 0) << "no transfer was killed under way";
    ended(download, 0);
    ended(upload, 0);
    EXPECT_EQ(read("out/big"), bytes);
    EXPECT_EQ(m_portal->plainFile("job-wing0001", "new"), bytes);
    EXPECT_EQ(below("out"), Strings({"big"})) << "pieces of killed downloads are removed";
}

} // namespace
