#include "Torture.h"

#include <QFile>

using namespace Velmora;

namespace Torture {

namespace {

template <class... Parameters, class... Arguments>
auto simple(const char *name, void (CloudAPI::*function)(Parameters...), Arguments... arguments)
{
    return [=](Case &test) { (test.api.get()->*function)(arguments..., Watch{&test, &test.call(name)}); };
}

S read(const S &path)
{
    QFile file(QString::fromStdString(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : S();
}

JobSubmit jobOf(Case &test)
{
    JobSubmit job;
    job.jobID = test.job;
    job.accountID = "ACC-1001";
    job.jobName = "Torture";
    job.mainFile = "t.trninp";
    job.simulations = {"-x 1", "-x 2"};
    job.coresRequired = 4;
    job.coreHourEstimate = 1;
    job.ramEstimate = 1024;
    job.originApplication = "torture";
    return job;
}

std::size_t submitted(World &world, const S &job) { return world.portal.jobStatus(job).empty() ? 0 : 1; }

void submit(Case &test, bool asText)
{
    const JobSubmit job = jobOf(test);
    Call &call = test.call("submitNewJob");
    call.verdict = [id = test.job](World &world, bool succeeded) {
        return succeeded && submitted(world, id) == 0 ? S("success without a job") : S();
    };
    if (asText)
        test.api->submitNewJob(job.toSubmissionJson(), Watch{&test, &call});
    else
        test.api->submitNewJob(job, Watch{&test, &call});
}

void upload(Case &test, bool blocking)
{
    const std::size_t sizes[] = {0, 1, 15, 16, 17, 4096, 70000, 400000};
    const S bytes = test.random.bytes(test.random.of(sizes));
    const S name = "in" + std::to_string(test.random.below(3)) + ".dat";
    const FileUploadDetails file{test.write(name, bytes), test.job, 0};
    Call &call = test.call(blocking ? "uploadInputFile" : "uploadFile");
    call.verdict = [=, job = test.job](World &world, bool succeeded) {
        const auto plain = succeeded ? world.portal.plainFile(job, name) : std::optional<S>(bytes);
        return plain == bytes || (plain && read(file.localFileLocation) != bytes)
                   ? S()
                   : S("success, but another file there");
    };
    test.cancels.push_back([&test, file] { test.api->cancelUpload(file); });
    const auto onProgress = [&test, &call](const FileUploadDetails &, std::int64_t) { test.progressed(call); };
    (test.api.get()->*(blocking ? &CloudAPI::uploadInputFile : &CloudAPI::uploadFile))(file, onProgress,
                                                                                       Watch{&test, &call});
}

void download(Case &test)
{
    const S target = test.path("to/result.bin");
    const S before = read(target);
    const FileDownloadDetails file{target, {storedJob, storedFile, 0, 0, {}, false}};
    Call &call = test.call("downloadFile");
    call.verdict = [=](World &world, bool succeeded) {
        const S now = read(target);
        if (now == world.stored)
            return S(); // by this download, or by another one to the same target
        return succeeded ? S("success, but another file here") : now != before ? S("the target was touched") : S();
    };
    test.cancels.push_back([&test, file] { test.api->cancelDownload(file); });
    test.api->downloadFile(
        file, [&test, &call](const FileDownloadDetails &, std::int64_t) { test.progressed(call); },
        Watch{&test, &call});
}

void subscribe(Case &test)
{
    const S job = test.random.chance(50) ? S(storedJob) : test.job;
    test.mute(job);
    Call &call = test.call("subscribeToJob");
    call.follows = job;
    test.api->subscribeToJob(
        job, [&test, &call](const ApiError &, const S &, const S &) { test.progressed(call); },
        [&test, &call](const ApiError &error, const S &, const S &) { test.completed(call, error, true); });
}

} // namespace

const std::vector<Deed> &deeds()
{
    using C = CloudAPI;
    constexpr const char *account = "ACC-1001", *job = storedJob;
    static const std::vector<Deed> all = {
        {"logUserIn",
         {"auth/login"},
         simple("logUserIn", &C::logUserIn, VelmoraPortal::seededUsers()[0].email,
                VelmoraPortal::seededUsers()[0].password, "")},
        {"checkMFAEnabled",
         {"auth/hasMFA"},
         simple("checkMFAEnabled", &C::checkMFAEnabled, VelmoraPortal::seededUsers()[0].email)},
        {"currentNetworkStatus",
         {"*"},
         [](Case &test) {
             Call &call = test.call("currentNetworkStatus");
             const int status = test.api->currentNetworkStatus();
             ++call.completions;
             call.code = status == 1 ? 200 : 0;
             if (status != 1 && status != -1)
                 test.fail("a status of " + std::to_string(status));
         }},
        {"generateNewJobID",
         {"job/init"},
         [](Case &test) {
             test.api->generateNewJobID(account, Watch{&test, &test.call("generateNewJobID")});
         }},
        {"submitNewJob", {"job/submit"}, [](Case &test) { submit(test, false); }},
        {"submitNewJob as text", {"job/submit"}, [](Case &test) { submit(test, true); }},
        {"getAllJobDetails", {"job/list"}, simple("getAllJobDetails", &C::getAllJobDetails)},
        {"getJobDetails", {"job/load"}, simple("getJobDetails", &C::getJobDetails, job)},
        {"getJobProgress", {"job/progress"}, simple("getJobProgress", &C::getJobProgress, job)},
        {"killJob", {"job/stop"}, simple("killJob", &C::killJob, job)},
        {"killSimulation", {"job/simulation/stop"}, simple("killSimulation", &C::killSimulation, job, "sim-1")},
        {"getAccountList", {"account/list"}, simple("getAccountList", &C::getAccountList)},
        {"getAccountBalance", {"account/balance"}, simple("getAccountBalance", &C::getAccountBalance, account)},
        {"getHpcList", {"account/hpc/list"}, simple("getHpcList", &C::getHpcList, account)},
        {"getHpcPreferenceList",
         {"account/hpc/preference"},
         simple("getHpcPreferenceList", &C::getHpcPreferenceList, account)},
        {"getCurrentUserDetails", {"user/details"}, simple("getCurrentUserDetails", &C::getCurrentUserDetails)},
        {"modifyCurrentUserDetails",
         {"user/modify"},
         simple("modifyCurrentUserDetails", &C::modifyCurrentUserDetails, "Byron", "Ada", "Mills")},
        {"sendUserEvent", {"user/event/add"}, simple("sendUserEvent", &C::sendUserEvent, "open", "viewer", "1")},
        {"tagJob", {"tag/job"}, simple("tagJob", &C::tagJob, job, "t")},
        {"untagJob",
         {"tag/job"},
         [](Case &test) {
             Call &call = test.call("untagJob");
             call.refusal = 404; // no such tag
             test.api->untagJob(job, "t", Watch{&test, &call});
         }},
        {"getJobTags", {"tag/list"}, simple("getJobTags", &C::getJobTags, job)},
        {"getAllAccountTags", {"tag/list/account"}, simple("getAllAccountTags", &C::getAllAccountTags, account)},
        {"searchUserTags",
         {"tag/search/job/user"},
         [](Case &test) {
             test.api->searchUserTags(std::list<S>{"t"}, Watch{&test, &test.call("searchUserTags")});
         }},
        {"getJobFileList", {"job/files/list"}, simple("getJobFileList", &C::getJobFileList, job, true)},
        {"getSimulationFileList",
         {"job/files/list"},
         simple("getSimulationFileList", &C::getSimulationFileList, job, "sim-1", true)},
        {"getUsersFileList", {"job/files/list"}, simple("getUsersFileList", &C::getUsersFileList, false)},
        {"uploadFile", {"job/key", "job/files/uploadUrl", "storage"}, [](Case &test) { upload(test, false); }},
        {"uploadInputFile", {"job/key", "job/files/uploadUrl", "storage"}, [](Case &test) { upload(test, true); }},
        {"downloadFile", {"job/key", "job/files/list", "storage", "storage"}, download},
        {"subscribeToJob", {"socket"}, subscribe},
    };
    return all;
}

} // namespace Torture
