#include "Torture.h"

#include "support/Parts.h"

using namespace Velmora;

namespace Torture {

namespace {

template <class... Parameters, class... Arguments>
Operation simple(const char *name, const char *path, void (CloudAPI::*function)(Parameters...), Arguments... arguments)
{
    return {name, {path}, [=](Case &test) { (test.api.get()->*function)(arguments..., watch(test, test.call(name))); }};
}

/// With a code that the service may rightly answer with.
Operation refusable(int code, Operation operation)
{
    operation.start = [=, start = operation.start](Case &test) {
        test.refusals[operation.name] = code;
        start(test);
    };
    return operation;
}

void submit(Case &test, bool asText)
{
    const JobSubmit job(R"({"accountID": "ACC-1001", "jobName": "Torture", "mainFile": "t.trninp", "numberOfParts": 4,
        "simulations": ["-x 1", "-x 2"], "coreHourEstimate": 0.5, "ramEstimate": 1024, "originApplication": "torture",
        "jobID": ")" + test.job +
                        "\"}");
    Call &call = test.call("submitNewJob");
    call.verify = [id = test.job](Environment &environment, bool succeeded) {
        return succeeded && environment.portal.jobStatus(id).empty() ? "success without a job" : "";
    };
    asText ? test.api->submitNewJob(job.toSubmissionJson(), watch(test, call))
           : test.api->submitNewJob(job, watch(test, call));
}

void upload(Case &test, bool blocking)
{
    const std::size_t sizes[] = {0, 1, 15, 16, 17, 4096, 70000, 400000};
    const string bytes = test.random.bytes(test.random.of(sizes));
    const char *const names[] = {"in.dat", "in \"2\".dat", "\u5165\u529b \u00fc.dat"};
    const string name = test.random.of(names);
    const FileUploadDetails file{test.write(name, bytes), test.job, 0};
    const int &uploads = ++test.uploads[name]; // of one name at once: the last one to arrive stays
    Call &call = test.call(blocking ? "uploadInputFile" : "uploadFile");
    call.echoes = true;
    call.verify = [=, &uploads, job = test.job](Environment &environment, bool succeeded) {
        const bool arrived = uploads > 1 || environment.portal.plainFile(job, name) == bytes;
        return succeeded && !arrived ? "success, but the service has another file" : "";
    };
    test.cancels.push_back([&test, file] { test.api->cancelUpload(file); });
    const auto onProgress = [&test, &call](const FileUploadDetails &, std::int64_t) { test.progressed(call); };
    (test.api.get()->*(blocking ? &CloudAPI::uploadInputFile : &CloudAPI::uploadFile))(file, onProgress,
                                                                                       watch(test, call));
}

void download(Case &test)
{
    const string deep = "to/" + string(100, 'a') + '/' + string(100, 'b') + '/' + string(100, 'c') + "/result.bin";
    const string targets[] = {"to/result.bin", "to/result.bin", "to/\u7d50\u679c \u00fc.bin", deep};
    const string target = test.random.of(targets), before = test.read(target);
    const auto exists = [&test, target] { return QFileInfo::exists(QString::fromStdString(test.path(target))); };
    const FileDownloadDetails file{test.path(target), {storedJob, storedFile, 0, 0, {}, false}};
    Call &call = test.call("downloadFile");
    call.echoes = true;
    call.verify = [=, &test, existed = exists()](Environment &environment, bool succeeded) {
        const string now = test.read(target);
        if (now == environment.stored)
            return ""; // by this download, or by another one to the same target
        const bool isOld = now == before && exists() == existed;
        return succeeded ? "success, but the target is another file" : isOld ? "" : "the target was changed";
    };
    test.cancels.push_back([&test, file] { test.api->cancelDownload(file); });
    test.api->downloadFile(
        file, [&test, &call](const FileDownloadDetails &, std::int64_t) { test.progressed(call); }, watch(test, call));
}

void resume(Case &test)
{
    const CloudAPI::Done done = watch(test, test.call("resumeSession"));
    test.api->logUserIn(ada.email, ada.password, "", [&test, done](const ApiError &error) {
        const QJsonDocument tokens = QJsonDocument::fromJson(QByteArray::fromStdString(error.errorMessage));
        const string stored = tokens[QLatin1String("refreshToken")].toString().toStdString();
        succeeded(error) && !stored.empty() ? test.api->resumeSession(stored, done)
                                            : done(error); // spoilt by the fault
    });
}

void subscribe(Case &test)
{
    const string job = test.random.chance(50) ? string(storedJob) : test.job;
    test.mute(job);
    Call &call = test.call("subscribeToJob");
    call.follows = job;
    call.mustEnd = test.cannotOpen();
    // Whatever a callback does, it and its arguments exist until it returns.
    const auto callback = [&test, &call](bool finishes) {
        return [&test, &call, finishes, owned = string(100, 'x')](const ApiError &error, const string &id,
                                                                  const string &) {
            finishes ? test.completed(call, error, true) : test.progressed(call);
            test.failIf(owned != string(100, 'x') || id.compare(0, 4, "job-") != 0,
                        "a callback was destroyed before it returned");
        };
    };
    test.api->subscribeToJob(job, callback(false), callback(true));
}

/// Has one end, whatever the fault, unless the service cannot be asked any more.
void follow(Case &test)
{
    const string job = test.random.chance(50) ? string(storedJob) : test.job;
    Call &call = test.call("followJob");
    call.echoes = true; // a job that failed
    const int expected = test.refusals[call.name] = job == storedJob ? 200 : 404;
    call.verify = [&, expected](Environment &environment, bool) {
        const bool mayFail = test.isDisturbed() || environment.portal.requestCount("auth/login") > 1;
        return call.isFinished() && call.code != 200 && call.code != expected && !mayFail ? "the end is wrong" : "";
    };
    const auto drop = [](Call &dropped) {
        dropped.muted = true;
        dropped.code = dropped.completions++ == 0 ? 200 : dropped.code;
    };
    if (Call *earlier = std::exchange(test.followers[job], &call))
        drop(*earlier);
    JobFollowers &part = partsOf(*test.api).followers;
    part.setPauses({200, 5, 5, 50, 1000, 1000});
    test.api->followJob(
        job, [&](const JobProgress &) { test.progressed(call); }, watch(test, call));
    QTimer::singleShot(test.cannotAsk() ? 300 : 20000, &part, [=, &test, &call] {
        if (call.isFinished() || !test.cannotAsk())
            return;
        test.api->stopFollowing(job);
        drop(call);
    });
}

using C = CloudAPI;
constexpr const char *account = "ACC-1001", *job = storedJob;

} // namespace

const std::vector<Operation> operations = {
        simple("logUserIn", "auth/login", &C::logUserIn, ada.email, ada.password, ""),
        {"resumeSession", {"auth/login", "auth/refresh"}, resume},
        simple("checkMFAEnabled", "auth/hasMFA", &C::checkMFAEnabled, ada.email),
        {"currentNetworkStatus",
         {"*"},
         [](Case &test) {
             Call &call = test.call("currentNetworkStatus");
             const int status = test.api->currentNetworkStatus();
             ++call.completions;
             call.code = status == 1 ? 200 : 0;
             test.failIf(status != 1 && status != -1, "a status of " + std::to_string(status));
         }},
        simple<const string &, const C::ResultDone<string> &>("generateNewJobID", "job/init", &C::generateNewJobID,
                                                              account),
        {"submitNewJob", {"job/submit"}, [](Case &test) { submit(test, false); }},
        {"submitNewJob as text", {"job/submit"}, [](Case &test) { submit(test, true); }},
        simple("getAllJobDetails", "job/list", &C::getAllJobDetails),
        simple("getJobDetails", "job/load", &C::getJobDetails, job),
        simple("getJobProgress", "job/progress", &C::getJobProgress, job),
        simple("killJob", "job/stop", &C::killJob, job),
        simple("killSimulation", "job/simulation/stop", &C::killSimulation, job, "sim-1"),
        refusable(409, simple("archiveJob", "job/archive", &C::archiveJob, "job-duct0002")), // archived already
        simple("getAccountList", "account/list", &C::getAccountList),
        simple("getAccountBalance", "account/balance", &C::getAccountBalance, account),
        simple("getHpcList", "account/hpc/list", &C::getHpcList, account),
        simple("getHpcPreferenceList", "account/hpc/preference", &C::getHpcPreferenceList, account),
        simple("getCurrentUserDetails", "user/details", &C::getCurrentUserDetails),
        simple("modifyCurrentUserDetails", "user/modify", &C::modifyCurrentUserDetails, "Byron", "Ada", "Mills"),
        simple("sendUserEvent", "user/event/add", &C::sendUserEvent, "open", "viewer", "1"),
        simple("tagJob", "tag/job", &C::tagJob, job, "t"),
        refusable(404, simple("untagJob", "tag/job", &C::untagJob, job, "t")), // no such tag
        simple("getJobTags", "tag/list", &C::getJobTags, job),
        simple("getAllAccountTags", "tag/list/account", &C::getAllAccountTags, account),
        simple<const std::list<string> &, const C::ResultDone<std::list<JobDetails>> &>(
            "searchUserTags", "tag/search/job/user", &C::searchUserTags, std::list<string>{"t"}),
        simple("getJobFileList", "job/files/list", &C::getJobFileList, job, true),
        simple("getSimulationFileList", "job/files/list", &C::getSimulationFileList, job, "sim-1", true),
        simple("getUsersFileList", "job/files/list", &C::getUsersFileList, false),
        {"deleteFile",
         {"job/files/job-wing0001"},
         [](Case &test) {
             Call &call = test.call("deleteFile");
             call.echoes = true;
             test.refusals[call.name] = 404; // deleted already
             test.api->deleteFile({storedJob, "sim-1", "forces.csv"}, watch(test, call));
         }},
        {"uploadFile", {"job/key", "job/files/uploadUrl", "storage"}, [](Case &test) { upload(test, false); }},
        {"uploadInputFile", {"job/key", "job/files/uploadUrl", "storage"}, [](Case &test) { upload(test, true); }},
        {"downloadFile", {"job/key", "job/files/list", "storage", "storage"}, download},
        {"subscribeToJob", {"socket"}, subscribe},
        {"followJob", {"job/load", "job/progress", "socket"}, follow}};

const std::vector<Action> actions = {
    {"nothing", [](Case &, const Step &) {}, false},
    {"cancel",
     [](Case &test, const Step &) {
         for (std::size_t i = 0; i < test.cancels.size() && test.api; ++i)
             test.cancels[i]();
     }},
    {"unsubscribe",
     [](Case &test, const Step &) {
         for (const string &each : {string(storedJob), test.job}) {
             test.api->unsubscribeFromJob(each);
             test.mute(each);
         }
     }},
    // Ends subscriptions too.
    {"log out", [](Case &test, const Step &) { test.api->clearActiveAccount(), test.mute(); }},
    {"log in", [](Case &test, const Step &) { operations[0].start(test); }},
    {"change portal", // VELMORA_API_URL wins over it
     [](Case &test, const Step &) { test.api->setAPIPortal(PortalTarget::Test); }, false},
    {"destroy", [](Case &test, const Step &) { test.destroy(); }},
    {"again", [](Case &test, const Step &step) { step.operation->start(test); }},
    {"nested loop",
     [](Case &test, const Step &) {
         QEventLoop loop;
         QTimer::singleShot(int(test.random.below(60)), &loop, &QEventLoop::quit);
         loop.exec();
     },
     false},
    {"block", [](Case &test, const Step &) { QThread::msleep(test.random.below(100)); }, false},
    {"renew", // now
     [](Case &test, const Step &) { renewalTimerOf(*test.api)->start(0); }},
    {"heartbeats", // enough to restart sockets
     [](Case &test, const Step &) {
         for (int i = 0; i < 4; ++i)
             if (QTimer *heartbeat = heartbeatOf(*test.api))
                 QMetaObject::invokeMethod(heartbeat, "timeout");
     },
     false}};

} // namespace Torture
