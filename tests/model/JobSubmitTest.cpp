#include <velmora/JobSubmit.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <functional>

namespace Velmora {
namespace {

using Codes = std::list<int>;
using Texts = std::list<std::string>;

JobSubmit goodJob()
{
    return JobSubmit(R"({"jobID": "job-1", "accountID": "account-1", "jobName": "Beam", "coresRequired": 16,
        "numberOfParts": 16, "coreHourEstimate": 10, "ramEstimate": 4096, "mainFile": "beam.trninp", "solverTag": " ",
        "dependentFilesList": ["b.dat", "a.dat"], "dependentFilesAliasList": ["B", ""],
        "simulations": ["-x 3", "", "-y %1"], "originApplication": "bench"})");
}

auto members(const JobSubmit &job)
{
    return std::make_tuple(job.jobID, job.accountID, job.jobName, job.mainFile, job.solverTag, job.dependentFilesList,
                           job.dependentFilesAliasList, static_cast<int>(job.operation), job.simulations,
                           job.coresRequired, job.coreHourEstimate, job.jobPrecision, job.ramEstimate,
                           job.originApplication);
}

Codes codesOf(const JobSubmit &job)
{
    std::list<JobSubmitError> errors;
    const bool valid = job.validate(&errors);
    EXPECT_EQ(valid, errors.empty());
    EXPECT_EQ(valid, job.validate());
    EXPECT_EQ(valid, !job.toSubmissionJson().empty());
    Codes codes;
    for (const JobSubmitError error : errors)
        codes.push_back(static_cast<int>(error));
    return codes;
}

QJsonObject bodyOf(const JobSubmit &job)
{
    return QJsonDocument::fromJson(QByteArray::fromStdString(job.toSubmissionJson())).object();
}

TEST(JobSubmit, ValidatesAtTheBoundaries)
{
    const struct {
        const char *what;
        std::function<void(JobSubmit &)> change;
        Codes expected;
    } cases[] = {
        {"as it is", [](JobSubmit &) {}, {}},
        {"128 cores", [](JobSubmit &job) { job.coresRequired = 128; }, {}},
        {"129 cores", [](JobSubmit &job) { job.coresRequired = 129; }, {0}},
        {"1 core", [](JobSubmit &job) { job.coresRequired = 1; }, {}},
        {"0 cores", [](JobSubmit &job) { job.coresRequired = 0; }, {1}},
        {"-1 cores", [](JobSubmit &job) { job.coresRequired = -1; }, {1}},
        {"RAM below the limit", [](JobSubmit &job) { job.ramEstimate = 1843199; }, {}},
        {"RAM at the limit", [](JobSubmit &job) { job.ramEstimate = 1843200; }, {8}},
        {"RAM 1", [](JobSubmit &job) { job.ramEstimate = 1; }, {}},
        {"RAM 0", [](JobSubmit &job) { job.ramEstimate = 0; }, {7}},
        {"estimate 0", [](JobSubmit &job) { job.coreHourEstimate = 0.0; }, {6}},
        {"estimate tiny", [](JobSubmit &job) { job.coreHourEstimate = 1e-9; }, {}},
        {"estimate below 0", [](JobSubmit &job) { job.coreHourEstimate = -1e-9; }, {6}},
        {"estimate no number", [](JobSubmit &job) { job.coreHourEstimate = std::nan(""); }, {6}},
        {"estimate infinite", [](JobSubmit &job) { job.coreHourEstimate = INFINITY; }, {6}},
        {"any name", [](JobSubmit &job) { job.jobName = "Tr\u00e4ger", job.mainFile = "x.bin"; }, {}},
        {"no account", [](JobSubmit &job) { job.accountID.clear(); }, {}},
        {"no job id", [](JobSubmit &job) { job.jobID.clear(); }, {3}}, // the other texts: together
        {"empty", [](JobSubmit &job) { job = JobSubmit(); }, {4, 5, 6, 7, 2, 3, 1, 9}},
        {"too much", [](JobSubmit &job) { job.ramEstimate = 9999999, job.coresRequired = 999; }, {8, 0}},
    };
    for (const auto &[what, change, expected] : cases) {
        JobSubmit job = goodJob();
        change(job);
        EXPECT_EQ(codesOf(job), expected) << what;
    }
    std::list<JobSubmitError> errors{JobSubmitError::TooManyCores};
    EXPECT_FALSE(JobSubmit().validate(&errors));
    EXPECT_EQ(errors.size(), 9U); // appended to what was there
}

TEST(JobSubmit, HasAFixedMessagePerCode)
{
    const char *const messages[] = {
        "Too many cores requested for each simulation in the Job. Currently a <b>MAXIMUM</b> of 128",
        "Not enough cores requested, 0 or less than requested",
        "The jobName field is empty or contains invalid characters. *warning* <b>NO</b> diacritic characters",
        "jobID field was empty. A job ID must be requested before submission",
        "Not enough simulations requested. There is a minimum of 1 simulation per job",
        "No main input file provided with the JobSubmit object, job needs a trninp, revinp or bldinp file",
        "Gave a core hour cost estimate of 0 or less than. Must have a positive core hour estimate.",
        "Gave a RAM estimate of 0 or less than. Must have a positive RAM count estimate",
        "Gave a RAM estimate that was too high. Currently a <b>MAXIMUM</b> of 1800GB",
        "There was no Application Name/ID given in the job submission object",
        "No Errors detected",
    };
    int code = 0;
    for (const char *message : messages)
        EXPECT_EQ(JobSubmit::errorMessage(static_cast<JobSubmitError>(code++)), message);
    EXPECT_EQ(JobSubmit::errorMessage(static_cast<JobSubmitError>(-1)), "No Errors detected");
}

TEST(JobSubmit, SubmitsOneDocument)
{
    QJsonObject body = bodyOf(goodJob());
    body.remove(QStringLiteral("jobName")); // stamped, has a test of its own
    EXPECT_EQ(body, QJsonDocument::fromJson(R"({"jobId": "job-1", "accountId": "account-1", "mainFile": "beam.trninp",
        "dockerTag": " ", "fileDependencies": ["b.dat", "a.dat"], "fileAliases": ["B", ""], "operation": "mpi",
        "simulations": [{"consoleParameters": "-x 3"}, {"consoleParameters": ""}, {"consoleParameters": "-y %1"}],
        "jobType": "Cloud Configuration - Simulation Sweep", "precision": "single", "coresRequired": 16,
        "coreHourEstimate": 10, "ramEstimate": 4096, "numberOfParts": 16, "application": "bench"})")
                        .object());
    EXPECT_EQ(goodJob().toSubmissionJson().rfind("{\n    \"accountId\": \"account-1\",\n    \"application\"", 0), 0U);
}

TEST(JobSubmit, SubmitsWhatDependsOnOperationSweepAndPrecision)
{
    const struct {
        int operation;
        const char *name; ///< null: left out
        int parts;
    } operations[] = {{0, "mpi", 16},  {1, "simulation", 1}, {2, "review", 1},
                      {3, "build", 1}, {7, nullptr, 1},      {-1, nullptr, 1}};
    for (const auto &[operation, name, parts] : operations) {
        JobSubmit job = goodJob();
        job.operation = static_cast<JobOperation>(operation);
        const QJsonObject body = bodyOf(job);
        EXPECT_EQ(body[QStringLiteral("operation")], name ? QLatin1String(name) : QJsonValue(QJsonValue::Undefined));
        EXPECT_EQ(body[QStringLiteral("numberOfParts")].toInt(), parts) << operation;
        EXPECT_EQ(body[QStringLiteral("coresRequired")].toInt(), 16) << operation;
    }
    JobSubmit job = goodJob();
    job.jobPrecision = -2;
    for (const Texts &simulations : {Texts{"one"}, Texts{"one", "two"}}) {
        job.simulations = simulations;
        const QJsonObject body = bodyOf(job);
        const bool single = simulations.size() == 1;
        EXPECT_EQ(body[QStringLiteral("jobType")].toString().toStdString(),
                  std::string("Cloud Configuration - ") + (single ? "Single Simulation" : "Simulation Sweep"));
        EXPECT_EQ(body[QStringLiteral("coreHourEstimate")].toDouble(), single ? 30.0 : 15.0);
        EXPECT_EQ(body[QStringLiteral("precision")].toString(), QStringLiteral("double"));
    }
}

TEST(JobSubmit, StampsTheNameWithLocalTimeAndLeavesTextAlone)
{
    JobSubmit job = goodJob();
    job.jobName = "%1 Tr\u00e4ger \u65e5\u672c %2";
    job.simulations = {"-name \"%1 \u00fc\" \\ \n"};
    job.solverTag = "%3";
    const std::time_t start = std::time(nullptr);
    const QJsonObject body = bodyOf(job);
    const std::time_t end = std::time(nullptr);
    const std::string name = body[QStringLiteral("jobName")].toString().toStdString();
    bool inTime = false;
    for (std::time_t now = start; now <= end; ++now) {
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "-%H%M%S-%d%m%y", std::localtime(&now));
        inTime = inTime || name == job.jobName + stamp;
    }
    EXPECT_TRUE(inTime) << name;
    EXPECT_EQ(body[QStringLiteral("simulations")].toArray()[0].toObject()[QStringLiteral("consoleParameters")],
              QStringLiteral("-name \"%1 \u00fc\" \\ \n"));
    EXPECT_EQ(body[QStringLiteral("dockerTag")].toString(), QStringLiteral("%3"));
    EXPECT_NE(job.toSubmissionJson().find("Tr\u00e4ger"), std::string::npos); // UTF-8, not escaped
}

TEST(JobSubmit, ReadsTheTextOfAHost)
{
    const JobSubmit job(R"({"jobID": "j", "accountID": "a", "jobName": "n \u00fc %1", "mainFile": "m",
        "solverTag": "tag", "dependentFilesList": ["f", 5, "e"], "dependentFilesAliasList": ["x"],
        "operation": 1, "simulations": ["s1", "s2", null], "coresRequired": 8, "coreHourEstimate": 2.5,
        "jobPrecision": 3, "ramEstimate": 12, "numberOfParts": 99, "originApplication": "app"})");
    using T = Texts;
    const std::string name = "n \u00fc %1";
    EXPECT_EQ(members(job), std::make_tuple("j", "a", name, "m", "tag", T{"f", "", "e"}, T{"x"}, 1, T{"s1", "s2", ""},
                                            8, 7.5, 3, 12, "app"));             // parts are read for MPI only
    EXPECT_EQ(bodyOf(job)[QStringLiteral("coreHourEstimate")].toDouble(), 2.5); // per simulation again

    EXPECT_EQ(JobSubmit(R"({"operation": 0, "coresRequired": 8, "numberOfParts": 4})").coresRequired, 4);
    EXPECT_EQ(JobSubmit(R"({"operation": 0, "coresRequired": 8})").coresRequired, 0);
    EXPECT_EQ(JobSubmit(R"({"operation": 7, "coresRequired": 8, "numberOfParts": 4})").coresRequired, 8);
    EXPECT_EQ(static_cast<int>(JobSubmit(R"({"operation": 7})").operation), 7);
    EXPECT_EQ(JobSubmit().solverTag, " ");
}

TEST(JobSubmit, ReadsWrongValuesOfAHostWithoutFailing)
{
    // Each key on its own: without simulations the estimate is zero, and without an operation the job is MPI.
    const struct {
        std::vector<const char *> keys, values;
    } table[] = {
        {{"jobID", "accountID", "jobName", "mainFile", "solverTag", "originApplication"},
         {"null", "true", "7", "1.5", "1e300", "{}", "[]", R"(["a"])"}},
        {{"dependentFilesList", "dependentFilesAliasList", "simulations"},
         {"null", "true", "7", "1.5", "1e300", R"("a")", R"({"a": "b"})", "[]"}},
        {{"operation", "coresRequired", "coreHourEstimate", "jobPrecision", "ramEstimate", "numberOfParts"},
         {"null", "true", R"("12")", R"("a")", "{}", "[1]", "0"}},
        {{"operation", "jobPrecision", "ramEstimate", "numberOfParts"}, {"1.5", "2147483648", "1e300"}},
    };
    JobSubmit empty;
    empty.solverTag.clear();
    for (const auto &[keys, values] : table) {
        for (const std::string key : keys) {
            for (const std::string value : values)
                EXPECT_EQ(members(JobSubmit("{\"" + key + "\": " + value + "}")), members(empty)) << key << value;
        }
    }
    for (const char *noObject : {"", "not JSON", "{", "[]", "7", R"({"jobID": 1e999})", R"({"jobID": "j)"})
        EXPECT_EQ(members(JobSubmit(std::string(noObject))), members(empty)) << noObject;
}

} // namespace
} // namespace Velmora
