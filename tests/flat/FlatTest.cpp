// The flat functions: each export of the header, then each operation in both forms against the portal over TLS.

#include "Application.h"
#include "api/flat/Adapters.h"
#include "support/TestFolder.h"

#include <thread>

extern "C" const std::uint64_t jobDetailsSizeInC;

namespace {

using namespace std::chrono_literals;

constexpr const char *wing = "job-wing0001", *unknown = "job-none";
const std::string errors = "\ne\ne\ne\ne\ne\ne\ne\ne\n"; // of an empty job

enum class Given { Something, Null };

template <class T> const T record{};

template <class T> T sample([[maybe_unused]] Given given)
{
    if constexpr (std::is_arithmetic_v<T>)
        return T(1);
    else if constexpr (std::is_same_v<T, const char *>)
        return given == Given::Null ? nullptr : wing;
    else if constexpr (std::is_same_v<T, void *>)
        return nullptr;
    else if constexpr (std::is_function_v<std::remove_pointer_t<T>>)
        return given == Given::Null ? nullptr : T(Callback());
    else
        return given == Given::Null ? nullptr : &record<std::remove_const_t<std::remove_pointer_t<T>>>;
}

template <class Result, class... Arguments>
Result call(Result (*function)(VelmoraCloudAPI *, Arguments...), VelmoraCloudAPI *api, [[maybe_unused]] Given given)
{
    return function(api, sample<Arguments>(given)...);
}
VelmoraCloudAPI *call(VelmoraCloudAPI *(*)(), VelmoraCloudAPI *, Given) { return nullptr; }

template <class Result, class... Arguments> constexpr bool answers(Result (*)(Arguments...))
{
    return (std::is_function_v<std::remove_pointer_t<Arguments>> || ...);
}

template <class Visit> void forEachExport(Visit visit)
{
#define FLAT_EXPORT(name) visit(#name, &name);
#include "Exports.inc"
#undef FLAT_EXPORT
}

struct FlatTest : testing::Test {
    FlatTest() { logIn(); }
    ~FlatTest() override { DestroyCloudAPI(api); }

    void logIn() { EXPECT_EQ(codeOf(logUserIn, api, "ada.field@velmora.example", "turbulence-42", ""), 200); }
    /// Waits for the one call of the completion. @return its code
    template <int which = 0> static int answer()
    {
        EXPECT_TRUE(waitUntil([] { return !Callback<which>::received.empty(); }));
        settle();
        EXPECT_EQ(Callback<which>::received.size(), 1U);
        return Callback<which>::received.empty() ? -1 : Callback<which>::code();
    }
    template <int which = 0, class Function, class... Given> static int codeOf(Function function, Given... given)
    {
        function(given..., Callback<which>());
        return answer<which>();
    }
    /// Both forms of a function give the same. A row: expectTwins(tagJob, tagJob_Json, CODE, ARGUMENTS...).
    template <class Plain, class Json> static void expectTwins(Plain plain, Json json, int code)
    {
        EXPECT_EQ(codeOf(plain), code);
        EXPECT_EQ(codeOf<1>(json), code);
        EXPECT_EQ(Callback<>::received, Callback<1>::received);
    }
    template <class... Plain, class... Json, class... Given>
    void expectTwins(void (*plain)(Plain...), void (*json)(Json...), int code, Given... given)
    {
        expectTwins([=](Callback<> done) { plain(api, given..., done); },
                    [=](Callback<1> done) { json(api, given..., done); }, code);
    }
    static QJsonObject object() { return QJsonDocument::fromJson(QByteArray::fromStdString(result())).object(); }
    static std::string result() { return Callback<>::last().at(1); }

    std::string newJob()
    {
        EXPECT_EQ(codeOf(generateNewJobID, api, "ACC-1001"), 200);
        return result();
    }

    /// Jobs are quick, pieces small.
    VelmoraPortal::Portal portal{VelmoraPortal::Options{0, {}, 400ms, 3600s, {{}, {}, 300000}, false, {}}};
    ScopedTrust trust{QByteArray::fromStdString(portal.caPem())};
    ScopedEnvironment address{"VELMORA_API_URL", QByteArray::fromStdString(portal.host())};
    TestFolder folder;
    VelmoraCloudAPI *api = CreateCloudAPI();
};

TEST(ExportsTest, everyExport_nullHandle_doesNothingAndReturnsNothing)
{
    int count = 0;
    forEachExport([&count](const std::string &name, auto function) {
        ++count;
        Callback<>::received.clear();
        testing::internal::CaptureStdout();
        if constexpr (std::is_void_v<decltype(call(function, nullptr, Given::Something))>)
            call(function, nullptr, Given::Something);
        else
            EXPECT_FALSE(call(function, nullptr, Given::Something)) << name;
        settle();
        EXPECT_EQ(Callback<>::received.size(), 0U) << name;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), name == "submitNewJob_Json" ? errors : "") << name;
    });
    EXPECT_EQ(count, 88);
}

TEST_F(FlatTest, everyExport_nullArguments_areAccepted)
{
    testing::internal::CaptureStdout();
    forEachExport([this](const std::string &name, auto function) {
        if (name != "DestroyCloudAPI")
            call(function, api, Given::Null);
    });
    EXPECT_TRUE(EVENTUALLY(portal.requestCount("auth/login") == 3 && portal.requestCount("tag/job") == 4));
    logIn();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "api->logUserIn()\napi->logUserIn()\n" + errors + "api->logUserIn()\n");
}

TEST_F(FlatTest, everyExport_destroyedInItsCallback_callsOnce)
{
    forEachExport([this](const char *name, auto function) {
        if constexpr (answers(decltype(function){})) {
            Callback<>::received.clear();
            Callback<>::then = [this] { DestroyCloudAPI(std::exchange(api, nullptr)); };
            call(function, api, Given::Something);
            if (name == std::string("onSessionChanged"))
                clearActiveAccount(api);
            EXPECT_TRUE(waitUntil([] { return !Callback<>::received.empty(); })) << name;
            settle();
            EXPECT_EQ(Callback<>::received.size(), 1U) << name;
            EXPECT_EQ(api, nullptr) << name;
            api = CreateCloudAPI();
            logIn();
        }
    });
}

TEST(ExportsTest, version_ofTheLoadedLibrary_isThatOfHeaderAndProject)
{
    EXPECT_STREQ(velmoraVersion(), VELMORA_VERSION);
    EXPECT_STREQ(velmoraVersion(), VELMORA_PROJECT_VERSION);
    const int numbers[] = {VELMORA_VERSION_MAJOR, VELMORA_VERSION_MINOR, VELMORA_VERSION_PATCH};
    EXPECT_EQ(QVersionNumber(numbers[0], numbers[1], numbers[2]).toString().toStdString(), velmoraVersion());
}

TEST(ExportsTest, whatCDiffersIn_sizesAndNumbers_fits)
{
    EXPECT_EQ(jobDetailsSizeInC, sizeof(VelmoraJobDetailsView));
    EXPECT_EQ(Flat::handOver<Flat::Plain>(std::int64_t(5000000000)), 705032704);
    EXPECT_EQ(Flat::handOver<Flat::Json>(std::int64_t(2147483648)), -2147483647 - 1);
}

TEST_F(FlatTest, operation_bothForms_giveTheSameResult)
{
    expectTwins(getCurrentUserDetails, getCurrentUserDetails_Json, 200);
    expectTwins(getAccountList, getAccountList_Json, 200);
    expectTwins(getJobDetails, getJobDetails_Json, 200, wing);
    expectTwins(getAllJobDetails, getAllJobDetails_Json, 200);
    expectTwins(tagJob, tagJob_Json, 200, wing, "fast");
    expectTwins(getJobTags, getJobTags_Json, 200, wing);
    EXPECT_EQ(object().value("itemTagList").toArray().size(), 3);
    expectTwins(untagJob, untagJob_Json, 404, wing, "slow");
    expectTwins(getJobFileList, getJobFileList_Json, 200, wing, true);
    EXPECT_NE(result().find("rtg"), std::string::npos);
    expectTwins(getJobFileList, getJobFileList_Json, 200, wing, false);
    EXPECT_EQ(result().find("rtg"), std::string::npos);
    expectTwins(getSimulationFileList, getSimulationFileList_Json, 200, wing, "sim-1", true);
    expectTwins(getUsersFileList, getUsersFileList_Json, 200, true);
    expectTwins(getAllAccountTags, getAllAccountTags_Json, 200, "ACC-1001");
    EXPECT_NE(result().find("fast"), std::string::npos);
    expectTwins(getHpcList, getHpcList_Json, 200, "ACC-1001");
    EXPECT_EQ(object().value("hpcDetailsList").toArray().size(), 3);
    expectTwins(getHpcPreferenceList, getHpcPreferenceList_Json, 200, "ACC-1001");
    EXPECT_EQ(object().value("hpcDetailsList").toArray().size(), 2);
    expectTwins(modifyCurrentUserDetails, modifyCurrentUserDetails_Json, 200, "Lovelace", "Ada", "Engines");
    EXPECT_EQ(object().value("surname"), "Lovelace");
    expectTwins(getAccountBalance, getAccountBalance_Json, 200, "ACC-1001");
    EXPECT_EQ(object().value("recentTransactions").toArray().size(), 2);
    expectTwins(getJobProgress, getJobProgress_Json, 200, wing);
    EXPECT_NE(result().find("\"progress\": 100"), std::string::npos);
    expectTwins(sendUserEvent, sendUserEvent_Json, 200, "opened", "application", "wing");
    for (const auto &request : portal.requests())
        EXPECT_EQ(request.target == "/api/user/event/add",
                  QJsonDocument::fromJson(request.body.c_str())["eventType"] == QLatin1String("opened"));
    expectTwins(killJob, killJob_Json, 200, wing);
    expectTwins(killSimulation, killSimulation_Json, 200, wing, "sim-1");
    expectTwins(archiveJob, archiveJob_Json, 404, unknown);
    expectTwins(followJob, followJob_Json, 200, wing, nullptr);
    expectTwins(generateNewJobID, generateNewJobID_Json, 404, "ACC-NONE");
    expectTwins(generateNewJobIDForHpc, generateNewJobIDForHpc_Json, 404, "ACC-1001", "hpc-none");

    const std::list<ItemTag> wanted = {{"fast", ""}, {"wing", ""}};
    const char *const wantedText = R"(["{\"tagText\":\"fast\"}","{\"tagText\":\"wing\"}"])";
    expectTwins([&](Callback<> done) { searchUserTags(api, &wanted, done); },
                [&](Callback<1> done) { searchUserTags_Json(api, wantedText, done); }, 200);
    EXPECT_NE(result().find(wing), std::string::npos);
    const DeleteFileDetails doomed{wing, "sim-1", "forces.csv"};
    EXPECT_EQ(codeOf(deleteFile, api, &doomed), 200);
    EXPECT_EQ(result(), outputText(doomed));
    EXPECT_EQ(codeOf(deleteFile_Json, api, R"({"jobId": "job-wing0001", "fileName": "wing.mesh"})"), 200);
    EXPECT_FALSE(portal.plainFile(wing, "sim-1/forces.csv") || portal.plainFile(wing, "wing.mesh"));
    expectTwins(logUserIn, logUserIn_Json, 401, "ada.field@velmora.example", "wrong", "");
}

TEST_F(FlatTest, settings_bothForms_areApplied)
{
    const QNetworkProxy before = QNetworkProxy::applicationProxy();
    const ProxyDefinition proxy{"plain", "u", "p", 1, 1};
    applyProxy(api, &proxy);
    EXPECT_EQ(QNetworkProxy::applicationProxy().hostName(), "plain");
    applyProxy_Json(api, R"({"proxyHost": "json", "proxyType": 0})");
    EXPECT_EQ(QNetworkProxy::applicationProxy().hostName(), "json");
    QNetworkProxy::setApplicationProxy(before);
    setClientOptions_Json(api, R"({"caFile": "none"})");
    EXPECT_EQ(currentNetworkStatus(api), -1);
    setClientOptions(api, &record<ClientOptions>);
    EXPECT_EQ(currentNetworkStatus(api), 1);
    const VelmoraPortalTarget target = PortalTarget::Test;
    setAPIPortal(api, &target);
    const ScopedEnvironment nobody("VELMORA_API_URL", {});
    EXPECT_EQ(CloudAPIImpl::of(*api).rest.baseUrl(), "https://test.velmora.example/api/");
}

TEST_F(FlatTest, session_resumedAndLost_isReported)
{
    const auto message = QJsonDocument::fromJson(Callback<>::last().at(0).c_str())["errorMessage"].toString();
    const QByteArray stored = QJsonDocument::fromJson(message.toUtf8())["refreshToken"].toString().toUtf8();
    expectTwins(resumeSession, resumeSession_Json, 401, "unknown");
    EXPECT_EQ(currentNetworkStatus(api), 1);
    EXPECT_EQ(codeOf(checkMFAEnabled, api, "ben.stone@velmora.example"), 200);
    EXPECT_EQ(result(), "true");
    onSessionChanged(api, Callback<2>());
    EXPECT_EQ(codeOf(resumeSession, api, stored.constData()), 200);
    EXPECT_TRUE(isUserLoggedIn(api));
    clearActiveAccount(api);
    EXPECT_FALSE(isUserLoggedIn(api));
    EXPECT_TRUE(waitUntil([] { return Callback<2>::received.size() == 2; }));
    EXPECT_EQ(Callback<2>::received.front().at(0), std::to_string(VELMORA_SESSION_SIGNED_IN));
    EXPECT_EQ(Callback<2>::last().at(0), std::to_string(VELMORA_SESSION_SIGNED_OUT));
    EXPECT_STREQ(lastNetworkError(api), "");
    const ScopedEnvironment nobody("VELMORA_API_URL", "127.0.0.1:1");
    EXPECT_EQ(currentNetworkStatus(api), -1);
    EXPECT_NE(std::string(lastNetworkError(api)).find("127.0.0.1:1 was refused"), std::string::npos);
}

TEST_F(FlatTest, callback_runningOrNot_findsItsHandle)
{
    VelmoraCloudAPI *other = CreateCloudAPI();
    EXPECT_EQ(userData(api), nullptr);
    setUserData(api, &folder);
    setUserData(other, &portal);
    VelmoraCloudAPI *inside = nullptr, *between = nullptr, *after = other, *elsewhere = other;
    Callback<1>::then = [&] {
        inside = currentCloudAPI();
        DestroyCloudAPI(std::exchange(api, nullptr)); // the outer callback's
        between = currentCloudAPI();
    };
    Callback<>::then = [&] {
        EXPECT_EQ(userData(currentCloudAPI()), &folder);
        std::thread([&elsewhere] { elsewhere = currentCloudAPI(); }).join();
        cancelUpload(other, &record<FileUploadDetails>);                       // runs no callback
        uploadFile(other, &record<FileUploadDetails>, nullptr, Callback<1>()); // refused inside the call
        after = currentCloudAPI();
    };
    EXPECT_EQ(codeOf(getJobDetails, api, wing), 200);
    EXPECT_EQ(inside, other);
    EXPECT_EQ(between, other);
    EXPECT_EQ(after, nullptr) << "its handle was destroyed";
    EXPECT_EQ(userData(other), &portal);
    EXPECT_EQ(currentCloudAPI(), nullptr);
    EXPECT_EQ(elsewhere, nullptr) << "on another thread";
    DestroyCloudAPI(other);
}

TEST_F(FlatTest, list_readOnAnotherThread_isValidInBothForms)
{
    QJsonArray jobs;
    for (int i = 0; i < 2000; ++i)
        jobs.append(QJsonObject{{"jobId", QString::number(i)},
                                {"fileName", i % 2 == 0 ? "a/rtg/b" : "c"},
                                {"fileDependencies", QJsonArray{"mesh"}},
                                {"simulations", QJsonArray{QJsonObject{{"simulationId", "sim-1"}}}}});
    Loopback service;
    service.server.setHandler([&](const auto &) { return ::answer(200, QJsonDocument(jobs).toJson()); });
    const auto check = [&](const char *listKey, int size, auto plain, auto json, auto... arguments) {
        expectTwins(plain, json, 200, arguments...);
        EXPECT_EQ(object().value(listKey).toArray().size(), size);
        Callback<>::then = Callback<1>::then = [this] { DestroyCloudAPI(std::exchange(api, CreateCloudAPI())); };
        expectTwins(plain, json, 200, arguments...);
        EXPECT_EQ(object().value(listKey).toArray().size(), size) << "destroyed inside";
    };
    check("jobDetailsList", 2000, getAllJobDetails, getAllJobDetails_Json);
    check("jobDetailsList", 2000, archiveJob, archiveJob_Json, wing);
    check("fileList", 2000, getUsersFileList, getUsersFileList_Json, true);
    check("fileList", 1000, getJobFileList, getJobFileList_Json, wing, false);
}

TEST_F(FlatTest, transfer_bothForms_completesOrIsCancelled)
{
    const std::string bytes(1000000, 'm');
    const FileUploadDetails up{folder.write("mesh", bytes), newJob(), 0};
    const FileDownloadDetails down{folder.path("back"), {up.cloudFileJobID, "mesh", 0, 0, {}, false}};
    const std::string upText = outputText(up), downText = outputText(down);
    std::string fleeting = upText; // texts may go as soon as the call returns
    const auto uploadText = [&](Callback<1> done) {
        uploadFile_Json(api, fleeting.c_str(), Callback<3>(), done);
        fleeting.assign(fleeting.size(), 'x');
    };
    expectTwins([&](Callback<> done) { uploadFile(api, &up, Callback<2>(), done); }, uploadText, 204);
    EXPECT_EQ(object().value("totalFileSize").toInt(), 1000000);
    EXPECT_EQ(portal.plainFile(up.cloudFileJobID, "mesh"), bytes);
    expectTwins([&](Callback<> done) { downloadFile(api, &down, Callback<4>(), done); },
                [&](Callback<1> done) { downloadFile_Json(api, downText.c_str(), Callback<5>(), done); }, 200);
    for (const auto &last : {Callback<2>::last(), Callback<3>::last(), Callback<4>::last(), Callback<5>::last()})
        EXPECT_GE(std::stol(last.at(1)), 1000016) << "encrypted";
    EXPECT_EQ(folder.read("back"), bytes);

    uploadInputFile(api, &up, nullptr, Callback());
    EXPECT_EQ(Callback<>::received.size(), 1U) << "completes inside the call";
    const std::function<bool()> cancels[] = {[&] { return cancelDownload(api, &down) && !cancelDownload(api, &down); },
                                             [&] { return cancelDownload_Json(api, downText.c_str()); },
                                             [&] { return cancelUpload(api, &up) && !cancelUpload(api, &up); },
                                             [&] { return cancelUpload_Json(api, upText.c_str()); }};
    for (int i = 0; i < 4; ++i) {
        i < 2 ? downloadFile(api, &down, nullptr, Callback()) : uploadFile(api, &up, nullptr, Callback());
        EXPECT_TRUE(cancels[i]()) << i;
        EXPECT_EQ(answer(), 400) << i;
    }
}

TEST_F(FlatTest, job_submitted_isTracedAndFollowed)
{
    const std::string job = newJob();
    subscribeToJob(api, job.c_str(), Callback<1>(), Callback<2>());
    followJob_Json(api, job.c_str(), Callback<3>(), Callback<4>());
    const std::string definition =
        R"({"jobID":")" + job + R"(","accountID":"ACC-1001","jobName":"Beam","mainFile":"beam.trninp","solverTag":" ",
            "simulations":["-x 1","-x 2"],"coreHourEstimate":2.5,"ramEstimate":1024,"numberOfParts":4,
            "originApplication":"test"})";
    testing::internal::CaptureStdout();
    submitNewJob_Json(api, definition.c_str(), Callback());
    EXPECT_EQ(testing::internal::GetCapturedStdout().find("{\n    \"accountId\": \"ACC-1001\""), 0U);
    EXPECT_EQ(answer(), 200);
    EXPECT_EQ(object().value("operation"), "mpi");
    ASSERT_EQ(answer<2>(), 200);
    EXPECT_EQ(Callback<2>::last().at(1), job);
    EXPECT_NE(Callback<2>::last().at(2).find("Job status is FINISHED"), std::string::npos);
    EXPECT_GT(Callback<1>::received.size(), 2U);
    unsubscribeFromJob(api, job.c_str());
    ASSERT_EQ(answer<4>(), 200);
    EXPECT_NE(Callback<4>::last().at(1).find("FINISHED"), std::string::npos);
    EXPECT_NE(Callback<3>::last().at(0).find("\"simulationProgressList\""), std::string::npos);
}

} // namespace
