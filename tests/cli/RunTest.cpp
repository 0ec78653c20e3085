#include "Program.h"

#include "common/Options.h"
#include "run/Sweep.h"

#include <random>

namespace CliTests {

using namespace Velmora::Cli;

struct RunTest : ProgramTest {
    std::uint64_t sentBytes() const
    {
        std::uint64_t sum = 0;
        for (const auto &request : m_portal->requests())
            sum += request.target.find("/storage/") == 0 ? request.bodySize : 0;
        return sum;
    }
    size_t submissions() const { return m_portal->requestCount("job/submit"); }
};

TEST_F(RunTest, run_sameCommandAgain_doesNothingTwice)
{
    serve(500ms);
    const string run = job(4), id = ended(run + " --json", 0)->text("jobId");
    const size_t jobs = m_portal->jobCount();
    const string journal = m_folder.read("job.json.journal");
    const auto nothing = [] {};
    const std::tuple<string, std::function<void()>, int, string> rows[] = {
        // more arguments, what happened before, exit code, message
        {"", nothing, 0, "nothing was left to do"},
        {"", [&] { m_folder.write("in/mesh-1", m_folder.read("in/mesh-1")); }, 0,
         "nothing was left to do"}, // only touched
        {"",
         [&] {
             m_folder.write("job.json.journal", journal + "{\"sent\":\"mesh-");
             QFile::remove(q(m_folder.path("out/sim-1/run.log")));
         },
         0, "2 of them are here already"}, // notes a file behind a line that was torn
        {"", nothing, 0, "nothing was left to do"},
        {"", [&] { m_folder.remove("out/sim-1"); }, 0, "downloading 3 files"},
        {"", [&] { m_folder.write("out/sim-1/run.log", "x"); }, 0, "2 of them are here already"},
        {" --journal in/mesh-0", nothing, 2, "in/mesh-0 is no journal"},
        {"", [&] { m_folder.write("in/mesh-1", string(1001, '!')); }, 2, "has changed since: mesh-1\n"},
        {" --each=-x{1,2}", nothing, 2, "has changed since: coreHourEstimate, simulations, mesh-1\n"},
        {" --again --account ACC-2002", [&] { job(4, 1000, 77); }, 2, "estimated at 77 core hours; ACC-2002 has 76"}};
    for (const auto &[arguments, happens, exit, message] : rows) {
        happens();
        m_portal->clearRequests();
        ended(run + arguments, exit, message);
        EXPECT_EQ(sentBytes() + submissions(), 0U) << message;
    }
    EXPECT_EQ(m_portal->jobCount(), jobs);
    const auto first = start(run + " --again --yes --json"); // of the same account
    EXPECT_TRUE(first->says("submitted")) << first->errors();
    ended(run, 2, "another velmora runs job.json now");
    EXPECT_EQ(first->end(), 0) << first->errors();
    EXPECT_NE(first->text("jobId"), id);
    EXPECT_EQ(m_portal->jobCount(), jobs + 1);
}

TEST_F(RunTest, run_failedInAnyWay_goesOnWithOneJob)
{
    using Faults = std::vector<std::tuple<const char *, FaultKind, int>>; // path, kind, times
    const std::tuple<Faults, int, const char *, std::uint64_t> rows[] = {
        // faults, exit code of the first run, its message, kilobytes sent by both
        {{{"storage", FaultKind::Status, 1}}, 1, "no job was submitted; run the same command again", 40},
        {{{"storage", FaultKind::Silence, 1}}, 0, "submitted job-", 40},       // tried again by itself
        {{{"job/submit", FaultKind::ResetAfter, 1}}, 0, "submitted job-", 30}, // the answer is lost, the job is found
        {{{"job/submit", FaultKind::ResetAfter, 1}, {"job/l", FaultKind::ResetAfter, 0}}, 3, "whether job-", 30},
        {{{"job/submit", FaultKind::Status, 1}}, 1, "status 409", 30},
        {{{"storage/piece", FaultKind::Status, 0}}, 1, "to go on, or download the rest", 30}};
    for (const auto &[faults, exit, message, most] : rows) {
        serve(500ms);
        const string run = job(4, 10000) + " --timeout 1";
        const size_t jobs = m_portal->jobCount();
        for (const auto &[path, kind, times] : faults)
            inject(path, kind, times, 409); // not worth another try
        ended(run, exit, message);
        m_portal->clearFaults();
        ended(run, 0);
        EXPECT_EQ(m_portal->jobCount(), jobs + 1) << message;
        EXPECT_EQ(submissions(), message == "status 409"s ? 2U : 1U) << message;
        EXPECT_LT(sentBytes(), most * 1000 + 9000) << message; // with forms
        m_folder.remove("out");
        QFile::remove(q(m_folder.path("job.json.journal")));
    }
}

TEST_F(RunTest, steps_oneByOne_makeTheSameJob)
{
    serve(500ms);
    job(2);
    const string id = ended("new --account ACC-1001 --json", 0)->text("jobId");
    ended("submit job.json --job " + id, 2, "lacks inputs, upload them first:\n  b.trninp\n  mesh-0\n  mesh-1");
    ended("upload in --job " + id, 0);
    ended("submit job.json --each=-v{8..12..2} --job " + id, 0, "velmora watch " + id);
    const auto program = ended("watch " + id + " --to w --csv t.csv --progress json", 0);
    EXPECT_EQ(m_folder.below("w").size(), 9U);
    EXPECT_EQ(q(m_folder.read("t.csv")).count("finished"), 3);
    const auto lines = q(program->errors()).split('\n', Qt::SkipEmptyParts);
    for (const QString &line : lines)
        EXPECT_TRUE(QJsonDocument::fromJson(line.toUtf8()).object().contains("event")) << line.toStdString();
    EXPECT_GT(lines.size(), 5);
    ended("run job.json --no-wait --json", 0);
    ended("run job.json --to x", 0, "going on with job-");
}

TEST(SweepTest, pattern_anyBraces_givesEveryCombination)
{
    EXPECT_EQ(sweepOf("-v 1").join('|'), "-v 1");
    EXPECT_EQ(sweepOf("-load {8..16..4} -n {a, b}").join('|'),
              "-load 8 -n a|-load 8 -n b|-load 12 -n a|-load 12 -n b|-load 16 -n a|-load 16 -n b");
    EXPECT_EQ(sweepOf("{0.1..0.3..0.1}").join('|'), "0.1|0.2|0.3");
    EXPECT_EQ(sweepOf("{2..-1}").join('|'), "2|1|0|-1");
    EXPECT_EQ(sweepOf("{1..2..0.5}x").join('|'), "1.0x|1.5x|2.0x");
    EXPECT_EQ(sweepOf("{a}").join('|'), "a");
    for (const char *wrong : {"{1..5..0}", "{1..1001}", "{1..40}{1..40}", "{}", "{a", "a}", "{a{b}}", "{a..b}"})
        EXPECT_THROW(sweepOf(wrong), Failure) << wrong;
    TestFolder folder;
    folder.write("s1/summary.json",
                 R"({"jobId": "J", "lift": 1.5, "ok": true, "drag": {"x, y": 10000000}, "list": [1]})");
    Velmora::JobDetails job;
    job.simulations = {{"s1", "-v -1 -f", {}}, {"s2", "-v \"2\"", {}}};
    EXPECT_EQ(summaryTable(job, folder.root()), "simulation,status,-v,-f,\"drag.x, y\",lift,ok\r\n"
                                                "s1,unknown,-1,,10000000,1.5,true\r\ns2,unknown,\"\"\"2\"\"\",,,,\r\n");
}

// VELMORA_KILLS: how many runs are killed, each at another moment; every second one twice.
TEST_F(RunTest, run_killedAtAnyMoment_endsWithOneJobAndItsResults)
{
    const int files = 60, size = 500000, count = std::max(3, qEnvironmentVariableIntValue("VELMORA_KILLS"));
    serve(500ms, true);
    const string run = job(files + 1, size) + " --quiet --json";
    string inputs = "main";
    for (int i = 0; i < files; ++i)
        inputs += m_folder.read("in/mesh-" + std::to_string(i));
    QElapsedTimer whole;
    whole.start();
    ended(run, 0);
    const double duration = double(whole.elapsed());
    std::mt19937 random(17U + unsigned(testing::UnitTest::GetInstance()->random_seed())); // with --gtest_shuffle
    const auto share = [&] { return double(random()) / double(std::mt19937::max()); };
    std::map<const char *, int> found;
    double most = 0;
    for (int i = 0; i < count; ++i) {
        serve(500ms, true); // the one before takes its files with it
        m_folder.remove("out");
        QFile::remove(q(m_folder.path("job.json.journal")));
        const size_t jobs = m_portal->jobCount();
        for (int kill = 0; kill <= i % 2; ++kill) {
            const int moment = int(duration * (kill > 0 ? share() : (i + share()) / count));
            SCOPED_TRACE("killed after " + std::to_string(moment) + " ms");
            const auto killed = start(run);
            killed->waitForFinished(moment);
            killed->kill();
            killed->waitForFinished();
            ++found[submissions() > 0 ? "submitted" : sentBytes() > 0 ? "uploading" : "before"];
        }
        const string id = ended(run, 0)->text("jobId");
        ASSERT_EQ(m_portal->jobCount(), jobs + 1);
        ASSERT_EQ(submissions(), 1U);
        ASSERT_EQ(m_folder.below("out"), (Strings{"sim-1/results.dat", "sim-1/run.log", "sim-1/summary.json"}));
        const string results = m_folder.read("out/sim-1/results.dat");
        ASSERT_TRUE(results.substr(results.find('\n') + 1) == inputs);
        most = std::max(most, double(sentBytes()) / double(inputs.size()));
    }
    std::printf("%d runs of %.0f ms killed: %d before they sent, %d while uploading, %d after submission; sent at most "
                "%.2f times the inputs\n",
                count, duration, found["before"], found["uploading"], found["submitted"], most);
    EXPECT_LE(most, 1.3);
}

} // namespace CliTests
