/// @file CloudAPI.h
/// The library as a class. See `CloudAPI`.
#ifndef VELMORA_CLOUDAPI_H
#define VELMORA_CLOUDAPI_H

#include <velmora/Export.h>
#include <velmora/JobSubmit.h>
#include <velmora/Records.h>

#include <cstdint>
#include <functional>
#include <list>
#include <string>

namespace Velmora {

class CloudAPIImpl;

/// A session with the cloud simulation service.
///
/// **Threads.** The thread that constructs a `CloudAPI` owns it. Every member is called on that
/// thread and every callback runs on it, from within event processing: the application's Qt event
/// loop, or `processEvents` for an application that has none.
///
/// **Callbacks.** Operations return at once and complete later, exactly once, unless the `CloudAPI`
/// is destroyed first: then never. What the library refuses by itself (an invalid job, an upload
/// without a file) completes inside the call. An empty callback is allowed. Arguments are valid
/// until the callback returns; copy what you keep. A callback may do anything: start operations,
/// cancel, unsubscribe the job it reports on, log out, run an event loop, destroy the `CloudAPI`.
/// Operations complete in the order in which the service answers them.
///
/// **Errors.** Nothing is thrown. The first argument of every completion is an `ApiError`: below
/// 300 is success, except that 0 says that no answer came. Then, and on every failure, the result
/// is empty. No request is repeated and none has a time limit.
///
/// **Applications without Qt.** Constructing a `CloudAPI` without a `QCoreApplication` makes one,
/// which lives as long as any `CloudAPI` does. Call `processEvents` often: replies, token renewal
/// and job messages are delivered only inside it.
class VELMORA_EXPORT CloudAPI {
public:
    using Done = std::function<void(const ApiError &)>;
    template <class Result> using ResultDone = std::function<void(const ApiError &, const Result &)>;
    /// Arguments: outcome, job id, message text.
    using JobMessage = std::function<void(const ApiError &, const std::string &, const std::string &)>;
    /// Second argument: bytes of the encrypted file sent so far; never goes back.
    using UploadProgress = std::function<void(const FileUploadDetails &, std::int64_t)>;
    /// Second argument: encrypted bytes received so far over all pieces; never goes back.
    using DownloadProgress = std::function<void(const FileDownloadDetails &, std::int64_t)>;

    CloudAPI();
    /// Drops what is in flight: no callback runs any more once this has begun.
    ~CloudAPI();
    CloudAPI(const CloudAPI &) = delete;
    /// Copies the reference to the session and nothing else: both handles then name one session and
    /// both destroy it. Kept for binary compatibility; do not assign handles.
    CloudAPI &operator=(const CloudAPI &other);

    /// @name Session
    /// @{

    /// Sets the proxy of the whole process, sockets included. A kind other than 0, 1 or 2 changes
    /// nothing; kind 2 does not undo an application proxy set before.
    void applyProxy(ProxyDefinition proxy);
    /// Chooses the portal for the requests that follow; the environment variable VELMORA_API_URL
    /// (a host, optionally with a port) wins over it.
    void setAPIPortal(const PortalTarget &portal);
    /// Asks the service for a sign of life and waits for it; other callbacks may run meanwhile.
    /// @return 1 when anything came back, otherwise -1 (also when the `CloudAPI` is destroyed by a
    /// callback while waiting).
    int currentNetworkStatus();
    /// Delivers what is due, then returns. For applications without an event loop.
    void processEvents();
    /// True between a successful login or renewal and logout; false while a renewal is under way.
    bool isUserLoggedIn() const;
    /// Logs out: forgets the tokens. Nothing is sent.
    void clearActiveAccount();
    /// Signs in; the session then renews its token by itself. @param mfaCode empty when the user has
    /// no multi-factor authentication. On success `ApiError::errorMessage` holds the service's whole
    /// answer, tokens included: do not show or log it.
    void logUserIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
                   const Done &onComplete);
    void checkMFAEnabled(const std::string &emailAddress, const ResultDone<bool> &onComplete);
    /// @}

    /// @name Jobs
    /// @{

    /// The result is the id to submit a job under.
    void generateNewJobID(const std::string &accountId, const ResultDone<std::string> &onComplete);
    void generateNewJobID(const std::string &accountId, const std::string &hpcId,
                          const ResultDone<std::string> &onComplete);
    /// Submits a job definition as the service's own JSON text, sent as given.
    void submitNewJob(const std::string &submissionJson, const ResultDone<JobDetails> &onComplete);
    /// Validates, then submits. An invalid job completes inside the call with code 400 and a message
    /// that lists every failed check; nothing is sent.
    void submitNewJob(const JobSubmit &job, const ResultDone<JobDetails> &onComplete);
    void getAllJobDetails(const ResultDone<std::list<JobDetails>> &onComplete);
    void getJobDetails(const std::string &jobId, const ResultDone<JobDetails> &onComplete);
    void getJobProgress(const std::string &jobId, const ResultDone<JobProgress> &onComplete);
    void killJob(const std::string &jobId, const ResultDone<std::list<SimulationAbortState>> &onComplete);
    void killSimulation(const std::string &jobId, const std::string &simulationId,
                        const ResultDone<SimulationAbortState> &onComplete);
    /// The result is the job list as it is after archiving.
    void archiveJob(const std::string &jobId, const ResultDone<std::list<JobDetails>> &onComplete);
    /// @}

    /// @name Accounts, users, clusters
    /// @{
    void getAccountList(const ResultDone<std::list<AccountDetails>> &onComplete);
    void getAccountBalance(const std::string &accountId, const ResultDone<AccountBalance> &onComplete);
    void getHpcList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete);
    void getHpcPreferenceList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete);
    void getCurrentUserDetails(const ResultDone<UserDetails> &onComplete);
    /// Mind the order: the last name comes first.
    void modifyCurrentUserDetails(const std::string &lastName, const std::string &firstName,
                                  const std::string &companyName, const ResultDone<UserDetails> &onComplete);
    /// @param eventValue may be empty; it is then left out.
    void sendUserEvent(const std::string &eventType, const std::string &eventSource, const std::string &eventValue,
                       const Done &onComplete);
    /// @}

    /// @name Tags
    /// Every tag made or searched for here is of the type "ProjectTag".
    /// @{
    void tagJob(const std::string &jobId, const std::string &tag, const ResultDone<std::list<ItemTag>> &onComplete);
    void untagJob(const std::string &jobId, const std::string &tag, const ResultDone<std::list<ItemTag>> &onComplete);
    void getJobTags(const std::string &jobId, const ResultDone<std::list<ItemTag>> &onComplete);
    void getAllAccountTags(const std::string &accountId, const ResultDone<std::list<ItemTag>> &onComplete);
    void searchUserTags(const std::list<ItemTag> &tags, const ResultDone<std::list<JobDetails>> &onComplete);
    void searchUserTags(const std::list<std::string> &tags, const ResultDone<std::list<JobDetails>> &onComplete);
    /// @}

    /// @name Files
    /// Files are encrypted with the job's key before they leave the machine and decrypted after they
    /// arrived. Names with a folder "/rtg/" in them are listed only when `showAllFiles` is true.
    /// @{
    void getJobFileList(const std::string &jobId, bool showAllFiles,
                        const ResultDone<std::list<CloudFile>> &onComplete);
    void getSimulationFileList(const std::string &jobId, const std::string &simulationId, bool showAllFiles,
                               const ResultDone<std::list<CloudFile>> &onComplete);
    void getUsersFileList(bool showAllFiles, const ResultDone<std::list<CloudFile>> &onComplete);
    /// The result is a copy of `file`, whatever the outcome.
    void deleteFile(const DeleteFileDetails &file, const ResultDone<DeleteFileDetails> &onComplete);
    /// Progress first, completion last; both receive the source's path and its size on disk.
    void uploadFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                    const ResultDone<FileUploadDetails> &onComplete);
    /// As `uploadFile`, but returns only after the completion callback has run (or the `CloudAPI`
    /// was destroyed by a callback); other callbacks may run meanwhile.
    void uploadInputFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                         const ResultDone<FileUploadDetails> &onComplete);
    /// The target appears, or is replaced, only when the download is complete. A second download to
    /// a target that is being written is refused inside the call.
    void downloadFile(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                      const ResultDone<FileDownloadDetails> &onComplete);
    /// Ends the uploads of this file (same path, same job). Their completions run, with code 400 and
    /// the title "Upload Cancelled", before this returns. @return false when there is none.
    bool cancelUpload(const FileUploadDetails &file);
    /// Ends the download to this target, as `cancelUpload` does with "Download Cancelled".
    bool cancelDownload(const FileDownloadDetails &file);
    /// @}

    /// @name Live progress
    /// @{

    /// Follows a job. @param onMessage receives each message of the service as it stands.
    /// @param onFinished receives the job's end (code 200, after which the subscription is over) or
    /// the loss of the connection (code 400; unsubscribe, or subscribe again). A job that is
    /// subscribed already is subscribed anew; the earlier callbacks are not called again.
    void subscribeToJob(const std::string &jobId, const JobMessage &onMessage, const JobMessage &onFinished);
    /// Neither callback of the job runs any more. A job that is not subscribed is ignored.
    void unsubscribeFromJob(const std::string &jobId);
    /// @}

private:
    CloudAPIImpl *m_impl;
};

} // namespace Velmora

#endif
