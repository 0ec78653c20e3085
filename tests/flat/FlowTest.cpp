// Whole flows of a host through the flat functions, against the portal over TLS.

#include "Host.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>

namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

QByteArray bytes(const std::string &text) { return QByteArray::fromStdString(text); }
QJsonObject object(const std::string &text) { return QJsonDocument::fromJson(bytes(text)).object(); }
std::string text(const QJsonObject &of, const char *key)
{
    return of.value(QLatin1String(key)).toString().toStdString();
}

class FlatTest : public testing::Test {
protected:
    FlatTest()
    {
        testing::internal::CaptureStdout();
        logUserIn(api, "ada.field@velmora.example", "turbulence-42", "", Host());
        EXPECT_EQ(answer(), 200);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "api->logUserIn()\n");
    }
    ~FlatTest() override { DestroyCloudAPI(api); }

    /// Waits for the one call of the completion. @return its code
    template <int which = 0> static int answer()
    {
        EXPECT_TRUE(waitUntil([] { return !Host<which>::heard.empty(); }));
        settle();
        EXPECT_EQ(Host<which>::heard.size(), 1U);
        return Host<which>::heard.empty() ? -1 : Host<which>::code();
    }

    /// Both forms of a function, called alike, are heard alike.
    template <class... Plain, class... Json, class... Given>
    void expectTwins(void (*plain)(Plain...), void (*json)(Json...), int code, Given... given)
    {
        plain(api, given..., Host());
        EXPECT_EQ(answer(), code);
        json(api, given..., Host<1>());
        EXPECT_EQ(answer<1>(), code);
        EXPECT_EQ(Host<>::heard, Host<1>::heard);
    }

    static VelmoraPortal::Options quick()
    {
        VelmoraPortal::Options options;
        options.jobDuration = 400ms;
        options.storage.pieceSize = 300000;
        return options;
    }

    std::string newJob()
    {
        generateNewJobID(api, "ACC-1001", Host());
        EXPECT_EQ(answer(), 200);
        return Host<>::last().at(1);
    }
    static std::string definition(const std::string &jobId)
    {
        return R"({"jobID":")" + jobId +
               R"(","accountID":"ACC-1001","jobName":"Beam","mainFile":"beam.trninp","solverTag":" ","operation":0,
                "simulations":["-x 1","-x 2"],"coreHourEstimate":2.5,"ramEstimate":1024,"numberOfParts":4,
                "dependentFilesList":["mesh"],"dependentFilesAliasList":["m"],"originApplication":"test"})";
    }
    std::string path(const char *name) const { return folder.filePath(QLatin1String(name)).toStdString(); }
    std::string written(const char *name, const std::string &content) const
    {
        QFile file(QString::fromStdString(path(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes(content)) == qint64(content.size()));
        return path(name);
    }
    std::string content(const char *name) const
    {
        QFile file(QString::fromStdString(path(name)));
        return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : "cannot be read";
    }

    VelmoraPortal::Portal portal{quick()};
    ScopedTrust trust{bytes(portal.caPem())};
    ScopedEnvironment address{"VELMORA_API_URL", bytes(portal.host())};
    QTemporaryDir folder;
    VelmoraCloudAPI *api = CreateCloudAPI();
};

TEST_F(FlatTest, BothFormsSayTheSame)
{
    const char *wing = "job-wing0001";
    const char *unknown = "job-none";
    expectTwins(getCurrentUserDetails, getCurrentUserDetails_Json, 200);
    expectTwins(getAccountList, getAccountList_Json, 200);
    expectTwins(getJobDetails, getJobDetails_Json, 200, wing);
    expectTwins(getJobDetails, getJobDetails_Json, 404, unknown);
    expectTwins(getAllJobDetails, getAllJobDetails_Json, 200);
    expectTwins(getJobTags, getJobTags_Json, 200, wing);
    expectTwins(getJobTags, getJobTags_Json, 404, unknown); // an empty list
    expectTwins(getJobFileList, getJobFileList_Json, 200, wing, true);
    EXPECT_NE(Host<>::last().at(1).find("rtg"), std::string::npos);
    expectTwins(getJobFileList, getJobFileList_Json, 200, wing, false);
    EXPECT_EQ(Host<>::last().at(1).find("rtg"), std::string::npos);
    expectTwins(getSimulationFileList, getSimulationFileList_Json, 200, wing, "sim-1", true);
    expectTwins(getUsersFileList, getUsersFileList_Json, 200, true);
    expectTwins(killJob, killJob_Json, 200, wing);
    expectTwins(killSimulation, killSimulation_Json, 200, wing, "sim-1");
    expectTwins(archiveJob, archiveJob_Json, 404, unknown);
    expectTwins(logUserIn, logUserIn_Json, 401, "ada.field@velmora.example", "wrong", "");
    VelmoraPortal::Fault busy;
    busy.path = "job/init";
    busy.status = 503;
    busy.times = 2;
    busy.body = R"({"message":"busy \u00fc"})";
    portal.inject(busy);
    expectTwins(generateNewJobID, generateNewJobID_Json, 503, "ACC-1001");
    EXPECT_EQ(text(Host<>::error(), "errorMessage"), "busy \u00fc");
}

TEST_F(FlatTest, AccountsUsersAndTags)
{
    EXPECT_EQ(currentNetworkStatus(api), 1);
    checkMFAEnabled(api, "ben.stone@velmora.example", Host());
    EXPECT_EQ(answer(), 200);
    EXPECT_EQ(Host<>::last().at(1), "true");
    modifyCurrentUserDetails(api, "Lovelace", "Ada", "Engines", Host());
    EXPECT_EQ(answer(), 200);
    getCurrentUserDetails(api, Host());
    answer();
    EXPECT_EQ(text(object(Host<>::last().at(1)), "surname"), "Lovelace");
    getAccountBalance(api, "ACC-1001", Host());
    EXPECT_EQ(answer(), 200);
    const QJsonObject balance = object(Host<>::last().at(1));
    EXPECT_EQ(balance.value(QLatin1String("coreHoursAvailable")).toDouble(), 1234.5);
    EXPECT_EQ(balance.value(QLatin1String("recentTransactions")).toArray().size(), 2);

    tagJob(api, "job-wing0001", "fast", Host());
    EXPECT_EQ(answer(), 200);
    tagJob_Json(api, "job-duct0002", "fast", Host());
    EXPECT_EQ(answer(), 200);
    EXPECT_EQ(object(Host<>::last().at(1)).value(QLatin1String("itemTagList")).toArray().size(), 2);
    const std::list<ItemTag> wanted = {{"fast", ""}, {"duct", ""}};
    searchUserTags(api, &wanted, Host());
    EXPECT_EQ(answer(), 200);
    searchUserTags_Json(api, R"(["{\"tagText\":\"fast\"}","{\"tagText\":\"duct\"}"])", Host<1>());
    EXPECT_EQ(answer<1>(), 200);
    EXPECT_EQ(Host<>::heard, Host<1>::heard);
    EXPECT_NE(Host<>::last().at(1).find("job-duct0002"), std::string::npos);
    portal.clearRequests();
    searchUserTags_Json(api, R"([{"tagText":"fast"},"{\"tagText\":\"duct\"}"])", Host()); // an object reads as empty
    answer();
    const QJsonArray sent = object(portal.requests().back().body).value(QLatin1String("tags")).toArray();
    ASSERT_EQ(sent.size(), 2);
    EXPECT_EQ(text(sent[0].toObject(), "tag") + ',' + text(sent[1].toObject(), "tag"), ",duct");
    untagJob(api, "job-wing0001", "fast", Host());
    EXPECT_EQ(answer(), 200);
    untagJob_Json(api, "job-duct0002", "fast", Host());
    EXPECT_EQ(answer(), 200);

    clearActiveAccount(api);
    EXPECT_FALSE(isUserLoggedIn(api));
}

TEST_F(FlatTest, AJobFromItsIdToItsResults)
{
    const std::string job = newJob();
    const std::string mesh(1000000, 'm');
    // Texts and records may go as soon as the call returns.
    std::string upload = R"({"localFileLocation":")" + written("mesh", mesh) + R"(","cloudFileJobID":")" + job + "\"}";
    uploadFile_Json(api, upload.c_str(), Host<1>(), Host());
    upload.assign(upload.size(), 'x');
    EXPECT_EQ(answer(), 204);
    EXPECT_EQ(object(Host<>::last().at(1)).value(QLatin1String("totalFileSize")).toInt(), 1000000);
    EXPECT_GE(std::stol(Host<1>::last().at(1)), 1000016); // encrypted
    const FileUploadDetails input{written("beam.trninp", "beam"), job, 0};
    uploadInputFile(api, &input, Host<1>(), Host());
    EXPECT_EQ(Host<>::heard.size(), 1U) << "has completed when it returns";
    EXPECT_EQ(answer(), 204);
    EXPECT_EQ(portal.plainFile(job, "mesh"), mesh);
    EXPECT_EQ(portal.plainFile(job, "beam.trninp"), "beam");

    subscribeToJob(api, job.c_str(), Host<1>(), Host<2>());
    testing::internal::CaptureStdout();
    submitNewJob_Json(api, definition(job).c_str(), Host());
    const QJsonObject traced = object(testing::internal::GetCapturedStdout());
    EXPECT_EQ(answer(), 200);
    EXPECT_EQ(text(traced, "jobId"), job);
    EXPECT_EQ(text(object(Host<>::last().at(1)), "operation"), "mpi");
    ASSERT_EQ(answer<2>(), 200);
    EXPECT_EQ(Host<2>::last().at(1), job);
    EXPECT_NE(Host<2>::last().at(2).find("Job status is FINISHED"), std::string::npos);
    EXPECT_GT(Host<1>::heard.size(), 2U);
    for (const Texts &message : Host<1>::heard)
        EXPECT_EQ(message.at(1), job);
    subscribeToJob_Json(api, job.c_str(), Host<1>(), Host<2>()); // hears of the end at once
    EXPECT_EQ(answer<2>(), 200);
    unsubscribeFromJob(api, job.c_str());
    getJobProgress(api, job.c_str(), Host());
    EXPECT_EQ(answer(), 200);
    EXPECT_NE(Host<>::last().at(1).find("\"progress\": 100"), std::string::npos);

    const std::string results = portal.plainFile(job, "sim-1/results.dat").value_or("none");
    const FileDownloadDetails wanted{path("plain.dat"), {job, "sim-1/results.dat", 0, 0, {}, false}};
    downloadFile(api, &wanted, Host<1>(), Host());
    EXPECT_EQ(answer(), 200);
    EXPECT_EQ(content("plain.dat"), results);
    FileDownloadDetails again = wanted;
    again.localFileLocation = path("json.dat");
    downloadFile_Json(api, hostText(again).c_str(), Host<1>(), Host());
    EXPECT_EQ(answer(), 200);
    EXPECT_EQ(content("json.dat"), results);
    EXPECT_GT(std::stol(Host<1>::last().at(1)), 1000000);

    const DeleteFileDetails doomed{job, "sim-1", "results.dat"};
    deleteFile(api, &doomed, Host());
    EXPECT_EQ(answer(), 200);
    EXPECT_EQ(Host<>::last().at(1), hostText(doomed));
    EXPECT_FALSE(portal.plainFile(job, "sim-1/results.dat"));
}

TEST_F(FlatTest, RefusalsAndCancelsCompleteInsideTheCall)
{
    const JobSubmit nothing;
    submitNewJob(api, &nothing, Host());
    ASSERT_EQ(Host<>::heard.size(), 1U);
    EXPECT_EQ(Host<>::code(), 400);
    const Texts refusal = Host<>::last();
    testing::internal::CaptureStdout();
    submitNewJob_Json(api, R"({"jobID":"J","jobName":"n","simulations":["s"],"numberOfParts":129,"ramEstimate":1})",
                      Host());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\ne\ne\ne\ne\n"); // main file, estimate, cores, application
    ASSERT_EQ(Host<>::heard.size(), 1U);
    EXPECT_NE(Host<>::last(), refusal);
    EXPECT_EQ(text(Host<>::error(), "errorTitle"), "Error Submitting Job");

    const FileDownloadDetails wanted{path("never"), {"job-wing0001", "wing.mesh", 0, 0, {}, false}};
    downloadFile(api, &wanted, nullptr, Host());
    EXPECT_TRUE(cancelDownload(api, &wanted));
    EXPECT_EQ(answer(), 400);
    EXPECT_FALSE(cancelDownload(api, &wanted));
    downloadFile(api, &wanted, nullptr, Host());
    EXPECT_TRUE(cancelDownload_Json(api, hostText(wanted).c_str()));
    EXPECT_EQ(answer(), 400);
    EXPECT_FALSE(cancelDownload_Json(api, hostText(wanted).c_str()));
    const FileUploadDetails file{written("file", "x"), newJob(), 0};
    uploadFile(api, &file, nullptr, Host());
    EXPECT_TRUE(cancelUpload(api, &file));
    EXPECT_EQ(answer(), 400);
    uploadFile_Json(api, hostText(file).c_str(), nullptr, Host());
    EXPECT_TRUE(cancelUpload_Json(api, hostText(file).c_str()));
    EXPECT_EQ(answer(), 400);
    EXPECT_EQ(text(Host<>::error(), "errorTitle"), "Upload Cancelled");
    EXPECT_FALSE(cancelUpload_Json(api, hostText(file).c_str()));
}

TEST_F(FlatTest, AThousandCallsAtOnce_EachIsAnsweredOnce)
{
    VelmoraPortal::Fault delay; // half of the answers are overtaken by the others
    delay.path = "job/files/list/job-none";
    delay.kind = VelmoraPortal::FaultKind::Delay;
    delay.times = 0;
    delay.delay = 3ms;
    portal.inject(delay);
    const Host<> plain;
    const Host<1> json;
    for (int i = 0; i < 500; ++i) {
        getJobFileList(api, i % 2 ? "job-wing0001" : "job-none", false, plain);
        getJobFileList_Json(api, i % 2 ? "job-none" : "job-wing0001", false, json);
    }
    EXPECT_TRUE(waitUntil([] { return Host<>::heard.size() + Host<1>::heard.size() >= 1000; }, 30000));
    settle();
    for (auto *heard : {&Host<>::heard, &Host<1>::heard}) {
        std::sort(heard->begin(), heard->end());
        ASSERT_EQ(heard->size(), 500U);
        EXPECT_EQ(std::unique(heard->begin(), heard->end()) - heard->begin(), 2);
    }
    EXPECT_EQ(Host<>::heard, Host<1>::heard);
}

TEST_F(FlatTest, DestroyedInsideEachKindOfCallback)
{
    const std::string job = newJob();
    const std::string big = written("big", std::string(3000000, 'b'));
    const FileUploadDetails file{big, job, 0};
    const FileDownloadDetails wanted{path("target"), {"job-wing0001", "wing.mesh", 0, 0, {}, false}};
    const JobSubmit nothing;
    const std::string fileText = hostText(file);
    const std::string wantedText = hostText(wanted);
    const std::function<void()> ways[] = {
        [&] { logUserIn(api, "a", "b", "c", Host()); },
        [&] { logUserIn_Json(api, "ada.field@velmora.example", "turbulence-42", "", Host()); },
        [&] { checkMFAEnabled(api, "ben.stone@velmora.example", Host()); },
        [&] { generateNewJobID(api, "ACC-1001", Host()); },
        [&] { generateNewJobID_Json(api, "ACC-1001", Host()); },
        [&] { getJobDetails(api, "job-wing0001", Host()); },
        [&] { getJobDetails_Json(api, "job-wing0001", Host()); },
        [&] { getAllJobDetails(api, Host()); },
        [&] { getAllJobDetails_Json(api, Host()); },
        [&] { submitNewJob(api, &nothing, Host()); },
        [&] { submitNewJob_Json(api, "{}", Host()); },
        [&] { subscribeToJob(api, "job-wing0001", Host(), nullptr); },
        [&] { subscribeToJob(api, "job-wing0001", nullptr, Host()); },
        [&] { subscribeToJob_Json(api, "job-wing0001", Host(), nullptr); },
        [&] { uploadFile(api, &file, Host(), nullptr); },
        [&] { uploadFile_Json(api, fileText.c_str(), nullptr, Host()); },
        [&] { uploadInputFile(api, &file, Host(), nullptr); },
        [&] { uploadInputFile_Json(api, fileText.c_str(), nullptr, Host()); },
        [&] { downloadFile(api, &wanted, Host(), nullptr); },
        [&] { downloadFile_Json(api, wantedText.c_str(), nullptr, Host()); },
        [&] { uploadFile(api, &file, nullptr, Host()), cancelUpload(api, &file); },
        [&] { downloadFile(api, &wanted, nullptr, Host()), cancelDownload_Json(api, wantedText.c_str()); },
    };
    int row = 0;
    for (const auto &way : ways) {
        SCOPED_TRACE(row++);
        logUserIn(api, "ada.field@velmora.example", "turbulence-42", "", Host());
        ASSERT_EQ(answer(), 200);
        Host<>::then = [this] { DestroyCloudAPI(std::exchange(api, nullptr)); };
        way();
        EXPECT_TRUE(waitUntil([] { return !Host<>::heard.empty(); }));
        settle();
        Host<>::then = nullptr;
        EXPECT_EQ(Host<>::heard.size(), 1U);
        EXPECT_EQ(api, nullptr);
        api = CreateCloudAPI();
    }
}

} // namespace
