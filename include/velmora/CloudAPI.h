/// @file CloudAPI.h
/// The library as a class. See `CloudAPI`.
#ifndef VELMORA_CLOUDAPI_H
#define VELMORA_CLOUDAPI_H

#include <velmora/Export.h>
#include <velmora/JobSubmit.h>
#include <velmora/Records.h>
#include <velmora/Version.h>

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
    /// Argument: outcome.
    using Done = std::function<void(const ApiError &)>;
    /// Arguments: outcome; the result, which is empty on failure.
    template <class Result> using ResultDone = std::function<void(const ApiError &, const Result &)>;
    /// Arguments: outcome, job id, message text.
    using JobMessage = std::function<void(const ApiError &, const std::string &, const std::string &)>;
    /// Second argument: bytes sent so far, those of the encrypted file and of the form fields around it, so
    /// that it ends a little above the size of the file; never goes back. Runs after encryption only.
    using UploadProgress = std::function<void(const FileUploadDetails &, std::int64_t)>;
    /// Second argument: encrypted bytes received so far over all pieces; never goes back.
    using DownloadProgress = std::function<void(const FileDownloadDetails &, std::int64_t)>;

    /// A session of the calling thread, signed out, for the production portal.
    CloudAPI();
    /// Drops what is in flight: no callback runs any more once this has begun.
    ~CloudAPI();
    CloudAPI(const CloudAPI &) = delete; ///< a session has one owner
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
    /// Whether the user needs a multi-factor code to sign in. Works signed out.
    void checkMFAEnabled(const std::string &emailAddress, const ResultDone<bool> &onComplete);
    /// @}

    /// @name Jobs
    /// @{

    /// The result is the id to submit a job under. The id names the job from now on: upload its files under it
    /// first, then submit.
    void generateNewJobID(const std::string &accountId, const ResultDone<std::string> &onComplete);
    /// As above, for a job that is to run on the cluster `hpcId`.
    void generateNewJobID(const std::string &accountId, const std::string &hpcId,
                          const ResultDone<std::string> &onComplete);
    /// Submits a job definition as the service's own JSON text, sent as given.
    void submitNewJob(const std::string &submissionJson, const ResultDone<JobDetails> &onComplete);
    /// Validates, then submits. An invalid job completes inside the call with code 400 and a message
    /// that lists every failed check; nothing is sent.
    void submitNewJob(const JobSubmit &job, const ResultDone<JobDetails> &onComplete);
    /// All jobs of the user.
    void getAllJobDetails(const ResultDone<std::list<JobDetails>> &onComplete);
    /// One job: what was submitted, its simulations, and the status history of all of them.
    void getJobDetails(const std::string &jobId, const ResultDone<JobDetails> &onComplete);
    /// How far each simulation of a job is, as the service last heard of it.
    void getJobProgress(const std::string &jobId, const ResultDone<JobProgress> &onComplete);
    /// Stops every simulation of a job; the result has an element for each.
    void killJob(const std::string &jobId, const ResultDone<std::list<SimulationAbortState>> &onComplete);
    /// Stops one simulation of a job; the others go on.
    void killSimulation(const std::string &jobId, const std::string &simulationId,
                        const ResultDone<SimulationAbortState> &onComplete);
    /// Takes a job out of the list. The result is the list as it is after that.
    void archiveJob(const std::string &jobId, const ResultDone<std::list<JobDetails>> &onComplete);
    /// @}

    /// @name Accounts, users, clusters
    /// @{

    /// The accounts that the user may work under.
    void getAccountList(const ResultDone<std::list<AccountDetails>> &onComplete);
    /// The account's core hours and its recent transactions.
    void getAccountBalance(const std::string &accountId, const ResultDone<AccountBalance> &onComplete);
    /// The clusters that the account may use.
    void getHpcList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete);
    /// The clusters that the account prefers.
    void getHpcPreferenceList(const std::string &accountId, const ResultDone<std::list<HpcDetails>> &onComplete);
    /// The signed-in user.
    void getCurrentUserDetails(const ResultDone<UserDetails> &onComplete);
    /// Changes the signed-in user's names; the result is the user as changed. Mind the order: the last name
    /// comes first.
    void modifyCurrentUserDetails(const std::string &lastName, const std::string &firstName,
                                  const std::string &companyName, const ResultDone<UserDetails> &onComplete);
    /// Tells the service of something that the user did, for its statistics.
    /// @param eventValue may be empty; it is then left out.
    void sendUserEvent(const std::string &eventType, const std::string &eventSource, const std::string &eventValue,
                       const Done &onComplete);
    /// @}

    /// @name Tags
    /// Every tag made or searched for here is of the type "ProjectTag". The first three hand over the job's tags
    /// as they are after the call.
    /// @{

    /// Adds a tag to a job.
    void tagJob(const std::string &jobId, const std::string &tag, const ResultDone<std::list<ItemTag>> &onComplete);
    /// Removes a tag from a job.
    void untagJob(const std::string &jobId, const std::string &tag, const ResultDone<std::list<ItemTag>> &onComplete);
    /// The tags of a job.
    void getJobTags(const std::string &jobId, const ResultDone<std::list<ItemTag>> &onComplete);
    /// The tags that are in use within an account.
    void getAllAccountTags(const std::string &accountId, const ResultDone<std::list<ItemTag>> &onComplete);
    /// As below, with the texts of `tags`; their types are ignored.
    void searchUserTags(const std::list<ItemTag> &tags, const ResultDone<std::list<JobDetails>> &onComplete);
    /// The user's jobs that carry the tags.
    void searchUserTags(const std::list<std::string> &tags, const ResultDone<std::list<JobDetails>> &onComplete);
    /// @}

    /// @name Files
    /// Files are encrypted with the job's key before they leave the machine and decrypted after they
    /// arrived. Names with a folder "/rtg/" in them are listed only when `showAllFiles` is true.
    /// @{

    /// The files of a job, those of its simulations included.
    void getJobFileList(const std::string &jobId, bool showAllFiles,
                        const ResultDone<std::list<CloudFile>> &onComplete);
    /// The files of one simulation.
    void getSimulationFileList(const std::string &jobId, const std::string &simulationId, bool showAllFiles,
                               const ResultDone<std::list<CloudFile>> &onComplete);
    /// The files of all of the user's jobs.
    void getUsersFileList(bool showAllFiles, const ResultDone<std::list<CloudFile>> &onComplete);
    /// Deletes a file in the cloud. The result is a copy of `file`, whatever the outcome. The name goes into the
    /// address as it stands: percent-encode "%", "#" and "?" in it, which would cut it short and name another file.
    void deleteFile(const DeleteFileDetails &file, const ResultDone<DeleteFileDetails> &onComplete);
    /// Encrypts a copy of the file in the temporary folder, which needs as much room, and sends it; the file itself
    /// may be changed or removed once progress is reported. Progress first, completion last; both receive the
    /// source's path and its size on disk. Code 400: the file could not be read or encrypted, or the key is unusable.
    void uploadFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                    const ResultDone<FileUploadDetails> &onComplete);
    /// As `uploadFile`, but returns only after the completion callback has run (or the `CloudAPI`
    /// was destroyed by a callback); other callbacks may run meanwhile.
    void uploadInputFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                         const ResultDone<FileUploadDetails> &onComplete);
    /// Fetches the file, piece by piece, beside its target, decrypts and joins it there. The folder is made when it is
    /// missing; it must have room for twice the file. The target appears, or is replaced, only when the download is
    /// complete: until then, and on failure, an older file of that name stays as it is. A second download to a target
    /// that is being written is refused inside the call. Code 400: a piece was missing, cut short or not encrypted with
    /// the job's key, or the disk refused; the message says which.
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
