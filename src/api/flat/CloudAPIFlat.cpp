#include "api/flat/Adapters.h"
#include "operations/Jobs.h"
#include "operations/Tags.h"

#include <cstdio>

using namespace Velmora;
using Flat::json;
using Flat::plain;

namespace {

// The overloads that have a flat form.
constexpr void (CloudAPI::*newJobId)(const std::string &,
                                     const CloudAPI::ResultDone<std::string> &) = &CloudAPI::generateNewJobID;
constexpr void (CloudAPI::*newJobIdForHpc)(const std::string &, const std::string &,
                                           const CloudAPI::ResultDone<std::string> &) = &CloudAPI::generateNewJobID;
constexpr void (CloudAPI::*submitText)(const std::string &,
                                       const CloudAPI::ResultDone<JobDetails> &) = &CloudAPI::submitNewJob;
constexpr void (CloudAPI::*submitJob)(const JobSubmit &,
                                      const CloudAPI::ResultDone<JobDetails> &) = &CloudAPI::submitNewJob;

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

} // namespace

void setClientOptions(VelmoraCloudAPI *api, const VelmoraClientOptions *options)
{
    plain(api, &CloudAPI::setClientOptions, options);
}

void setClientOptions_Json(VelmoraCloudAPI *api, const char *options)
{
    json(api, &CloudAPI::setClientOptions, options);
}

void applyProxy(VelmoraCloudAPI *api, const VelmoraProxyDefinition *proxy)
{
    plain(proxy ? api : nullptr, &CloudAPI::applyProxy, proxy);
}

void applyProxy_Json(VelmoraCloudAPI *api, const char *proxy) { json(api, &CloudAPI::applyProxy, proxy); }

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

void resumeSession(VelmoraCloudAPI *api, const char *refreshToken, VelmoraDoneCallback onComplete)
{
    plain(api, &CloudAPI::resumeSession, refreshToken, onComplete);
}

void resumeSession_Json(VelmoraCloudAPI *api, const char *refreshToken, VelmoraDoneJsonCallback onComplete)
{
    json(api, &CloudAPI::resumeSession, refreshToken, onComplete);
}

void onSessionChanged(VelmoraCloudAPI *api, VelmoraSessionCallback callback)
{
    plain(api, &CloudAPI::onSessionChanged, callback);
}

const char *lastNetworkError(VelmoraCloudAPI *api)
{
    return api ? CloudAPIImpl::of(*api).rest.lastNetworkError().c_str() : nullptr;
}

void modifyCurrentUserDetails(VelmoraCloudAPI *api, const char *lastName, const char *firstName,
                              const char *companyName, VelmoraUserDetailsCallback onComplete)
{
    plain(api, &CloudAPI::modifyCurrentUserDetails, lastName, firstName, companyName, onComplete);
}

void modifyCurrentUserDetails_Json(VelmoraCloudAPI *api, const char *lastName, const char *firstName,
                                   const char *companyName, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::modifyCurrentUserDetails, lastName, firstName, companyName, onComplete);
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

void getAccountBalance_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getAccountBalance, accountId, onComplete);
}

void getHpcList(VelmoraCloudAPI *api, const char *accountId, VelmoraHpcListCallback onComplete)
{
    plain(api, &CloudAPI::getHpcList, accountId, onComplete);
}

void getHpcList_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getHpcList, accountId, onComplete);
}

void getHpcPreferenceList(VelmoraCloudAPI *api, const char *accountId, VelmoraHpcListCallback onComplete)
{
    plain(api, &CloudAPI::getHpcPreferenceList, accountId, onComplete);
}

void getHpcPreferenceList_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getHpcPreferenceList, accountId, onComplete);
}

void sendUserEvent(VelmoraCloudAPI *api, const char *eventType, const char *eventSource, const char *eventValue,
                   VelmoraDoneCallback onComplete)
{
    plain(api, &CloudAPI::sendUserEvent, eventType, eventSource, eventValue, onComplete);
}

void sendUserEvent_Json(VelmoraCloudAPI *api, const char *eventType, const char *eventSource, const char *eventValue,
                        VelmoraDoneJsonCallback onComplete)
{
    json(api, &CloudAPI::sendUserEvent, eventType, eventSource, eventValue, onComplete);
}

void generateNewJobID(VelmoraCloudAPI *api, const char *accountId, VelmoraTextCallback onComplete)
{
    plain(api, newJobId, accountId, onComplete);
}

void generateNewJobID_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete)
{
    json(api, newJobId, accountId, onComplete);
}

void generateNewJobIDForHpc(VelmoraCloudAPI *api, const char *accountId, const char *hpcId,
                            VelmoraTextCallback onComplete)
{
    plain(api, newJobIdForHpc, accountId, hpcId, onComplete);
}

void generateNewJobIDForHpc_Json(VelmoraCloudAPI *api, const char *accountId, const char *hpcId,
                                 VelmoraJsonCallback onComplete)
{
    json(api, newJobIdForHpc, accountId, hpcId, onComplete);
}

void submitNewJob(VelmoraCloudAPI *api, const VelmoraJobSubmit *job, VelmoraJobDetailsCallback onComplete)
{
    plain(api, submitJob, job, onComplete);
}

void submitNewJob_Json(VelmoraCloudAPI *api, const char *job, VelmoraJsonCallback onComplete)
{
    const JobSubmit definition(job ? job : "");
    const std::string body = definition.toSubmissionJson();
    std::list<JobSubmitError> failures;
    definition.validate(&failures);
    traceLine(body);
    for (std::size_t i = 0; i < failures.size(); ++i)
        traceLine("e");
    if (failures.empty())
        json(api, submitText, body, onComplete);
    else
        json(api, submitJob, definition, onComplete); // refuses it
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
    plain.list(api, onComplete, &Jobs::list);
}

void getAllJobDetails_Json(VelmoraCloudAPI *api, VelmoraJsonCallback onComplete)
{
    json.list(api, onComplete, &Jobs::list);
}

void archiveJob(VelmoraCloudAPI *api, const char *jobId, VelmoraJobListCallback onComplete)
{
    plain.list(api, onComplete, &Jobs::archive, jobId);
}

void archiveJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete)
{
    json.list(api, onComplete, &Jobs::archive, jobId);
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

void getJobProgress_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getJobProgress, jobId, onComplete);
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

void getAllAccountTags(VelmoraCloudAPI *api, const char *accountId, VelmoraTagListCallback onComplete)
{
    plain(api, &CloudAPI::getAllAccountTags, accountId, onComplete);
}

void getAllAccountTags_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete)
{
    json(api, &CloudAPI::getAllAccountTags, accountId, onComplete);
}

void searchUserTags(VelmoraCloudAPI *api, const VelmoraItemTags *tags, VelmoraJobListCallback onComplete)
{
    plain.list(api, onComplete, &Tags::searchByTags, tags);
}

void searchUserTags_Json(VelmoraCloudAPI *api, const char *tags, VelmoraJsonCallback onComplete)
{
    json.list(api, onComplete, &Tags::searchByTags, tags);
}
