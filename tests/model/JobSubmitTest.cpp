#include <velmora/JobSubmit.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <functional>
#include <limits>

namespace Velmora {
namespace {

using Codes = std::list<int>;

JobSubmit goodJob()
{
    JobSubmit job;
    job.jobID = "job-1";
    job.accountID = "account-1";
    job.jobName = "Beam";
    job.coresRequired = 16;
    job.coreHourEstimate = 30.0;
    job.ramEstimate = 4096;
    job.mainFile = "beam.trninp";
    job.dependentFilesList = {"b.dat", "a.dat"};
    job.dependentFilesAliasList = {"B", ""};
    job.simulations = {"-x 3", "", "-y %1"};
    job.originApplication = "bench";
    return job;
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

QJsonObject parsed(const char *json) { return QJsonDocument::fromJson(json).object(); }

TEST(JobSubmit, ValidatesAtTheBoundaries)
{
    const double huge = std::numeric_limits<double>::infinity();
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
        {"estimate infinite", [huge](JobSubmit &job) { job.coreHourEstimate = huge; }, {6}},
        {"no simulation", [](JobSubmit &job) { job.simulations.clear(); }, {4}},
        {"no main file", [](JobSubmit &job) { job.mainFile.clear(); }, {5}},
        {"any extension", [](JobSubmit &job) { job.mainFile = "x.bin"; }, {}},
        {"no name", [](JobSubmit &job) { job.jobName.clear(); }, {2}},
        {"diacritics", [](JobSubmit &job) { job.jobName = "Tr\u00e4ger"; }, {}},
        {"no job id", [](JobSubmit &job) { job.jobID.clear(); }, {3}},
        {"no application", [](JobSubmit &job) { job.originApplication.clear(); }, {9}},
        {"no account", [](JobSubmit &job) { job.accountID.clear(); }, {}},
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
    EXPECT_EQ(errors.front(), JobSubmitError::TooManyCores);
}

TEST(JobSubmit, HasAFixedMessagePerCode)
{
    const struct {
        int code;
        const char *message;
    } cases[] = {
        {0, "Too many cores requested for each simulation in the Job. Currently a <b>MAXIMUM</b> of 128"},
        {1, "Not enough cores requested, 0 or less than requested"},
        {2, "The jobName field is empty or contains invalid characters. *warning* <b>NO</b> diacritic characters"},
        {3, "jobID field was empty. A job ID must be requested before submission"},
        {4, "Not enough simulations requested. There is a minimum of 1 simulation per job"},
        {5, "No main input file provided with the JobSubmit object, job needs a trninp, revinp or bldinp file"},
        {6, "Gave a core hour cost estimate of 0 or less than. Must have a positive core hour estimate."},
        {7, "Gave a RAM estimate of 0 or less than. Must have a positive RAM count estimate"},
        {8, "Gave a RAM estimate that was too high. Currently a <b>MAXIMUM</b> of 1800GB"},
        {9, "There was no Application Name/ID given in the job submission object"},
        {10, "No Errors detected"},
        {-1, "No Errors detected"},
    };
    for (const auto &[code, message] : cases)
        EXPECT_EQ(JobSubmit::errorMessage(static_cast<JobSubmitError>(code)), message) << code;
}

TEST(JobSubmit, SubmitsOneDocument)
{
    QJsonObject body = bodyOf(goodJob());
    body.remove(QStringLiteral("jobName")); // stamped, has a test of its own
    EXPECT_EQ(body, parsed(R"({"jobId": "job-1", "accountId": "account-1", "mainFile": "beam.trninp",
        "dockerTag": " ", "fileDependencies": ["b.dat", "a.dat"], "fileAliases": ["B", ""], "operation": "mpi",
        "simulations": [{"consoleParameters": "-x 3"}, {"consoleParameters": ""}, {"consoleParameters": "-y %1"}],
        "jobType": "Cloud Configuration - Simulation Sweep", "precision": "single", "coresRequired": 16,
        "coreHourEstimate": 10, "ramEstimate": 4096, "numberOfParts": 16, "application": "bench"})"));
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
        EXPECT_EQ(body.contains(QStringLiteral("operation")), name != nullptr) << operation;
        EXPECT_EQ(body[QStringLiteral("operation")].toString(), QString::fromLatin1(name)) << operation;
        EXPECT_EQ(body[QStringLiteral("numberOfParts")].toInt(), parts) << operation;
        EXPECT_EQ(body[QStringLiteral("coresRequired")].toInt(), 16) << operation;
    }
    JobSubmit job = goodJob();
    job.simulations = {"one"};
    job.jobPrecision = -2;
    QJsonObject body = bodyOf(job);
    EXPECT_EQ(body[QStringLiteral("jobType")].toString(), QStringLiteral("Cloud Configuration - Single Simulation"));
    EXPECT_EQ(body[QStringLiteral("coreHourEstimate")].toDouble(), 30.0);
    EXPECT_EQ(body[QStringLiteral("precision")].toString(), QStringLiteral("double"));
    job.simulations = {"one", "two"};
    body = bodyOf(job);
    EXPECT_EQ(body[QStringLiteral("jobType")].toString(), QStringLiteral("Cloud Configuration - Simulation Sweep"));
    EXPECT_EQ(body[QStringLiteral("coreHourEstimate")].toDouble(), 15.0);
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
    const QString name = body[QStringLiteral("jobName")].toString();
    const auto match =
        QRegularExpression(QStringLiteral("^%1 Tr\u00e4ger \u65e5\u672c %2-(\\d{6}-\\d{6})$")).match(name);
    ASSERT_TRUE(match.hasMatch()) << name.toStdString();
    bool inTime = false;
    for (std::time_t now = start; now <= end; ++now) {
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "%H%M%S-%d%m%y", std::localtime(&now));
        inTime = inTime || match.captured(1) == QLatin1String(stamp);
    }
    EXPECT_TRUE(inTime) << name.toStdString();
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
    using Texts = std::list<std::string>;
    EXPECT_EQ(job.jobID, "j");
    EXPECT_EQ(job.accountID, "a");
    EXPECT_EQ(job.jobName, "n \u00fc %1");
    EXPECT_EQ(job.mainFile, "m");
    EXPECT_EQ(job.solverTag, "tag");
    EXPECT_EQ(job.dependentFilesList, (Texts{"f", "", "e"}));
    EXPECT_EQ(job.dependentFilesAliasList, Texts{"x"});
    EXPECT_EQ(job.operation, JobOperation::Simulation);
    EXPECT_EQ(job.simulations, (Texts{"s1", "s2", ""}));
    EXPECT_EQ(job.coresRequired, 8); // parts are read for MPI only
    EXPECT_EQ(job.coreHourEstimate, 7.5);
    EXPECT_EQ(job.jobPrecision, 3);
    EXPECT_EQ(job.ramEstimate, 12);
    EXPECT_EQ(job.originApplication, "app");
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
    const auto isEmpty = [](const JobSubmit &job) {
        return job.jobID.empty() && job.accountID.empty() && job.jobName.empty() && job.mainFile.empty() &&
               job.solverTag.empty() && job.dependentFilesList.empty() && job.dependentFilesAliasList.empty() &&
               job.operation == JobOperation::Mpi && job.simulations.empty() && job.coresRequired == 0 &&
               job.coreHourEstimate == 0.0 && job.jobPrecision == 0 && job.ramEstimate == 0 &&
               job.originApplication.empty();
    };
    const std::string texts[] = {"jobID", "accountID", "jobName", "mainFile", "solverTag", "originApplication"};
    const std::string lists[] = {"dependentFilesList", "dependentFilesAliasList", "simulations"};
    const std::string numbers[] = {"operation",    "coresRequired", "coreHourEstimate",
                                   "jobPrecision", "ramEstimate",   "numberOfParts"};
    const auto check = [&](const std::string &key, std::initializer_list<const char *> values) {
        for (const std::string value : values)
            EXPECT_TRUE(isEmpty(JobSubmit("{\"" + key + "\": " + value + "}"))) << key << " given " << value;
    };
    for (const std::string &key : texts)
        check(key, {"null", "true", "7", "1.5", "1e300", "{}", "[]", R"(["a"])"});
    for (const std::string &key : lists)
        check(key, {"null", "true", "7", "1.5", "1e300", R"("a")", R"({"a": "b"})", "[]"});
    for (const std::string &key : numbers)
        check(key, {"null", "true", R"("12")", R"("a")", "{}", "[1]", "0"});
    for (const char *key : {"operation", "jobPrecision", "ramEstimate", "numberOfParts"})
        check(key, {"1.5", "2147483648", "1e300"});
    for (const char *noObject : {"", "not JSON", "{", "[]", "7", R"({"jobID": 1e999})", R"({"jobID": "j)"})
        EXPECT_TRUE(isEmpty(JobSubmit(std::string(noObject)))) << noObject;
}

} // namespace
} // namespace Velmora
