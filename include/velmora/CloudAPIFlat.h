/// @file CloudAPIFlat.h
/// The library as plain functions, for applications that cannot use the class `Velmora::CloudAPI`: those in C, and
/// in every language that can call C. The header compiles as C11 and as C++17.
///
/// **Handle.** `CreateCloudAPI` makes one, `DestroyCloudAPI` destroys it. With a null handle every function does
/// nothing: no callback runs, and the result is false, 0 or nothing. The exception is `submitNewJob_Json`, which
/// still writes its trace.
///
/// **Threads.** The thread that creates a handle owns it. Call every function on that thread. Every callback runs on
/// it too: inside the thread's Qt event loop, or inside `processEvents` or `waitForEvents` where there is no event
/// loop. Call one of these often, because answers, the renewal of the token and job messages are delivered only inside
/// them. The bytes of transfers do not pass through them, so a pause between two calls does not slow transfers down.
///
/// **Arguments.** Texts are UTF-8 and NUL-terminated. A null text counts as an empty one, a null record as one with
/// empty fields. The application owns what it passes and may release it when the function has returned. File sizes and
/// progress are bytes.
///
/// **Callbacks.** A function returns at once and its callback runs later, exactly once. If the handle is destroyed
/// first, it never runs. What the library itself refuses (an invalid job, an upload without a file, a second download
/// to one target) completes inside the call, and so do the transfers that a cancel function ends. Operations of one
/// handle complete in the order in which their answers arrived. A null callback is never called. A callback may do
/// anything, including destroying the handle. It must not throw, nor leave by `longjmp`.
///
/// **Pointers given to a callback** (outcome, views, the texts and lists in them, JSON texts) are never null, and are
/// valid until the callback returns, also when it destroys the handle. Copy what you keep; release nothing.
///
/// **Errors.** Nothing is thrown. The first argument of every completion is the outcome. Codes from 1 to 299 are
/// success. Code 0 means that no whole answer came, which is a failure; `lastNetworkError` says why. The library's own
/// refusals have the code 400. On failure the result is empty, with one exception: uploads, downloads and `deleteFile`
/// always hand over the details that they were called with. No request is repeated, and none has a time limit, unless
/// `setClientOptions` says so. For what title and message hold, see `Velmora::ApiError`.
///
/// **Two forms.** A plain function hands over its result as a *view*: a structure with the record's fields in the
/// record's order, with texts as `const char *`. Its twin, whose name ends in `_Json`, hands it over as JSON text: an
/// outcome as `{"errorCode", "errorMessage", "errorTitle"}` with the code as a number, a record as an object with its
/// fields, a list as an object whose only key names the list. Flags are the strings "true" and "false". A JSON text
/// that is passed in but is not JSON counts as an empty object.
///
/// **C.** Lists and record arguments are opaque in C: call the `_Json` twin. `checkMFAEnabled` has none, and neither
/// have the functions without a callback that take no record; they need none. Callbacks take no pointer of the
/// application's own: inside one, `currentCloudAPI` gives the handle, and `userData` what you keep with it.
#ifndef VELMORA_CLOUDAPIFLAT_H
#define VELMORA_CLOUDAPIFLAT_H

#include <velmora/CloudAPIFlatTypes.h>
#include <velmora/Export.h>
#include <velmora/Version.h>

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// @name Session
/// @{

/// Makes a session that the calling thread owns, signed out, for the production portal. If the process has no
/// `QCoreApplication`, one is made, which lives as long as any session does.
/// @return the handle; the caller destroys it with `DestroyCloudAPI`
VELMORA_EXPORT VelmoraCloudAPI *CreateCloudAPI(void);
/// Aborts what is in flight and destroys the session. No callback runs any more. May be called from inside a callback.
/// A null handle is ignored.
VELMORA_EXPORT void DestroyCloudAPI(VelmoraCloudAPI *api);
/// Keeps a pointer of the application's own with the handle, null at first. The library does not use it.
VELMORA_EXPORT void setUserData(VelmoraCloudAPI *api, void *data);
/// @return what `setUserData` was given last; null for a null handle
VELMORA_EXPORT void *userData(VelmoraCloudAPI *api);
/// The handle whose callback is running on this thread: with callbacks inside each other, the innermost one's.
/// @return null outside callbacks, and in a callback that has destroyed its handle
VELMORA_EXPORT VelmoraCloudAPI *currentCloudAPI(void);
/// Runs the callbacks that are due, then returns; it never waits. For applications without an event loop: see the head
/// of this file for how often to call it.
VELMORA_EXPORT void processEvents(VelmoraCloudAPI *api);
/// As `processEvents`, but if nothing is due, it first waits for something to happen. The wait takes no processor time.
/// The call returns as soon as something was handled: a callback ran, or the library did a step that leads to one. So
/// check your own condition and call it again: `while (!finished) waitForEvents(api, 1000);`
/// @param milliseconds how long to wait at most; 0 or less does not wait
/// @return true if something was handled before the time was over; false, at once, for a null handle
VELMORA_EXPORT bool waitForEvents(VelmoraCloudAPI *api, int milliseconds);
/// Sets the options of what follows: see `Velmora::ClientOptions`. Requests, transfers and subscriptions that are under
/// way keep theirs. Null sets the default ones.
VELMORA_EXPORT void setClientOptions(VelmoraCloudAPI *api, const VelmoraClientOptions *options);
/// As `setClientOptions`.
/// @param options an object with any of these keys:
///        - "robust": true starts from what suits most applications, see `Velmora::ClientOptions::robust`.
///          Otherwise all start as false, 0 and empty.
///        - "keepAlive": true or false
///        - "answerTimeout", "stallTimeout": seconds, 0 for ever
///        - "transferRetries": a number
///        - "uploadBytesPerSecond", "downloadBytesPerSecond": bytes, 0 for no limit
///        - "connectionsPerHost": a number, 0 for the library's choice
///        - "caFile": the path of a file in PEM form
///
///        A key that is missing, or whose value has another type, keeps what it starts as. Each call sets all options.
VELMORA_EXPORT void setClientOptions_Json(VelmoraCloudAPI *api, const char *options);
/// Sets the proxy of the whole process, sockets included, for all handles: see `Velmora::ProxyDefinition`. A proxy type
/// other than 0, 1 or 2 changes nothing, and neither does a null `proxy`. Type 2 does not replace a proxy that was set
/// before with 0 or 1.
VELMORA_EXPORT void applyProxy(VelmoraCloudAPI *api, const VelmoraProxyDefinition *proxy);
/// As `applyProxy`. Without a "proxyType" nothing changes.
/// @param proxy an object with the keys proxyType (0 SOCKS 5, 1 HTTP, 2 the system's configuration), proxyHost,
///        proxyPort, proxyUser, proxyPassword
VELMORA_EXPORT void applyProxy_Json(VelmoraCloudAPI *api, const char *proxy);
/// Chooses the portal for the requests and subscriptions that follow: 0 test, 1 development, 2 production. The
/// environment variable VELMORA_API_URL (a host, optionally with a port) takes precedence. A null `portal` changes
/// nothing.
VELMORA_EXPORT void setAPIPortal(VelmoraCloudAPI *api, const VelmoraPortalTarget *portal);
/// Whether the latest sign-in or renewal has ended without a refusal, which includes one that got no answer (code 0).
/// False before the first sign-in, during a sign-in or renewal, after a refused one, and after `clearActiveAccount`.
/// With the option "keepAlive" it stays true during a renewal. The outcome of `logUserIn` tells whether a sign-in
/// succeeded, and `onSessionChanged` what became of the session since.
VELMORA_EXPORT bool isUserLoggedIn(VelmoraCloudAPI *api);
/// Sends a request to the service and waits for the answer, without a time limit. Other callbacks may run meanwhile.
/// @return 1 if an answer with a body came, whatever its status; otherwise -1; 0 for a null handle
VELMORA_EXPORT int currentNetworkStatus(VelmoraCloudAPI *api);
/// Signs out: forgets the tokens, and the keys and addresses of the user's transfers; ends all subscriptions. Nothing
/// is sent.
VELMORA_EXPORT void clearActiveAccount(VelmoraCloudAPI *api);
/// The result tells whether the user needs a multi-factor code to sign in. Works signed out.
VELMORA_EXPORT void checkMFAEnabled(VelmoraCloudAPI *api, const char *emailAddress, VelmoraFlagCallback onComplete);
/// Signs in. The session then renews its token by itself, shortly before it expires: see
/// `Velmora::CloudAPI::logUserIn`. Writes the line "api->logUserIn()" to standard output.
/// @param mfaCode digits; empty if the user has no multi-factor authentication
/// @param onComplete on success the message holds the service's whole answer, tokens included: do not show or log it
VELMORA_EXPORT void logUserIn(VelmoraCloudAPI *api, const char *emailAddress, const char *password, const char *mfaCode,
                              VelmoraDoneCallback onComplete);
/// As `logUserIn`.
VELMORA_EXPORT void logUserIn_Json(VelmoraCloudAPI *api, const char *emailAddress, const char *password,
                                   const char *mfaCode, VelmoraDoneJsonCallback onComplete);
/// Signs in with the refresh token of an earlier sign-in, so that a one-time code is typed once: the member
/// "refreshToken" of the JSON object that is the message of a successful `logUserIn`. It completes as that does.
/// Whoever was signed in counts as somebody else.
VELMORA_EXPORT void resumeSession(VelmoraCloudAPI *api, const char *refreshToken, VelmoraDoneCallback onComplete);
/// As `resumeSession`.
VELMORA_EXPORT void resumeSession_Json(VelmoraCloudAPI *api, const char *refreshToken,
                                       VelmoraDoneJsonCallback onComplete);
/// Sets the callback that is notified of sign-ins, renewals and sign-outs; it replaces the one before, and a null one
/// ends that. It never runs inside a call. VELMORA_SESSION_SIGNED_IN comes right after the completion of the sign-in.
VELMORA_EXPORT void onSessionChanged(VelmoraCloudAPI *api, VelmoraSessionCallback callback);
/// Why the last code 0 was one, as a sentence for an engineer: refused, unknown host, certificate not trusted, no
/// answer in time, cut … It names the host, and holds no token. Empty before the first.
/// @return valid until the next call with this handle; null for a null handle
VELMORA_EXPORT const char *lastNetworkError(VelmoraCloudAPI *api);
/// @}

/// @name Accounts and users
/// @{

/// Changes the signed-in user's names. Note the order: the last name comes first. The result is the user after the
/// change.
VELMORA_EXPORT void modifyCurrentUserDetails(VelmoraCloudAPI *api, const char *lastName, const char *firstName,
                                             const char *companyName, VelmoraUserDetailsCallback onComplete);
/// As `modifyCurrentUserDetails`.
VELMORA_EXPORT void modifyCurrentUserDetails_Json(VelmoraCloudAPI *api, const char *lastName, const char *firstName,
                                                  const char *companyName, VelmoraJsonCallback onComplete);
/// The signed-in user.
VELMORA_EXPORT void getCurrentUserDetails(VelmoraCloudAPI *api, VelmoraUserDetailsCallback onComplete);
/// As `getCurrentUserDetails`.
VELMORA_EXPORT void getCurrentUserDetails_Json(VelmoraCloudAPI *api, VelmoraJsonCallback onComplete);
/// The accounts that the user may work under.
VELMORA_EXPORT void getAccountList(VelmoraCloudAPI *api, VelmoraAccountListCallback onComplete);
/// As `getAccountList`; the list is named "accountDetailsList".
VELMORA_EXPORT void getAccountList_Json(VelmoraCloudAPI *api, VelmoraJsonCallback onComplete);
/// The account's core hours and its recent transactions.
VELMORA_EXPORT void getAccountBalance(VelmoraCloudAPI *api, const char *accountId,
                                      VelmoraAccountBalanceCallback onComplete);
/// As `getAccountBalance`; the result has the keys accountId, coreHoursAvailable and recentTransactions, which is an
/// array.
VELMORA_EXPORT void getAccountBalance_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete);
/// The clusters that the account may use.
VELMORA_EXPORT void getHpcList(VelmoraCloudAPI *api, const char *accountId, VelmoraHpcListCallback onComplete);
/// As `getHpcList`; the list is named "hpcDetailsList".
VELMORA_EXPORT void getHpcList_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete);
/// The clusters that the account prefers.
VELMORA_EXPORT void getHpcPreferenceList(VelmoraCloudAPI *api, const char *accountId,
                                         VelmoraHpcListCallback onComplete);
/// As `getHpcPreferenceList`; the list is named "hpcDetailsList".
VELMORA_EXPORT void getHpcPreferenceList_Json(VelmoraCloudAPI *api, const char *accountId,
                                              VelmoraJsonCallback onComplete);
/// Reports to the service something that the user did, for its statistics.
/// @param eventValue left out of the request if empty
VELMORA_EXPORT void sendUserEvent(VelmoraCloudAPI *api, const char *eventType, const char *eventSource,
                                  const char *eventValue, VelmoraDoneCallback onComplete);
/// As `sendUserEvent`.
VELMORA_EXPORT void sendUserEvent_Json(VelmoraCloudAPI *api, const char *eventType, const char *eventSource,
                                       const char *eventValue, VelmoraDoneJsonCallback onComplete);
/// @}

/// @name Jobs
/// @{

/// Reserves an id for a new job; the result is the id. Upload the job's files under it first, then submit the job with
/// it.
VELMORA_EXPORT void generateNewJobID(VelmoraCloudAPI *api, const char *accountId, VelmoraTextCallback onComplete);
/// As `generateNewJobID`; the result is the bare id, not JSON.
VELMORA_EXPORT void generateNewJobID_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete);
/// As `generateNewJobID`, for a job that is to run on the cluster `hpcId`.
VELMORA_EXPORT void generateNewJobIDForHpc(VelmoraCloudAPI *api, const char *accountId, const char *hpcId,
                                           VelmoraTextCallback onComplete);
/// As `generateNewJobIDForHpc`; the result is the bare id, not JSON.
VELMORA_EXPORT void generateNewJobIDForHpc_Json(VelmoraCloudAPI *api, const char *accountId, const char *hpcId,
                                                VelmoraJsonCallback onComplete);
/// Validates, then submits. An invalid job completes inside the call with code 400 and a message that lists every
/// failed check; nothing is sent. After code 0 the service may have received the job all the same: `getJobDetails`
/// tells, with the job's id.
VELMORA_EXPORT void submitNewJob(VelmoraCloudAPI *api, const VelmoraJobSubmit *job,
                                 VelmoraJobDetailsCallback onComplete);
/// As `submitNewJob`. First it writes to standard output the body that will be submitted (an empty line for an invalid
/// job) and a line "e" for each failed check. It writes them with a null handle too.
/// @param job an object with the keys that the text constructor of `Velmora::JobSubmit` reads
VELMORA_EXPORT void submitNewJob_Json(VelmoraCloudAPI *api, const char *job, VelmoraJsonCallback onComplete);
/// One job: what was submitted, its simulations, and the status history of all of them.
VELMORA_EXPORT void getJobDetails(VelmoraCloudAPI *api, const char *jobId, VelmoraJobDetailsCallback onComplete);
/// As `getJobDetails`.
VELMORA_EXPORT void getJobDetails_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete);
/// All jobs of the user.
VELMORA_EXPORT void getAllJobDetails(VelmoraCloudAPI *api, VelmoraJobListCallback onComplete);
/// As `getAllJobDetails`; the list is named "jobDetailsList".
VELMORA_EXPORT void getAllJobDetails_Json(VelmoraCloudAPI *api, VelmoraJsonCallback onComplete);
/// Archives a job. The result is the list of jobs that the service answers with.
VELMORA_EXPORT void archiveJob(VelmoraCloudAPI *api, const char *jobId, VelmoraJobListCallback onComplete);
/// As `archiveJob`; the list is named "jobDetailsList".
VELMORA_EXPORT void archiveJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete);
/// Stops all simulations of a job. The result has one element for each.
VELMORA_EXPORT void killJob(VelmoraCloudAPI *api, const char *jobId, VelmoraAbortListCallback onComplete);
/// As `killJob`; the list is named "simulationAbortList", and its elements have the keys jobID, simID and status.
VELMORA_EXPORT void killJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete);
/// Stops one simulation of a job; the others go on.
VELMORA_EXPORT void killSimulation(VelmoraCloudAPI *api, const char *jobId, const char *simulationId,
                                   VelmoraAbortCallback onComplete);
/// As `killSimulation`; the result has the keys jobID, simID and status.
VELMORA_EXPORT void killSimulation_Json(VelmoraCloudAPI *api, const char *jobId, const char *simulationId,
                                        VelmoraJsonCallback onComplete);
/// The progress of each simulation of a job, as last reported to the service.
VELMORA_EXPORT void getJobProgress(VelmoraCloudAPI *api, const char *jobId, VelmoraJobProgressCallback onComplete);
/// As `getJobProgress`; the result has the keys jobId and simulationProgressList, which is an array of objects with the
/// keys simulationId and progress.
VELMORA_EXPORT void getJobProgress_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete);
/// Subscribes to the messages that the service sends about a job. Subscribing a job again ends the earlier
/// subscription, whose callbacks are then not called any more.
///
/// A job that failed or was stopped is not reported to `onFinished`, and neither is one whose connection stays silent.
/// `followJob` reports every end.
/// @param onMessage receives each message unchanged, any number of times, with code 200, or 400 for an empty one. A
///        failed or stopped job is such a message.
/// @param onFinished receives the message of a finished job, with code 200, and the subscription ends; or the loss of
///        the connection, with code 400, after which no message comes until you subscribe again
VELMORA_EXPORT void subscribeToJob(VelmoraCloudAPI *api, const char *jobId, VelmoraMessageCallback onMessage,
                                   VelmoraMessageCallback onFinished);
/// As `subscribeToJob`. Only the outcome is JSON; job id and message are passed unchanged.
VELMORA_EXPORT void subscribeToJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraMessageJsonCallback onMessage,
                                        VelmoraMessageJsonCallback onFinished);
/// Ends the subscription: neither of its callbacks runs any more. Does nothing if there is none.
VELMORA_EXPORT void unsubscribeFromJob(VelmoraCloudAPI *api, const char *jobId);
/// Follows a job to its end, over lost connections, a service that does not answer, renewals of the token, a machine
/// that sleeps, days without news. What fails is repeated, with pauses up to 30 s, without an end. Following a job
/// again ends the earlier following, whose callbacks are then not called any more. A subscription of the same job is
/// not disturbed.
/// @param onUpdate the progress of all simulations that are known so far, whenever it has grown. A value never
///        decreases.
/// @param onEnd    runs once, after the last update. Code 200, title "Job Finished": the job has finished. Code 400,
///        title "Job Failed", "Job Stopped" or "Job Archived": it has ended in that way. The received job then is as it
///        was after its end. Title "Error Following Job", with an empty job: the job may go on, but its end cannot be
///        known, because the service refuses its details again and again (the code and message are the service's), or
///        the user signed out (code 400).
VELMORA_EXPORT void followJob(VelmoraCloudAPI *api, const char *jobId, VelmoraJobUpdateCallback onUpdate,
                              VelmoraJobDetailsCallback onEnd);
/// As `followJob`. The progress has the keys jobId and simulationProgressList, whose elements have simulationId and
/// progress; the job that `onEnd` receives is as in `getJobDetails_Json`.
VELMORA_EXPORT void followJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraUpdateJsonCallback onUpdate,
                                   VelmoraJsonCallback onEnd);
/// Ends the following: neither of its callbacks runs any more. The job goes on. Does nothing if the job is not
/// followed.
VELMORA_EXPORT void stopFollowing(VelmoraCloudAPI *api, const char *jobId);
/// @}

/// @name Tags
/// All tags that these functions make or search for have the type "ProjectTag". The result of the first three, and of
/// their twins, is the list of the job's tags after the operation. As JSON it is named "itemTagList".
/// @{

/// The tags of a job.
VELMORA_EXPORT void getJobTags(VelmoraCloudAPI *api, const char *jobId, VelmoraTagListCallback onComplete);
/// As `getJobTags`.
VELMORA_EXPORT void getJobTags_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete);
/// Adds a tag to a job.
VELMORA_EXPORT void tagJob(VelmoraCloudAPI *api, const char *jobId, const char *tag, VelmoraTagListCallback onComplete);
/// As `tagJob`.
VELMORA_EXPORT void tagJob_Json(VelmoraCloudAPI *api, const char *jobId, const char *tag,
                                VelmoraJsonCallback onComplete);
/// Removes a tag from a job.
VELMORA_EXPORT void untagJob(VelmoraCloudAPI *api, const char *jobId, const char *tag,
                             VelmoraTagListCallback onComplete);
/// As `untagJob`.
VELMORA_EXPORT void untagJob_Json(VelmoraCloudAPI *api, const char *jobId, const char *tag,
                                  VelmoraJsonCallback onComplete);
/// The tags that are in use within an account.
VELMORA_EXPORT void getAllAccountTags(VelmoraCloudAPI *api, const char *accountId, VelmoraTagListCallback onComplete);
/// As `getAllAccountTags`; the list is named "itemTagList".
VELMORA_EXPORT void getAllAccountTags_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete);
/// The user's jobs that carry the tags.
VELMORA_EXPORT void searchUserTags(VelmoraCloudAPI *api, const VelmoraItemTags *tags,
                                   VelmoraJobListCallback onComplete);
/// As `searchUserTags`; the list is named "jobDetailsList".
/// @param tags an array of strings, each of which holds a tag's own JSON text (not an array of objects)
VELMORA_EXPORT void searchUserTags_Json(VelmoraCloudAPI *api, const char *tags, VelmoraJsonCallback onComplete);
/// @}

/// @name Files
/// Files are encrypted with the job's key before they leave this machine, and decrypted after they have arrived. A list
/// contains files whose name has the folder "/rtg/" in it only if `showAllFiles` is true. As JSON it is named
/// "fileList". Any number of transfers may be started at once: they take turns.
///
/// A file that is passed as JSON has the keys of its record. Its sizes are read as 32 bits (a larger one as 0), its
/// flag "directory" as a JSON boolean. All progress calls come before the completion.
/// @{

/// The files of a job, including those of its simulations.
VELMORA_EXPORT void getJobFileList(VelmoraCloudAPI *api, const char *jobId, bool showAllFiles,
                                   VelmoraFileListCallback onComplete);
/// As `getJobFileList`.
VELMORA_EXPORT void getJobFileList_Json(VelmoraCloudAPI *api, const char *jobId, bool showAllFiles,
                                        VelmoraJsonCallback onComplete);
/// The files of one simulation.
VELMORA_EXPORT void getSimulationFileList(VelmoraCloudAPI *api, const char *jobId, const char *simulationId,
                                          bool showAllFiles, VelmoraFileListCallback onComplete);
/// As `getSimulationFileList`.
VELMORA_EXPORT void getSimulationFileList_Json(VelmoraCloudAPI *api, const char *jobId, const char *simulationId,
                                               bool showAllFiles, VelmoraJsonCallback onComplete);
/// The files of all of the user's jobs.
VELMORA_EXPORT void getUsersFileList(VelmoraCloudAPI *api, bool showAllFiles, VelmoraFileListCallback onComplete);
/// As `getUsersFileList`.
VELMORA_EXPORT void getUsersFileList_Json(VelmoraCloudAPI *api, bool showAllFiles, VelmoraJsonCallback onComplete);
/// Deletes a file in the cloud: the one that is named, or none. Give the name as it is listed; the library encodes it.
/// A name with a part "." or ".." is refused inside the call with code 400.
VELMORA_EXPORT void deleteFile(VelmoraCloudAPI *api, const VelmoraDeleteFileDetails *file,
                               VelmoraDeleteFileCallback onComplete);
/// As `deleteFile`.
/// @param file an object with the keys jobId and fileName, the name as it is listed; or with the key simulationId as
///        well, and the name below that simulation
VELMORA_EXPORT void deleteFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraJsonCallback onComplete);
/// Fetches `file->cloudFileDetails` into `file->localFileLocation`. The target is created or replaced only when the
/// download is complete; until then, and on failure, an older file of that name stays as it is. Code 400 inside the
/// call: a download to the same target is already running.
/// @param onProgress encrypted bytes received so far. All are received when the value reaches the file's listed size;
///        the work that remains until the completion is done on this machine and reports no progress.
/// @param onComplete on success the title is "Download Success"
VELMORA_EXPORT void downloadFile(VelmoraCloudAPI *api, const VelmoraFileDownloadDetails *file,
                                 VelmoraDownloadProgressCallback onProgress, VelmoraDownloadCallback onComplete);
/// As `downloadFile`.
VELMORA_EXPORT void downloadFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                                      VelmoraJsonCallback onComplete);
/// Sends `file->localFileLocation` into the job `file->cloudFileJobID`.
/// @param onProgress bytes sent so far, of the encrypted file and the form fields around it
VELMORA_EXPORT void uploadFile(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file,
                               VelmoraUploadProgressCallback onProgress, VelmoraUploadCallback onComplete);
/// As `uploadFile`.
VELMORA_EXPORT void uploadFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                                    VelmoraJsonCallback onComplete);
/// As `uploadFile`, but returns only after the completion has run, or after a callback has destroyed the handle. Other
/// callbacks may run meanwhile.
VELMORA_EXPORT void uploadInputFile(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file,
                                    VelmoraUploadProgressCallback onProgress, VelmoraUploadCallback onComplete);
/// As `uploadInputFile`.
VELMORA_EXPORT void uploadInputFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                                         VelmoraJsonCallback onComplete);
/// Cancels the download to this target. Before this returns, its completion runs with code 400 and the title "Download
/// Cancelled".
/// @return false if no such download is running, or its file is in its place already: then it completes as usual
VELMORA_EXPORT bool cancelDownload(VelmoraCloudAPI *api, const VelmoraFileDownloadDetails *file);
/// As `cancelDownload`.
VELMORA_EXPORT bool cancelDownload_Json(VelmoraCloudAPI *api, const char *file);
/// Cancels the uploads of this file (same path, same job), in the same way, with the title "Upload Cancelled".
/// @return false if no such upload is running
VELMORA_EXPORT bool cancelUpload(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file);
/// As `cancelUpload`.
VELMORA_EXPORT bool cancelUpload_Json(VelmoraCloudAPI *api, const char *file);
/// @}

#ifdef __cplusplus
} // extern "C"
#endif

#endif
