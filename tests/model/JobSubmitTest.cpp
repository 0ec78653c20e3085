#include <velmora/JobSubmit.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

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
        "numberOfParts": 16, "coreHourEstimate": 10, "ramEstimate": 4096, "mainFile": "beam.trninp", "solverTag": "%3",
        "dependentFilesList": ["b.dat", "a.dat"], "dependentFilesAliasList": ["B", ""],
        "simulations": ["-x 3", "", "-y \"%1\" \\\n"], "originApplication": "bench"})");
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
        {"128 cores", [](JobSubmit &job) { job.coresRequired = 128; }, {}},
        {"129 cores", [](JobSubmit &job) { job.coresRequired = 129; }, {0}},
        {"1 core", [](JobSubmit &job) { job.coresRequired = 1; }, {}},
        {"0 cores", [](JobSubmit &job) { job.coresRequired = 0; }, {1}},
        {"RAM below the limit", [](JobSubmit &job) { job.ramEstimate = 1843199; }, {}},
        {"RAM at the limit", [](JobSubmit &job) { job.ramEstimate = 1843200; }, {8}},
        {"RAM 1", [](JobSubmit &job) { job.ramEstimate = 1; }, {}},
        {"RAM 0", [](JobSubmit &job) { job.ramEstimate = 0; }, {7}},
        {"estimate 0", [](JobSubmit &job) { job.coreHourEstimate = 0.0; }, {6}},
        {"estimate tiny", [](JobSubmit &job) { job.coreHourEstimate = 1e-9; }, {}},
        {"estimate no number", [](JobSubmit &job) { job.coreHourEstimate = std::nan(""); }, {6}},
        {"estimate infinite", [](JobSubmit &job) { job.coreHourEstimate = INFINITY; }, {6}},
        {"any name, no account", [](JobSubmit &job) { job.jobName = "Tr\u00e4ger", job.accountID = {}; }, {}},
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

TEST(JobSubmit, HasAMessagePerCode)
{
    int code = -1;
    for (const char *part :
         {"No Errors detected", "<b>MAXIMUM</b> of 128", "Not enough cores", "The jobName field is",
          "jobID field was empty", "minimum of 1 simulation per", "No main input file", "core hour cost estimate of 0",
          "RAM estimate of 0", "<b>MAXIMUM</b> of 1800GB", "no Application Name/ID", "No Errors detected"}) {
        const std::string message = JobSubmit::errorMessage(static_cast<JobSubmitError>(code++));
        EXPECT_NE(message.find(part), std::string::npos) << message;
    }
}

TEST(JobSubmit, SubmitsOneDocumentStampedWithLocalTime)
{
    JobSubmit job = goodJob();
    job.jobName = "%1 Tr\u00e4ger \u65e5\u672c %2";
    const std::time_t start = std::time(nullptr);
    const std::string text = job.toSubmissionJson();
    const std::time_t end = std::time(nullptr);
    EXPECT_EQ(text.rfind("{\n    \"accountId\": \"account-1\",\n    \"application\"", 0), 0U);
    EXPECT_NE(text.find("Tr\u00e4ger"), std::string::npos); // UTF-8, not escaped
    QJsonObject body = QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
    const std::string name = body.take("jobName").toString().toStdString();
    bool inTime = false;
    for (std::time_t now = start; now <= end; ++now) {
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "-%H%M%S-%d%m%y", std::localtime(&now));
        inTime = inTime || name == job.jobName + stamp;
    }
    EXPECT_TRUE(inTime) << name;
    EXPECT_EQ(body, QJsonDocument::fromJson(R"({"jobId": "job-1", "accountId": "account-1", "mainFile": "beam.trninp",
        "dockerTag": "%3", "fileDependencies": ["b.dat", "a.dat"], "fileAliases": ["B", ""], "operation": "mpi",
        "simulations": [{"consoleParameters": "-x 3"}, {"consoleParameters": ""},
        {"consoleParameters": "-y \"%1\" \\\n"}], "jobType": "Cloud Configuration - Simulation Sweep",
        "precision": "single", "coresRequired": 16, "coreHourEstimate": 10, "ramEstimate": 4096,
        "numberOfParts": 16, "application": "bench"})")
                        .object());
}

TEST(JobSubmit, SubmitsWhatDependsOnOperationSweepAndPrecision)
{
    const struct {
        int operation;
        const char *name; ///< null: left out
        int parts;
        std::size_t simulations;
        double estimate;
    } rows[] = {{0, "mpi", 16, 1, 30},  {1, "simulation", 1, 2, 15}, {2, "review", 1, 1, 30},
                {3, "build", 1, 3, 10}, {7, nullptr, 1, 1, 30},      {-1, nullptr, 1, 1, 30}};
    for (const auto &row : rows) {
        JobSubmit job = goodJob();
        job.operation = static_cast<JobOperation>(row.operation);
        job.simulations.resize(row.simulations);
        job.jobPrecision = row.operation - 1;
        const QJsonObject body = bodyOf(job);
        const auto text = [&](const char *key) { return body[QLatin1String(key)].toString().toStdString(); };
        EXPECT_EQ(body.contains("operation"), row.name != nullptr);
        EXPECT_EQ(text("operation"), row.name ? row.name : "");
        EXPECT_EQ(body["numberOfParts"].toInt(), row.parts) << row.operation;
        EXPECT_EQ(body["coresRequired"].toInt(), 16) << row.operation;
        EXPECT_EQ(body["coreHourEstimate"].toDouble(), row.estimate) << row.operation;
        EXPECT_EQ(text("precision"), row.operation == 1 ? "single" : "double");
        EXPECT_EQ(text("jobType"), std::string("Cloud Configuration - ") +
                                       (row.simulations == 1 ? "Single Simulation" : "Simulation Sweep"));
    }
}

// The fields that are read as they are: with those of the records.
TEST(JobSubmit, ReadsTheTextOfAHost)
{
    const JobSubmit job(R"({"jobID": "j", "operation": 1, "simulations": ["s1", "s2", null], "coresRequired": 8,
        "coreHourEstimate": 2.5, "jobPrecision": 3, "numberOfParts": 99})");
    EXPECT_EQ(job.jobID + job.solverTag, "j");
    EXPECT_EQ(job.simulations, (Texts{"s1", "s2", ""}));
    EXPECT_EQ(job.coreHourEstimate, 7.5); // hosts state it per simulation
    EXPECT_EQ(job.jobPrecision, 3);
    const struct {
        const char *text;
        int operation, cores;
    } rows[] = {{R"({"operation": 0, "coresRequired": 8, "numberOfParts": 4})", 0, 4},
                {R"({"operation": 0, "coresRequired": 8})", 0, 0},
                {R"({"operation": 1, "coresRequired": 8, "numberOfParts": 4})", 1, 8},
                {R"({"operation": 7, "coresRequired": 8, "numberOfParts": 4})", 7, 8},
                {R"({"operation": 1.5, "jobPrecision": "12", "numberOfParts": 2147483648})", 0, 0},
                {R"({"operation": "1", "jobPrecision": null, "numberOfParts": [4]})", 0, 0},
                {R"({"jobID": 1e999})", 0, 0},
                {"", 0, 0}};
    for (const auto &[text, operation, cores] : rows) {
        const JobSubmit read{std::string(text)};
        EXPECT_EQ(static_cast<int>(read.operation), operation) << text;
        EXPECT_EQ(read.coresRequired, cores) << text;
        EXPECT_EQ(read.jobPrecision, 0) << text;
    }
    EXPECT_EQ(JobSubmit().solverTag, " ");
}

} // namespace
} // namespace Velmora
