#include "api/flat/Adapters.h"

#include <cstdio>

using namespace Velmora;
using Flat::json;
using Flat::plain;

namespace {

// The overloads that have a flat form.
constexpr void (CloudAPI::*newJobId)(const std::string &,
                                     const CloudAPI::ResultDone<std::string> &) = &CloudAPI::generateNewJobID;
constexpr void (CloudAPI::*submitJob)(const JobSubmit &,
                                      const CloudAPI::ResultDone<JobDetails> &) = &CloudAPI::submitNewJob;
constexpr void (CloudAPI::*searchTags)(const std::list<ItemTag> &,
                                       const CloudAPI::ResultDone<std::list<JobDetails>> &) = &CloudAPI::searchUserTags;

void traceLine(const std::string &text)
{
    std::fputs((text + '\n').c_str(), stdout);
    std::fflush(stdout);
}

CloudAPI *traced(CloudAPI *api)
{
    if (api)
        traceLine("api->logUserIn()");
    return api;
}

JobSubmit traced(const JobSubmit &job)
{
    std::list<JobSubmitError> failures;
    traceLine(job.toSubmissionJson());
    job.validate(&failures);
    for (std::size_t i = 0; i < failures.size(); ++i)
        traceLine("e");
    return job;
}

} // namespace

VelmoraCloudAPI *CreateCloudAPI() { return new CloudAPI; }

void DestroyCloudAPI(VelmoraCloudAPI *api) { delete api; }

void processEvents(VelmoraCloudAPI *api) { plain(api, &CloudAPI::processEvents); }

void setAPIPortal(VelmoraCloudAPI *api, const VelmoraPortalTarget *portal)
{
    plain(portal ? api : nullptr, &CloudAPI::setAPIPortal, portal);
}

bool isUserLoggedIn(VelmoraCloudAPI *api) { return plain(api, &CloudAPI::isUserLoggedIn); }

int currentNetworkStatus(VelmoraCloudAPI *api) { return plain(api, &CloudAPI::currentNetworkStatus); }

void clearActiveAccount(VelmoraCloudAPI *api) { plain(api, &CloudAPI::clearActiveAccount); }

void checkMFAEnabled(VelmoraCloudAPI *api, const char *emailAddress, VelmoraFlagCallback onComplete)
{
    plain(api, &CloudAPI::checkMFAEnabled, emailAddress, onComplete);
}

void logUserIn(VelmoraCloudAPI *api, const char *emailAddress, const char *password, const char *mfaCode,
               VelmoraDoneCallback onComplete)
{
    plain(traced(api), &CloudAPI::logUserIn, emailAddress, password, mfaCode, onComplete);
}

void logUserIn_Json(VelmoraCloudAPI *api, const char *emailAddress, const char *password, const char *mfaCode,
                    VelmoraDoneJsonCallback onComplete)
{
    json(traced(api), &CloudAPI::logUserIn, emailAddress, password, mfaCode, onComplete);
}

void modifyCurrentUserDetails(VelmoraCloudAPI *api, const char *lastName, const char *firstName,
                              const char *companyName, VelmoraUserDetailsCallback onComplete)
{
    plain(api, &CloudAPI::modifyCurrentUserDetails, lastName, firstName, companyName, onComplete);
}

void getCurrentUserDetails(VelmoraCloudAPI *api, VelmoraUserDetailsCallback onComplete)
{
    plain(api, &CloudAPI::getCurrentUserDetails, onComplete);
}

void getCurrentUserDetails_Json(VelmoraCloudAPI *api, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getCurrentUserDetails, onComplete);
}

void getAccountList(VelmoraCloudAPI *api, VelmoraAccountListCallback onComplete)
{
    plain(api, &CloudAPI::getAccountList, onComplete);
}

void getAccountList_Json(VelmoraCloudAPI *api, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getAccountList, onComplete);
}

void getAccountBalance(VelmoraCloudAPI *api, const char *accountId, VelmoraAccountBalanceCallback onComplete)
{
    plain(api, &CloudAPI::getAccountBalance, accountId, onComplete);
}

void generateNewJobID(VelmoraCloudAPI *api, const char *accountId, VelmoraTextCallback onComplete)
{
    plain(api, newJobId, accountId, onComplete);
}

void generateNewJobID_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete)
{
    json(api, newJobId, accountId, onComplete);
}

void submitNewJob(VelmoraCloudAPI *api, const VelmoraJobSubmit *job, VelmoraJobDetailsCallback onComplete)
{
    plain(api, submitJob, job, onComplete);
}

void submitNewJob_Json(VelmoraCloudAPI *api, const char *job, VelmoraJsonCallback onComplete)
{
    json(api, submitJob, traced(JobSubmit(job ? job : "")), onComplete);
}

void getJobDetails(VelmoraCloudAPI *api, const char *jobId, VelmoraJobDetailsCallback onComplete)
{
    plain(api, &CloudAPI::getJobDetails, jobId, onComplete);
}

void getJobDetails_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getJobDetails, jobId, onComplete);
}

void getAllJobDetails(VelmoraCloudAPI *api, VelmoraJobListCallback onComplete)
{
    plain(api, &CloudAPI::getAllJobDetails, onComplete);
}

void getAllJobDetails_Json(VelmoraCloudAPI *api, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getAllJobDetails, onComplete);
}

void archiveJob(VelmoraCloudAPI *api, const char *jobId, VelmoraJobListCallback onComplete)
{
    plain(api, &CloudAPI::archiveJob, jobId, onComplete);
}

void archiveJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::archiveJob, jobId, onComplete);
}

void killJob(VelmoraCloudAPI *api, const char *jobId, VelmoraAbortListCallback onComplete)
{
    plain(api, &CloudAPI::killJob, jobId, onComplete);
}

void killJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::killJob, jobId, onComplete);
}

void killSimulation(VelmoraCloudAPI *api, const char *jobId, const char *simulationId, VelmoraAbortCallback onComplete)
{
    plain(api, &CloudAPI::killSimulation, jobId, simulationId, onComplete);
}

void killSimulation_Json(VelmoraCloudAPI *api, const char *jobId, const char *simulationId,
                         VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::killSimulation, jobId, simulationId, onComplete);
}

void getJobProgress(VelmoraCloudAPI *api, const char *jobId, VelmoraJobProgressCallback onComplete)
{
    plain(api, &CloudAPI::getJobProgress, jobId, onComplete);
}

void subscribeToJob(VelmoraCloudAPI *api, const char *jobId, VelmoraMessageCallback onMessage,
                    VelmoraMessageCallback onFinished)
{
    plain(api, &CloudAPI::subscribeToJob, jobId, onMessage, onFinished);
}

void subscribeToJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraMessageJsonCallback onMessage,
                         VelmoraMessageJsonCallback onFinished)
{
    json(api, &CloudAPI::subscribeToJob, jobId, onMessage, onFinished);
}

void followJob(VelmoraCloudAPI *api, const char *jobId, VelmoraJobUpdateCallback onUpdate,
               VelmoraJobDetailsCallback onEnd)
{
    plain(api, &CloudAPI::followJob, jobId, onUpdate, onEnd);
}

void followJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraUpdateJsonCallback onUpdate,
                    VelmoraJsonCallback onEnd)
{
    json(api, &CloudAPI::followJob, jobId, onUpdate, onEnd);
}

void stopFollowing(VelmoraCloudAPI *api, const char *jobId) { plain(api, &CloudAPI::stopFollowing, jobId); }

void unsubscribeFromJob(VelmoraCloudAPI *api, const char *jobId) { plain(api, &CloudAPI::unsubscribeFromJob, jobId); }

void getJobTags(VelmoraCloudAPI *api, const char *jobId, VelmoraTagListCallback onComplete)
{
    plain(api, &CloudAPI::getJobTags, jobId, onComplete);
}

void getJobTags_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getJobTags, jobId, onComplete);
}

void tagJob(VelmoraCloudAPI *api, const char *jobId, const char *tag, VelmoraTagListCallback onComplete)
{
    plain(api, &CloudAPI::tagJob, jobId, tag, onComplete);
}

void tagJob_Json(VelmoraCloudAPI *api, const char *jobId, const char *tag, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::tagJob, jobId, tag, onComplete);
}

void untagJob(VelmoraCloudAPI *api, const char *jobId, const char *tag, VelmoraTagListCallback onComplete)
{
    plain(api, &CloudAPI::untagJob, jobId, tag, onComplete);
}

void untagJob_Json(VelmoraCloudAPI *api, const char *jobId, const char *tag, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::untagJob, jobId, tag, onComplete);
}

void searchUserTags(VelmoraCloudAPI *api, const VelmoraItemTags *tags, VelmoraJobListCallback onComplete)
{
    plain(api, searchTags, tags, onComplete);
}

void searchUserTags_Json(VelmoraCloudAPI *api, const char *tags, VelmoraJsonCallback onComplete)
{
    json(api, searchTags, tags, onComplete);
}

void getJobFileList(VelmoraCloudAPI *api, const char *jobId, bool showAllFiles, VelmoraFileListCallback onComplete)
{
    plain(api, &CloudAPI::getJobFileList, jobId, showAllFiles, onComplete);
}

void getJobFileList_Json(VelmoraCloudAPI *api, const char *jobId, bool showAllFiles, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getJobFileList, jobId, showAllFiles, onComplete);
}

void getSimulationFileList(VelmoraCloudAPI *api, const char *jobId, const char *simulationId, bool showAllFiles,
                           VelmoraFileListCallback onComplete)
{
    plain(api, &CloudAPI::getSimulationFileList, jobId, simulationId, showAllFiles, onComplete);
}

void getSimulationFileList_Json(VelmoraCloudAPI *api, const char *jobId, const char *simulationId, bool showAllFiles,
                                VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getSimulationFileList, jobId, simulationId, showAllFiles, onComplete);
}

void getUsersFileList(VelmoraCloudAPI *api, bool showAllFiles, VelmoraFileListCallback onComplete)
{
    plain(api, &CloudAPI::getUsersFileList, showAllFiles, onComplete);
}

void getUsersFileList_Json(VelmoraCloudAPI *api, bool showAllFiles, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getUsersFileList, showAllFiles, onComplete);
}

void deleteFile(VelmoraCloudAPI *api, const VelmoraDeleteFileDetails *file, VelmoraDeleteFileCallback onComplete)
{
    plain(api, &CloudAPI::deleteFile, file, onComplete);
}

void downloadFile(VelmoraCloudAPI *api, const VelmoraFileDownloadDetails *file,
                  VelmoraDownloadProgressCallback onProgress, VelmoraDownloadCallback onComplete)
{
    plain(api, &CloudAPI::downloadFile, file, onProgress, onComplete);
}

void downloadFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                       VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::downloadFile, file, onProgress, onComplete);
}

void uploadFile(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file, VelmoraUploadProgressCallback onProgress,
                VelmoraUploadCallback onComplete)
{
    plain(api, &CloudAPI::uploadFile, file, onProgress, onComplete);
}

void uploadFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                     VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::uploadFile, file, onProgress, onComplete);
}

void uploadInputFile(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file,
                     VelmoraUploadProgressCallback onProgress, VelmoraUploadCallback onComplete)
{
    plain(api, &CloudAPI::uploadInputFile, file, onProgress, onComplete);
}

void uploadInputFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                          VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::uploadInputFile, file, onProgress, onComplete);
}

bool cancelDownload(VelmoraCloudAPI *api, const VelmoraFileDownloadDetails *file)
{
    return plain(api, &CloudAPI::cancelDownload, file);
}

bool cancelDownload_Json(VelmoraCloudAPI *api, const char *file) { return json(api, &CloudAPI::cancelDownload, file); }

bool cancelUpload(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file)
{
    return plain(api, &CloudAPI::cancelUpload, file);
}

bool cancelUpload_Json(VelmoraCloudAPI *api, const char *file) { return json(api, &CloudAPI::cancelUpload, file); }
