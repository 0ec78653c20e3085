#include "Program.h"

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
        m_folder.write("in/b.trninp", bytesOf('t', 4000));
        m_folder.write("in/b.mesh", bytesOf('m', meshSize));
        m_folder.write("m.mat", "");
        return "run --to out " +
               m_folder.write("job.json", R"({"jobName": "B", "mainFile": "in/b.trninp", "operation": 1,
            "dependentFilesList": ["in/b.mesh", "m.mat"], "dependentFilesAliasList": ["mesh", "mat"],
            "simulations": ["-v 1", "-v 2"], "coresRequired": 1, "coreHourEstimate": 1, "ramEstimate": 100,
            "accountID": "ACC-1001"})");
    }
};

TEST_F(FileTest, run_realInputs_bringsBackEveryByte)
{
    VelmoraPortal::Options options;
    options.requireInputs = true;
    using Storage = VelmoraPortal::StorageOptions;
    options.storage = {Storage::Upload::RawPut, Storage::Download::Mixed, 30000, true};
    serve(1000ms, options);
    const auto program = ended(job() + " --json", 0);
    EXPECT_EQ(q(program->output()).count("\"state\": \"done\""), 3 + 6);
    EXPECT_EQ(m_folder.below("out"), (Strings{"sim-1/results.dat", "sim-1/run.log", "sim-1/summary.json",
                                              "sim-2/results.dat", "sim-2/run.log", "sim-2/summary.json"}));
    for (const string &name : m_folder.below("out"))
        EXPECT_EQ(m_folder.read("out/" + name), m_portal->plainFile(program->text("jobId"), name)) << name;
    const string results = m_folder.read("out/sim-2/results.dat");
    EXPECT_EQ(results.substr(results.find('\n') + 1), bytesOf('t', 4000) + bytesOf('m', 100000));
    EXPECT_EQ(m_folder.below("tmp"), Strings());
}

TEST_F(FileTest, inputs_notUsable_areAllNamedBeforeAnythingIsSent)
{
    serve();
    const string run = job();
    m_folder.write("other/m.mat", "x");
    m_folder.remove("in");
    EXPECT_TRUE(contains(ended(run, 2, "b.trninp: No such file")->errors(), "b.mesh: No such file"));
    ended("upload job-wing0001 none", 2, "none: No such file");
    ended("upload m.mat other --job job-wing0001", 2, "same name");
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
        EXPECT_EQ(m_folder.below("tmp"), Strings());
    }
}

TEST_F(FileTest, download_anySelection_keepsPathsAndStaysInItsFolder)
{
    serve();
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
    serve();
    const string run = job(12000000); // more than the sockets' buffers take
    string said;
    for (const bool sends : {true, false}) {
        m_portal->clearFaults();
        inject(sends ? "storage" : "storage/piece", sends ? FaultKind::SlowRead : FaultKind::SlowWrite, 0);
        const auto program = start(run);
        EXPECT_TRUE(program->says(sends ? "b.mesh sending" : "sim-1/results.dat receiving"));
        program->interrupt();
        EXPECT_EQ(program->end(), 130);
        said = program->errors();
        EXPECT_EQ(bool(contains(said, "interrupted; left undone:\n  b.mesh\nno job was submitted")), sends) << said;
        EXPECT_EQ(m_portal->requestCount("job/submit"), sends ? 0U : 1U);
        EXPECT_EQ(m_folder.below("tmp"), Strings());
        for (const string &name : m_folder.below("out"))
            EXPECT_FALSE(contains(name, "results.dat"));
    }
    m_portal->clearFaults();
    const auto from = said.find("velmora download") + 8;
    Program rest(said.substr(from, said.find('\n', from) - from), m_folder.root());
    EXPECT_EQ(rest.end(), 0) << rest.errors();
    EXPECT_GT(m_folder.read("out/sim-1/results.dat").size(), 12000000U);
}

} // namespace
