#include <velmora/CloudAPI.h>

#include "api/CloudAPIImpl.h"
#include "operations/Accounts.h"
#include "operations/Files.h"
#include "operations/Jobs.h"
#include "operations/Tags.h"
#include "operations/Transfers.h"

namespace Velmora {

CloudAPI::CloudAPI()
    : m_impl(new CloudAPIImpl)
{
}

CloudAPI::~CloudAPI() { delete m_impl; }

CloudAPI &CloudAPI::operator=(const CloudAPI &other) = default;

void CloudAPI::applyProxy(ProxyDefinition proxy) { CloudAPIImpl::applyProxy(proxy); }

void CloudAPI::setClientOptions(const ClientOptions &options) { m_impl->setClientOptions(options); }

void CloudAPI::setAPIPortal(const PortalTarget &portal) { m_impl->setAPIPortal(portal); }

int CloudAPI::currentNetworkStatus() { return m_impl->currentNetworkStatus(); }

void CloudAPI::processEvents() { pumpEvents(); }

bool CloudAPI::processEvents(int maxWaitMilliseconds) { return pumpEvents(maxWaitMilliseconds); }

bool CloudAPI::isUserLoggedIn() const { return m_impl->session.isLoggedIn(); }

void CloudAPI::clearActiveAccount() { m_impl->session.clear(); }

void CloudAPI::logUserIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
                         const Done &onComplete)
{
    m_impl->session.logIn(emailAddress, password, mfaCode, onComplete);
}

void CloudAPI::resumeSession(const std::string &refreshToken, const Done &onComplete)
{
    m_impl->session.resume(refreshToken, onComplete);
}

void CloudAPI::onSessionChanged(const SessionChanged &callback) { m_impl->session.setCallback(callback); }

std::string CloudAPI::lastNetworkError() const { return m_impl->rest.lastNetworkError(); }

void CloudAPI::checkMFAEnabled(const std::string &emailAddress, const ResultDone<bool> &onComplete)
{
    m_impl->rest.call(Accounts::mfaEnabled(emailAddress), onComplete);
}

void CloudAPI::generateNewJobID(const std::string &accountId, const ResultDone<std::string> &onComplete)
{
    m_impl->rest.call(Jobs::generateId(accountId, {}), onComplete);
}

void CloudAPI::generateNewJobID(const std::string &accountId, const std::string &hpcId,
                                const ResultDone<std::string> &onComplete)
{
    m_impl->rest.call(Jobs::generateId(accountId, hpcId), onComplete);
}

void CloudAPI::submitNewJob(const std::string &submissionJson, const ResultDone<JobDetails> &onComplete)
{
    m_impl->rest.call(Jobs::submit(submissionJson), onComplete);
}

void CloudAPI::submitNewJob(const JobSubmit &job, const ResultDone<JobDetails> &onComplete)
{
    const auto refusal = Jobs::refusalOf(job);
    if (!refusal)
        m_impl->rest.call(Jobs::submit(job.toSubmissionJson()), onComplete);
    else if (const auto callback = onComplete) // a copy: the callback may destroy the original
        callback(*refusal, {});
}

void CloudAPI::getAllJobDetails(const ResultDone<std::list<JobDetails>> &onComplete)
{
    m_impl->rest.call(Jobs::list(), onComplete);
}

void CloudAPI::getJobDetails(const std::string &jobId, const ResultDone<JobDetails> &onComplete)
{
    m_impl->rest.call(Jobs::details(jobId), onComplete);
}

void CloudAPI::getJobProgress(const std::string &jobId, const ResultDone<JobProgress> &onComplete)
{
    m_impl->rest.call(Jobs::progress(jobId), onComplete);
}

void CloudAPI::killJob(const std::string &jobId, const ResultDone<std::list<SimulationAbortState>> &onComplete)
{
    m_impl->rest.call(Jobs::stop(jobId), onComplete);
}

void CloudAPI::killSimulation(const std::string &jobId, const std::string &simulationId,
                              const ResultDone<SimulationAbortState> &onComplete)
{
    m_impl->rest.call(Jobs::stopSimulation(jobId, simulationId), onComplete);
}

void CloudAPI::archiveJob(const std::string &jobId, const ResultDone<std::list<JobDetails>> &onComplete)
{
    m_impl->rest.call(Jobs::archive(jobId), onComplete);
}

void CloudAPI::getAccountList(const ResultDone<std::list<AccountDetails>> &onComplete)
{
    m_impl->rest.call(Accounts::list(), onComplete);
}

void CloudAPI::getAccountBalance(const std::string &accountId, const ResultDone<AccountBalance> &onComplete)
{
    m_impl->rest.call(Accounts::balance(accountId), onComplete);
}

void CloudAPI::getHpcList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete)
{
    m_impl->rest.call(Accounts::clusters(accountId), onComplete);
}

void CloudAPI::getHpcPreferenceList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete)
{
    m_impl->rest.call(Accounts::preferredClusters(accountId), onComplete);
}

void CloudAPI::getCurrentUserDetails(const ResultDone<UserDetails> &onComplete)
{
    m_impl->rest.call(Accounts::user(), onComplete);
}

void CloudAPI::modifyCurrentUserDetails(const std::string &lastName, const std::string &firstName,
                                        const std::string &companyName, const ResultDone<UserDetails> &onComplete)
{
    m_impl->rest.call(Accounts::modifyUser(lastName, firstName, companyName), onComplete);
}

void CloudAPI::sendUserEvent(const std::string &eventType, const std::string &eventSource,
                             const std::string &eventValue, const Done &onComplete)
{
    m_impl->rest.call(Accounts::event(eventType, eventSource, eventValue), onComplete);
}

void CloudAPI::tagJob(const std::string &jobId, const std::string &tag,
                      const ResultDone<std::list<ItemTag>> &onComplete)
{
    m_impl->rest.call(Tags::add(jobId, tag), onComplete);
}

void CloudAPI::untagJob(const std::string &jobId, const std::string &tag,
                        const ResultDone<std::list<ItemTag>> &onComplete)
{
    m_impl->rest.call(Tags::remove(jobId, tag), onComplete);
}

void CloudAPI::getJobTags(const std::string &jobId, const ResultDone<std::list<ItemTag>> &onComplete)
{
    m_impl->rest.call(Tags::ofJob(jobId), onComplete);
}

void CloudAPI::getAllAccountTags(const std::string &accountId, const ResultDone<std::list<ItemTag>> &onComplete)
{
    m_impl->rest.call(Tags::ofAccount(accountId), onComplete);
}

void CloudAPI::searchUserTags(const std::list<ItemTag> &tags, const ResultDone<std::list<JobDetails>> &onComplete)
{
    m_impl->rest.call(Tags::searchByTags(tags), onComplete);
}

void CloudAPI::searchUserTags(const std::list<std::string> &tags, const ResultDone<std::list<JobDetails>> &onComplete)
{
    m_impl->rest.call(Tags::search(tags), onComplete);
}

void CloudAPI::getJobFileList(const std::string &jobId, bool showAllFiles,
                              const ResultDone<std::list<CloudFile>> &onComplete)
{
    m_impl->grants.listFiles(Files::ofJob(jobId), showAllFiles, onComplete);
}

void CloudAPI::getSimulationFileList(const std::string &jobId, const std::string &simulationId, bool showAllFiles,
                                     const ResultDone<std::list<CloudFile>> &onComplete)
{
    m_impl->grants.listFiles(Files::ofSimulation(jobId, simulationId), showAllFiles, onComplete);
}

void CloudAPI::getUsersFileList(bool showAllFiles, const ResultDone<std::list<CloudFile>> &onComplete)
{
    m_impl->grants.listFiles(Files::ofUser(), showAllFiles, onComplete);
}

void CloudAPI::deleteFile(const DeleteFileDetails &file, const ResultDone<DeleteFileDetails> &onComplete)
{
    const auto refusal = Files::refusalOf(file);
    const auto whenDone = [&grants = m_impl->grants, onComplete](const ApiError &error,
                                                                 const DeleteFileDetails &details) {
        grants.dropFile(details.jobId, toQt(details.fileName)); // a refused one may be gone all the same
        if (onComplete)
            onComplete(error, details);
    };
    if (!refusal)
        m_impl->rest.call(Files::remove(file), ResultDone<DeleteFileDetails>(whenDone), file);
    else if (const auto callback = onComplete) // a copy: the callback may destroy the original
        callback(*refusal, DeleteFileDetails(file));
}

void CloudAPI::uploadFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                          const ResultDone<FileUploadDetails> &onComplete)
{
    Transfers::upload(m_impl->transfers, file, onProgress, onComplete);
}

void CloudAPI::uploadInputFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                               const ResultDone<FileUploadDetails> &onComplete)
{
    m_impl->uploadInputFile(file, onProgress, onComplete);
}

void CloudAPI::downloadFile(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                            const ResultDone<FileDownloadDetails> &onComplete)
{
    m_impl->transfers.downloadFile(file, onProgress, onComplete);
}

bool CloudAPI::cancelUpload(const FileUploadDetails &file) { return Transfers::cancelUpload(m_impl->transfers, file); }

bool CloudAPI::cancelDownload(const FileDownloadDetails &file) { return m_impl->transfers.cancelDownload(file); }

void CloudAPI::subscribeToJob(const std::string &jobId, const JobMessage &onMessage, const JobMessage &onFinished)
{
    m_impl->sockets.subscribeToJob(toQt(jobId), m_impl->session.idToken(), onMessage, onFinished);
}

void CloudAPI::unsubscribeFromJob(const std::string &jobId) { m_impl->sockets.unsubscribeFromJob(toQt(jobId)); }

void CloudAPI::followJob(const std::string &jobId, const JobUpdate &onUpdate, const JobEnd &onEnd)
{
    m_impl->followers.follow(jobId, onUpdate, onEnd);
}

void CloudAPI::stopFollowing(const std::string &jobId) { m_impl->followers.stop(jobId); }

} // namespace Velmora
