#include <velmora/CloudAPI.h>

#include "api/CloudAPIImpl.h"

namespace Velmora {

CloudAPI::CloudAPI()
    : m_impl(new CloudAPIImpl)
{
}

CloudAPI::~CloudAPI() { delete m_impl; }

CloudAPI &CloudAPI::operator=(const CloudAPI &other) = default;

void CloudAPI::applyProxy(ProxyDefinition proxy) { m_impl->applyProxy(proxy); }

void CloudAPI::setAPIPortal(const PortalTarget &portal) { m_impl->setAPIPortal(portal); }

int CloudAPI::currentNetworkStatus() { return m_impl->currentNetworkStatus(); }

void CloudAPI::processEvents() { pumpEvents(); }

bool CloudAPI::isUserLoggedIn() const { return m_impl->isUserLoggedIn(); }

void CloudAPI::clearActiveAccount() { m_impl->clearActiveAccount(); }

void CloudAPI::logUserIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
                         const Done &onComplete)
{
    m_impl->logUserIn(emailAddress, password, mfaCode, onComplete);
}

void CloudAPI::checkMFAEnabled(const std::string &emailAddress, const ResultDone<bool> &onComplete)
{
    m_impl->checkMFAEnabled(emailAddress, onComplete);
}

void CloudAPI::generateNewJobID(const std::string &accountId, const ResultDone<std::string> &onComplete)
{
    m_impl->generateNewJobID(accountId, {}, onComplete);
}

void CloudAPI::generateNewJobID(const std::string &accountId, const std::string &hpcId,
                                const ResultDone<std::string> &onComplete)
{
    m_impl->generateNewJobID(accountId, hpcId, onComplete);
}

void CloudAPI::submitNewJob(const std::string &submissionJson, const ResultDone<JobDetails> &onComplete)
{
    m_impl->submitNewJob(submissionJson, onComplete);
}

void CloudAPI::submitNewJob(const JobSubmit &job, const ResultDone<JobDetails> &onComplete)
{
    m_impl->submitNewJob(job, onComplete);
}

void CloudAPI::getAllJobDetails(const ResultDone<std::list<JobDetails>> &onComplete)
{
    m_impl->requestAllJobInformation(onComplete);
}

void CloudAPI::getJobDetails(const std::string &jobId, const ResultDone<JobDetails> &onComplete)
{
    m_impl->getJobDetails(jobId, onComplete);
}

void CloudAPI::getJobProgress(const std::string &jobId, const ResultDone<JobProgress> &onComplete)
{
    m_impl->getJobProgress(jobId, onComplete);
}

void CloudAPI::killJob(const std::string &jobId, const ResultDone<std::list<SimulationAbortState>> &onComplete)
{
    m_impl->killJob(jobId, onComplete);
}

void CloudAPI::killSimulation(const std::string &jobId, const std::string &simulationId,
                              const ResultDone<SimulationAbortState> &onComplete)
{
    m_impl->killSimulation(jobId, simulationId, onComplete);
}

void CloudAPI::archiveJob(const std::string &jobId, const ResultDone<std::list<JobDetails>> &onComplete)
{
    m_impl->archiveJob(jobId, onComplete);
}

void CloudAPI::getAccountList(const ResultDone<std::list<AccountDetails>> &onComplete)
{
    m_impl->getAccountList(onComplete);
}

void CloudAPI::getAccountBalance(const std::string &accountId, const ResultDone<AccountBalance> &onComplete)
{
    m_impl->getAccountBalance(accountId, onComplete);
}

void CloudAPI::getHpcList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete)
{
    m_impl->getHpcList(accountId, onComplete);
}

void CloudAPI::getHpcPreferenceList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete)
{
    m_impl->getHpcPreferenceList(accountId, onComplete);
}

void CloudAPI::getCurrentUserDetails(const ResultDone<UserDetails> &onComplete)
{
    m_impl->getCurrentUserDetails(onComplete);
}

void CloudAPI::modifyCurrentUserDetails(const std::string &lastName, const std::string &firstName,
                                        const std::string &companyName, const ResultDone<UserDetails> &onComplete)
{
    m_impl->modifyCurrentUserDetails(lastName, firstName, companyName, onComplete);
}

void CloudAPI::sendUserEvent(const std::string &eventType, const std::string &eventSource,
                             const std::string &eventValue, const Done &onComplete)
{
    m_impl->sendUserEvent(eventType, eventSource, eventValue, onComplete);
}

void CloudAPI::tagJob(const std::string &jobId, const std::string &tag,
                      const ResultDone<std::list<ItemTag>> &onComplete)
{
    m_impl->tagJob(jobId, tag, onComplete);
}

void CloudAPI::untagJob(const std::string &jobId, const std::string &tag,
                        const ResultDone<std::list<ItemTag>> &onComplete)
{
    m_impl->untagJob(jobId, tag, onComplete);
}

void CloudAPI::getJobTags(const std::string &jobId, const ResultDone<std::list<ItemTag>> &onComplete)
{
    m_impl->getJobTags(jobId, onComplete);
}

void CloudAPI::getAllAccountTags(const std::string &accountId, const ResultDone<std::list<ItemTag>> &onComplete)
{
    m_impl->getAllAccountTags(accountId, onComplete);
}

void CloudAPI::searchUserTags(const std::list<ItemTag> &tags, const ResultDone<std::list<JobDetails>> &onComplete)
{
    std::list<std::string> texts;
    for (const ItemTag &tag : tags)
        texts.push_back(tag.tagText);
    m_impl->searchUserTags(texts, onComplete);
}

void CloudAPI::searchUserTags(const std::list<std::string> &tags, const ResultDone<std::list<JobDetails>> &onComplete)
{
    m_impl->searchUserTags(tags, onComplete);
}

void CloudAPI::getJobFileList(const std::string &jobId, bool showAllFiles,
                              const ResultDone<std::list<CloudFile>> &onComplete)
{
    m_impl->getJobFileList(jobId, showAllFiles, onComplete);
}

void CloudAPI::getSimulationFileList(const std::string &jobId, const std::string &simulationId, bool showAllFiles,
                                     const ResultDone<std::list<CloudFile>> &onComplete)
{
    m_impl->getSimulationFileList(jobId, simulationId, showAllFiles, onComplete);
}

void CloudAPI::getUsersFileList(bool showAllFiles, const ResultDone<std::list<CloudFile>> &onComplete)
{
    m_impl->getUsersFileList(showAllFiles, onComplete);
}

void CloudAPI::deleteFile(const DeleteFileDetails &file, const ResultDone<DeleteFileDetails> &onComplete)
{
    m_impl->deleteFile(file, onComplete);
}

void CloudAPI::uploadFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                          const ResultDone<FileUploadDetails> &onComplete)
{
    m_impl->uploadFile(file, onProgress, onComplete);
}

void CloudAPI::uploadInputFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                               const ResultDone<FileUploadDetails> &onComplete)
{
    m_impl->uploadInputFile(file, onProgress, onComplete);
}

void CloudAPI::downloadFile(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                            const ResultDone<FileDownloadDetails> &onComplete)
{
    m_impl->downloadFile(file, onProgress, onComplete);
}

bool CloudAPI::cancelUpload(const FileUploadDetails &file) { return m_impl->cancelUpload(file); }

bool CloudAPI::cancelDownload(const FileDownloadDetails &file) { return m_impl->cancelDownload(file); }

void CloudAPI::subscribeToJob(const std::string &jobId, const JobMessage &onMessage, const JobMessage &onFinished)
{
    m_impl->subscribeToJob(jobId, onMessage, onFinished);
}

void CloudAPI::unsubscribeFromJob(const std::string &jobId) { m_impl->unsubscribeFromJob(jobId); }

} // namespace Velmora
