// What the public headers compute for every application, and `JobSubmit`, without a session.

#include "support/Loopback.h"
#include "transfer/PieceName.h"

#include <velmora/JobSubmit.h>

#include <cmath>

using namespace Velmora;

namespace {

using Codes = std::list<int>;

const bool onWindows = QSysInfo::kernelType() == QLatin1String("winnt");

TEST(HelpersTest, succeeded_everyCode_isAnAnswerBelow300)
{
    for (const auto &[code, success] :
         {std::pair(-1, false), {0, false}, {1, true}, {200, true}, {299, true}, {300, false}})
        EXPECT_EQ(succeeded({code, {}, {}}), success) << code;
}

TEST(HelpersTest, plainText_anyMessage_losesTheTagsOfBoldOnly)
{
    for (const auto &[message, plain] : {std::pair("", ""),
                                         {"a <b>MAXIMUM</b> of <b>two</b>", "a MAXIMUM of two"},
                                         {"<b><b>x</b></b>", "x"},
                                         {"1 < 2\n<i>b</i> <b", "1 < 2\n<i>b</i> <b"}})
        EXPECT_EQ(plainText(message), plain);
}

TEST(HelpersTest, latestStatus_anyHistory_isTheNewestByDate)
{
    using Entries = std::list<std::pair<const char *, long long>>;
    const std::pair<Entries, const char *> rows[] = {{{}, ""},
                                                     {{{"SUBMITTED", -3}}, "SUBMITTED"},
                                                     {{{"RUNNING", 2}, {"FINISHED", 3}, {"QUEUED", 1}}, "FINISHED"},
                                                     {{{"RUNNING", 2}, {"STOPPED", 2}, {"QUEUED", 1}}, "STOPPED"}};
    for (const auto &[entries, latest] : rows) {
        JobDetails job;
        SimulationDetails simulation;
        for (const auto &[status, date] : entries) {
            job.jobStatus.push_back({"job", status, date});
            simulation.simulationStatus.push_back({"job", "sim", status, date});
        }
        EXPECT_EQ(latestStatus(job), latest);
        EXPECT_EQ(latestStatus(simulation), latest);
    }
}

TEST(HelpersTest, hasReceivedAll_anySize_isTrueFromTheListedSize)
{
    FileDownloadDetails file;
    EXPECT_FALSE(hasReceivedAll(file, 16)) << "no size was listed";
    file.cloudFileDetails.fileSize = 5000000000;
    EXPECT_FALSE(hasReceivedAll(file, 4999999999));
    EXPECT_TRUE(hasReceivedAll(file, 5000000000) && hasReceivedAll(file, 5000000001));
}

TEST(HelpersTest, isSafePath_anyName_staysInItsFolderAsInTheLibrary)
{
    const std::string bad[] = {"", ".", "..", "a\\b", "c:d", std::string("a\0b", 3)};
    const std::string windows[] = {"CON",       "con.txt", "Nul ",      "aux .b", "COM1", "lpt9.log.gz", "Com\u00b3.x",
                                   "LPT\u00b9", "CONIN$",  "conout$.a", "prn",    "a.",   "a ",          "a?b",
                                   "a<b",       "a\"b",    "a\tb",      "a|b",    "*"};
    const std::string good[] = {
        "CONE", "COM", "COM10.dat", "xCON", "a.con", ".b", "...b", " a", "LPTx", "a\x7f", "gr\u00fc\u00df \u6587"};
    const auto check = [](const auto &parts, bool safe) {
        for (const std::string &part : parts) {
            for (const std::string &path : {part, "sim-1/" + part, part + "/rtg/x", "a/" + part + "/b"})
                EXPECT_EQ(isSafePath(path), safe) << path;
            EXPECT_EQ(isSafeFileName(QString::fromStdString(part)), safe) << part;
        }
    };
    check(bad, false);
    check(windows, !onWindows);
    check(good, true);
    for (const std::string &part : windows)
        EXPECT_TRUE(isForbiddenOnWindows(part)) << part;
    for (const std::string &part : good)
        EXPECT_FALSE(isForbiddenOnWindows(part)) << part;
    for (const char *path : {"/a", "a/", "a//b", "/", "../../a", "a/../b"})
        EXPECT_FALSE(isSafePath(path)) << path;
    EXPECT_FALSE(isSafeFileName(QStringLiteral("a/b"))) << "a path";
}

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

TEST(JobSubmitTest, validate_boundaryValues_listsEveryFailedCheck)
{
    using J = JobSubmit;
    const std::tuple<const char *, std::function<void(J &)>, Codes> cases[] = {
        {"the most", [](J &j) { j.coresRequired = 128, j.ramEstimate = 1843199, j.coreHourEstimate = 1e9; }, {}},
        {"the least", [](J &j) { j.coresRequired = j.ramEstimate = 1, j.coreHourEstimate = 1e-9; }, {}},
        {"too much", [](J &j) { j.coresRequired = 129, j.ramEstimate = 1843200; }, {8, 0}},
        {"estimate no number", [](JobSubmit &job) { job.coreHourEstimate = NAN; }, {6}},
        {"estimate infinite", [](JobSubmit &job) { job.coreHourEstimate = INFINITY; }, {6}},
        {"any name, no account", [](JobSubmit &job) { job.jobName = "Tr\u00e4ger", job.accountID = {}; }, {}},
        {"no job id", [](JobSubmit &job) { job.jobID.clear(); }, {3}}, // the other texts: together
        {"all zero or empty", [](JobSubmit &job) { job = JobSubmit(); }, {4, 5, 6, 7, 2, 3, 1, 9}}};
    for (const auto &[what, change, expected] : cases) {
        JobSubmit job = goodJob();
        change(job);
        EXPECT_EQ(codesOf(job), expected) << what;
    }
    std::list<JobSubmitError> errors{JobSubmitError::TooManyCores};
    EXPECT_FALSE(JobSubmit().validate(&errors));
    EXPECT_EQ(errors.size(), 9U); // appended to what was there
    EXPECT_EQ(JobSubmit::errorMessage(static_cast<JobSubmitError>(10)), "No Errors detected");
}

TEST(JobSubmitTest, submission_validJob_isOneDocumentStampedWithLocalTime)
{
    JobSubmit job = goodJob();
    job.jobName = "%1 Tr\u00e4ger \u65e5\u672c %2";
#ifndef Q_OS_WIN                                     // there, only the C library follows it
    const ScopedEnvironment zone("TZ", "XYZ-05:30"); // the machine's may be UTC, which proves nothing
#endif
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::Persian)); // which has digits of its own
    const std::time_t start = std::time(nullptr);
    const std::string text = job.toSubmissionJson();
    const std::time_t end = std::time(nullptr);
    QLocale::setDefault(before);
    EXPECT_EQ(text.rfind("{\n    \"accountId\": \"account-1\",\n    \"application\"", 0), 0U);
    EXPECT_NE(text.find("Tr\u00e4ger"), std::string::npos); // UTF-8, not escaped
    QJsonObject body = QJsonDocument::fromJson(QByteArray::fromStdString(text)).object();
    const std::string name = body.take("jobName").toString().toStdString();
    const auto stamped = [&](std::time_t time) {
        char stamp[32];
        std::strftime(stamp, sizeof stamp, "-%H%M%S-%d%m%y", std::localtime(&time));
        return job.jobName + stamp;
    };
    EXPECT_TRUE(name == stamped(start) || name == stamped(end)) << name;
    EXPECT_EQ(body, QJsonDocument::fromJson(R"({"jobId": "job-1", "accountId": "account-1", "mainFile": "beam.trninp",
        "dockerTag": "%3", "fileDependencies": ["b.dat", "a.dat"], "fileAliases": ["B", ""], "operation": "mpi",
        "simulations": [{"consoleParameters": "-x 3"}, {"consoleParameters": ""},
        {"consoleParameters": "-y \"%1\" \\\n"}], "jobType": "Cloud Configuration - Simulation Sweep",
        "precision": "single", "coresRequired": 16, "coreHourEstimate": 10, "ramEstimate": 4096,
        "numberOfParts": 16, "application": "bench"})")
                        .object());
}

TEST(JobSubmitTest, submission_operationSweepPrecision_changesItsFields)
{
    // A name that is null is left out.
    constexpr std::tuple<int, const char *, int, std::size_t> rows[] = {{0, "mpi", 16, 1},   {1, "simulation", 1, 2},
                                                                        {2, "review", 1, 1}, {3, "build", 1, 3},
                                                                        {4, nullptr, 1, 1},  {-1, nullptr, 1, 1}};
    for (const auto &[operation, name, parts, simulations] : rows) {
        JobSubmit job = goodJob();
        job.operation = static_cast<JobOperation>(operation);
        job.simulations.resize(simulations);
        job.jobPrecision = operation - 1;
        const QJsonObject body = QJsonDocument::fromJson(QByteArray::fromStdString(job.toSubmissionJson())).object();
        const auto text = [&](const char *key) { return body[QLatin1String(key)].toString().toStdString(); };
        EXPECT_EQ(body["operation"], name ? QJsonValue(name) : QJsonValue(QJsonValue::Undefined));
        EXPECT_EQ(body["numberOfParts"].toInt(), parts) << operation;
        EXPECT_EQ(body["coreHourEstimate"].toDouble() * double(simulations), 30) << operation;
        EXPECT_EQ(text("precision"), operation == 1 ? "single" : "double");
        EXPECT_EQ(text("jobType"), std::string("Cloud Configuration - ") +
                                       (simulations == 1 ? "Single Simulation" : "Simulation Sweep"));
    }
}

TEST(JobSubmitTest, jobSubmit_textOfAnApplication_isRead)
{
    const JobSubmit job(R"({"jobID": "j", "operation": 1, "simulations": ["s1", "s2", null], "coresRequired": 8,
        "coreHourEstimate": 2.5, "jobPrecision": 3, "numberOfParts": 99})");
    EXPECT_EQ(job.jobID + job.solverTag, "j");
    EXPECT_EQ(job.simulations, (std::list<std::string>{"s1", "s2", ""}));
    EXPECT_EQ(job.coreHourEstimate, 7.5); // applications give it per simulation
    EXPECT_EQ(job.jobPrecision, 3);
    constexpr std::tuple<const char *, int, int> rows[] = {
        {R"({"operation": 0, "coresRequired": 8, "numberOfParts": 4})", 0, 4},
        {R"({"operation": 0, "coresRequired": 8})", 0, 0},
        {R"({"operation": 1, "coresRequired": 8, "numberOfParts": 4})", 1, 8},
        {R"({"operation": 1.5, "jobPrecision": "12", "numberOfParts": 2147483648})", 0, 0},
        {R"({"operation": "1", "jobPrecision": null, "numberOfParts": [4]})", 0, 0},
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
