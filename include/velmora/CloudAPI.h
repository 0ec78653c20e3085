/// @file CloudAPI.h
/// The library as a class. See `CloudAPI`.
#ifndef VELMORA_CLOUDAPI_H
#define VELMORA_CLOUDAPI_H

#include <velmora/Callbacks.h>
#include <velmora/ClientOptions.h>
#include <velmora/Export.h>
#include <velmora/JobSubmit.h>
#include <velmora/Records.h>
#include <velmora/Version.h>

#include <list>
#include <string>

namespace Velmora {

class CloudAPIImpl;

/// A session with the cloud simulation service.
///
/// **Threads.** The thread that constructs a `CloudAPI` owns it. Call every member on that thread. Every
/// callback runs on it too: inside the thread's Qt event loop, or inside `processEvents` where there is
/// no event loop.
///
/// **Callbacks.** An operation returns at once and completes later, exactly once. If the `CloudAPI` is
/// destroyed first, it never completes. What the library itself refuses (an invalid job, an upload
/// without a file) completes inside the call. Operations of one session complete in the order in which
/// their answers arrived. The arguments of a callback are valid until it returns; copy what you keep. An
/// empty callback is allowed. A callback may do anything: start operations, cancel, unsubscribe the job
/// it reports on, log out, run an event loop, destroy the `CloudAPI`. It must not throw.
///
/// **Errors.** Nothing is thrown. The first argument of every completion is an `ApiError`; `succeeded`
/// tells whether it is a success. Code 0 means that no answer came, or none that is whole: one that was cut
/// or damaged, or is larger than 256 MiB. That is a failure; `lastNetworkError` says why. On failure the result is
/// empty, with one exception: uploads, downloads and `deleteFile` always hand over the details that they were called
/// with. No request is repeated, and none has a time limit, unless `setClientOptions` says so.
///
/// **Applications without Qt.** If the process has no `QCoreApplication`, the constructor makes one. It
/// lives as long as any `CloudAPI` does. Call `processEvents` often, because answers, the renewal of the
/// token and job messages are delivered only inside it. The bytes of transfers do not pass through it, so
/// a pause between two calls does not slow them down.
class VELMORA_EXPORT CloudAPI {
public:
    /// @name Callback types
    /// See Callbacks.h.
    /// @{
    using Done = Velmora::Done;
    template <class Result> using ResultDone = Velmora::ResultDone<Result>;
    using JobMessage = Velmora::JobMessage;
    using JobUpdate = Velmora::JobUpdate;
    using JobEnd = Velmora::JobEnd;
    using UploadProgress = Velmora::UploadProgress;
    using DownloadProgress = Velmora::DownloadProgress;
    using SessionChanged = Velmora::SessionChanged;
    /// @}

    /// A session of the calling thread, signed out, for the production portal.
    CloudAPI();
    /// Aborts what is in flight. No callback runs once this has begun.
    ~CloudAPI();
    CloudAPI(const CloudAPI &) = delete; ///< a session has one owner
    /// Kept for binary compatibility; do not use it. It copies the pointer to the session only: both
    /// objects then refer to one session, and both destroy it.
    CloudAPI &operator=(const CloudAPI &other);

    /// @name Session
    /// @{

    /// Sets the proxy of the whole process, sockets included. A `proxyType` other than 0, 1 or 2 changes
    /// nothing. Type 2 does not replace a proxy that was set before with 0 or 1.
    void applyProxy(ProxyDefinition proxy);
    /// Sets the options of what follows. Requests, transfers and subscriptions that are under way keep theirs. The
    /// limits of bytes per second and of connections hold at once; `stallTimeout` and `caFile` for what transfers send
    /// from now on.
    void setClientOptions(const ClientOptions &options);
    /// Chooses the portal for the requests and subscriptions that follow. The environment variable
    /// VELMORA_API_URL (a host, optionally with a port) takes precedence; each request reads it anew.
    void setAPIPortal(const PortalTarget &portal);
    /// Sends a request to the service and waits for the answer, without a time limit. Other callbacks may
    /// run meanwhile.
    /// @return 1 if an answer with a body came, whatever its status; otherwise -1, also when a callback
    /// destroys the `CloudAPI` or the application quits while this waits.
    int currentNetworkStatus();
    /// Runs the callbacks that are due, then returns; it never waits. For applications without an event
    /// loop: see the head of this class for how often to call it.
    void processEvents();
    /// As above, but if nothing is due, it first waits for something to happen. The wait takes no processor time. The
    /// call returns as soon as something was handled: a callback ran, or the library did a step that leads to one. So
    /// check your own condition and call it again.
    /// @param maxWaitMilliseconds  how long to wait at most; 0 or less does not wait
    /// @return true if something was handled before the time was over
    bool processEvents(int maxWaitMilliseconds);
    /// Why the last code 0 was one, as a sentence for an engineer: refused, unknown host, certificate not trusted, no
    /// answer in time, cut … It names the host, and holds no token. Valid inside the callback that receives the code
    /// 0, and until the next one does; a renewal that gets no answer, and `currentNetworkStatus`, set it too. Empty
    /// before the first.
    std::string lastNetworkError() const;
    /// Whether the latest sign-in or renewal has ended without a refusal. That is weaker than it sounds:
    /// it includes one that got no answer (code 0) and an answer without tokens. False before the first
    /// sign-in, during a sign-in or renewal, after a refused one, and after `clearActiveAccount`. With
    /// `ClientOptions::keepAlive` it stays true during a renewal. The outcome of `logUserIn` tells whether a sign-in
    /// succeeded, and `onSessionChanged` what became of the session since.
    bool isUserLoggedIn() const;
    /// Signs out: forgets the tokens, and the keys and addresses of the user's transfers; ends all subscriptions, and
    /// the following of jobs, which reports that. Nothing is sent. A sign-in under way completes its callback and has
    /// no other effect; a renewal has none.
    void clearActiveAccount();
    /// Signs in. The session then renews its token by itself, five seconds before it expires, or as soon as the thread
    /// runs again when the machine was asleep then. During a renewal the session has no token, so requests and
    /// subscriptions that are made then are refused, and a renewal without an answer ends the session; see
    /// `ClientOptions::keepAlive`. Signing in as somebody else forgets the keys and addresses of the last user's
    /// transfers. On success `ApiError::errorMessage` holds the service's whole answer, a JSON object with the tokens:
    /// do not show or log it. Its "refreshToken" is what `resumeSession` takes.
    /// @param mfaCode digits; empty if the user has no multi-factor authentication
    void logUserIn(const std::string &emailAddress, const std::string &password, const std::string &mfaCode,
                   const Done &onComplete);
    /// Signs in with the refresh token of an earlier sign-in, so that a one-time code is typed once. It completes as
    /// `logUserIn` does, and the session renews its token with the same refresh token. Whoever was signed in counts as
    /// somebody else. Keep a refresh token as you would keep a password.
    void resumeSession(const std::string &refreshToken, const Done &onComplete);
    /// Sets the callback that is notified of sign-ins, renewals and sign-outs; it replaces the one before, and an empty
    /// one ends that. It never runs inside a call of this class. `SignedIn` comes right after the completion of the
    /// sign-in; a sign-in that fails, or brings no token, is no change.
    void onSessionChanged(const SessionChanged &callback);
    /// The result tells whether the user needs a multi-factor code to sign in. Works signed out.
    void checkMFAEnabled(const std::string &emailAddress, const ResultDone<bool> &onComplete);
    /// @}

    /// @name Jobs
    /// @{

    /// Reserves an id for a new job; the result is the id. Upload the job's files under it first, then submit
    /// the job with it.
    void generateNewJobID(const std::string &accountId, const ResultDone<std::string> &onComplete);
    /// As above, for a job that is to run on the cluster `hpcId`.
    void generateNewJobID(const std::string &accountId, const std::string &hpcId,
                          const ResultDone<std::string> &onComplete);
    /// Submits a job definition that is in the service's own JSON form. The text is sent unchanged.
    void submitNewJob(const std::string &submissionJson, const ResultDone<JobDetails> &onComplete);
    /// Validates, then submits. An invalid job completes inside the call with code 400 and a message
    /// that lists every failed check; nothing is sent. After code 0 the service may have received the job all
    /// the same: `getJobDetails` tells, with the job's id.
    void submitNewJob(const JobSubmit &job, const ResultDone<JobDetails> &onComplete);
    /// All jobs of the user.
    void getAllJobDetails(const ResultDone<std::list<JobDetails>> &onComplete);
    /// One job: what was submitted, its simulations, and the status history of all of them.
    void getJobDetails(const std::string &jobId, const ResultDone<JobDetails> &onComplete);
    /// The progress of each simulation of a job, as last reported to the service.
    void getJobProgress(const std::string &jobId, const ResultDone<JobProgress> &onComplete);
    /// Stops all simulations of a job. The result has one element for each.
    void killJob(const std::string &jobId, const ResultDone<std::list<SimulationAbortState>> &onComplete);
    /// Stops one simulation of a job; the others go on.
    void killSimulation(const std::string &jobId, const std::string &simulationId,
                        const ResultDone<SimulationAbortState> &onComplete);
    /// Archives a job. The result is the list of jobs that the service answers with.
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
    /// Changes the signed-in user's names. Note the order: the last name comes first. The result is the user
    /// after the change.
    void modifyCurrentUserDetails(const std::string &lastName, const std::string &firstName,
                                  const std::string &companyName, const ResultDone<UserDetails> &onComplete);
    /// Reports to the service something that the user did, for its statistics.
    /// @param eventValue left out of the request if empty
    void sendUserEvent(const std::string &eventType, const std::string &eventSource, const std::string &eventValue,
                       const Done &onComplete);
    /// @}

    /// @name Tags
    /// All tags that these functions make or search for have the type "ProjectTag". The result of the first
    /// three is the list of the job's tags after the operation.
    /// @{

    /// Adds a tag to a job.
    void tagJob(const std::string &jobId, const std::string &tag, const ResultDone<std::list<ItemTag>> &onComplete);
    /// Removes a tag from a job.
    void untagJob(const std::string &jobId, const std::string &tag, const ResultDone<std::list<ItemTag>> &onComplete);
    /// The tags of a job.
    void getJobTags(const std::string &jobId, const ResultDone<std::list<ItemTag>> &onComplete);
    /// The tags that are in use within an account.
    void getAllAccountTags(const std::string &accountId, const ResultDone<std::list<ItemTag>> &onComplete);
    /// As below, with the texts of `tags`. Their types are ignored.
    void searchUserTags(const std::list<ItemTag> &tags, const ResultDone<std::list<JobDetails>> &onComplete);
    /// The user's jobs that carry the tags.
    void searchUserTags(const std::list<std::string> &tags, const ResultDone<std::list<JobDetails>> &onComplete);
    /// @}

    /// @name Files
    /// Files are encrypted with the job's key before they leave this machine, and decrypted after they have
    /// arrived. A list contains files whose name has the folder "/rtg/" in it only if `showAllFiles` is true.
    /// All sizes and progress values are bytes. Any number of transfers may be started at once: they take turns.
    /// @{

    /// The files of a job, including those of its simulations.
    void getJobFileList(const std::string &jobId, bool showAllFiles,
                        const ResultDone<std::list<CloudFile>> &onComplete);
    /// The files of one simulation.
    void getSimulationFileList(const std::string &jobId, const std::string &simulationId, bool showAllFiles,
                               const ResultDone<std::list<CloudFile>> &onComplete);
    /// The files of all of the user's jobs.
    void getUsersFileList(bool showAllFiles, const ResultDone<std::list<CloudFile>> &onComplete);
    /// Deletes a file in the cloud: the one that is named, or none. Give the name as it is listed; the library encodes
    /// it. A name with a part "." or ".." is refused inside the call with code 400.
    void deleteFile(const DeleteFileDetails &file, const ResultDone<DeleteFileDetails> &onComplete);
    /// Sends a file into a job. The file is encrypted while it is sent: nothing is written, and nothing leaves this
    /// machine unencrypted. Leave the file as it is until the completion: the upload of one that grows, shrinks, is
    /// written to or removed fails. Only regular files are sent. All progress calls come before the completion. Both
    /// receive the path in native form and the size found on disk.
    /// @param onProgress  bytes sent so far, of the encrypted file and the form fields around it. The last
    ///        value is a little larger than the file; from then on the transfer waits for the confirmation of
    ///        the service.
    /// @param onComplete  receives code 400 if the file could not be read or changed, the job's key is not
    ///        usable, or the connection broke; otherwise the service's status, also of a refusal that comes
    ///        before the whole file was sent
    void uploadFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                    const ResultDone<FileUploadDetails> &onComplete);
    /// As `uploadFile`, but returns only after the completion has run, or after a callback has destroyed the
    /// `CloudAPI`. Other callbacks may run meanwhile.
    void uploadInputFile(const FileUploadDetails &file, const UploadProgress &onProgress,
                         const ResultDone<FileUploadDetails> &onComplete);
    /// Fetches a file. Its pieces are decrypted while they are received, and joined in the folder of the target,
    /// which is made if it is missing. The target is created or replaced only when the download is complete and
    /// safe on the disk; until then, and on failure, an older file of that name stays as it is. The new file
    /// takes over its permissions. Code 400 inside the call: a download to the same target is already running.
    ///
    /// The file grows in a working file beside the target, "UNCONFIRMED_DOWNLOAD.name.VELMORA", where "name" is
    /// the service's. It holds decrypted text. A download that fails leaves it, the next one of that file removes
    /// it, and so does cancelling.
    /// @param file  check a listed name with `isSafePath` before making a path from it
    /// @param onProgress  encrypted bytes received so far. All are received when the value reaches
    ///        `CloudFile::fileSize` as listed (see `hasReceivedAll`); the work that remains until the completion
    ///        is done on this machine and reports no progress.
    /// @param onComplete  on success the title is "Download Success". Code 400: a piece was missing, cut short
    ///        or not encrypted with the job's key, the connection broke, or a file could not be written. The
    ///        message gives the reason.
    void downloadFile(const FileDownloadDetails &file, const DownloadProgress &onProgress,
                      const ResultDone<FileDownloadDetails> &onComplete);
    /// Cancels the uploads of this file (same path, same job). Before this returns, their completions run with
    /// code 400 and the title "Upload Cancelled".
    /// @return false if no such upload is running
    bool cancelUpload(const FileUploadDetails &file);
    /// Cancels the download to this target, in the same way, with the title "Download Cancelled".
    /// @return false if no such download is running, or its file is in its place already: then it completes as usual
    bool cancelDownload(const FileDownloadDetails &file);
    /// @}

    /// @name Live progress
    /// @{

    /// Subscribes to the messages that the service sends about a job. Subscribing a job again ends the
    /// earlier subscription, whose callbacks are then not called any more.
    ///
    /// A job that failed or was stopped is not reported to `onFinished`, and neither is one whose connection
    /// stays silent. `followJob` reports every end.
    /// @param onMessage  receives each message unchanged, with code 200 and the title "Socket Message
    ///        Success", or code 400 for an empty one. A failed or stopped job is such a message, with today's
    ///        service one whose "message" is "Job status is FAILED" or "Job status is STOPPED".
    /// @param onFinished  receives the message of a finished job, with code 200 and the title "Simulation
    ///        Finished", and the subscription ends; or the loss of the connection, with code 400 and the title
    ///        "Unexpected Socket Disconnection", after which no message comes until you subscribe again.
    void subscribeToJob(const std::string &jobId, const JobMessage &onMessage, const JobMessage &onFinished);
    /// Ends the subscription: neither of its callbacks runs any more. Does nothing if there is none.
    void unsubscribeFromJob(const std::string &jobId);
    /// Follows a job to its end, whatever happens in between: connections that are lost, a service that restarts or
    /// does not answer, renewals of the token, a machine that sleeps, days without news. The library takes the
    /// service's messages where they come. Otherwise, and after each message that reports more than progress, it asks
    /// for the job's details, about every 15 s. What fails is repeated, with pauses up to 30 s, without an end.
    ///
    /// Following a job again ends the earlier following, whose callbacks are then not called any more. A subscription
    /// of the same job is another matter; neither disturbs the other.
    /// @param onUpdate  the progress of all simulations that are known so far, whenever it has grown. A value never
    ///        goes back. There may be none, for a job that has ended already.
    /// @param onEnd  runs once, after the last update, and never inside this call. The job has ended if the job that it
    ///        receives is not empty; it is then as the service describes it after its end:
    ///        - finished: code 200, title "Job Finished". `succeeded` is true for this one only.
    ///        - failed, stopped or archived unfinished: code 400, title "Job Failed", "Job Stopped" or "Job Archived".
    ///          The message names the status in the service's own word.
    ///
    ///        The job may still go on, but its end cannot be known, if the received job is empty. The title is then
    ///        "Error Following Job":
    ///        - the service refuses the job's details again and again, for several seconds (401, 403, 404 and other
    ///          codes from 400 to 499): its code and message
    ///        - the user signed out, or another one signed in: code 400
    void followJob(const std::string &jobId, const JobUpdate &onUpdate, const JobEnd &onEnd);
    /// Ends the following: neither of its callbacks runs any more. The job goes on. Does nothing if the job is not
    /// followed.
    void stopFollowing(const std::string &jobId);
    /// @}

private:
    friend class CloudAPIImpl;
    CloudAPIImpl *m_impl;
};

} // namespace Velmora

#endif
