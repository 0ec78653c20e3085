/// @file CloudAPIFlat.h
/// The library as plain functions, for hosts that cannot use the class `Velmora::CloudAPI`: C, and every
/// language that calls C. The header compiles as C11 and as C++17.
///
/// **Handle.** `CreateCloudAPI` makes one, `DestroyCloudAPI` ends it. Every function does nothing on a null
/// handle: no callback runs, and false, 0 or nothing is returned. `submitNewJob_Json` alone still writes its
/// trace then.
///
/// **Threads.** The thread that creates a handle owns it. Every function is called on that thread and every
/// callback runs on it, from within event processing: the host's Qt event loop, or `processEvents` for a host
/// that has none. Call `processEvents` often (every few milliseconds): answers, token renewal and job messages are
/// delivered only inside it.
///
/// **Arguments.** Texts are UTF-8 and NUL-terminated; a null text reads as empty, a null record as one whose
/// fields are empty. The host keeps what it passes and may release it when the function returns. File sizes and
/// progress are bytes.
///
/// **Callbacks.** Functions return at once and their callback runs later, exactly once, unless the handle is
/// destroyed first: then never. What the library refuses by itself (an invalid job, an upload without a file, a
/// second download to one target) completes inside the call, and so do the transfers that a cancel ends. A null
/// callback is never called. Operations complete in the order in which the service answers them. A callback may
/// do anything, destroying the handle included.
///
/// **Pointers given to a callback** (outcome, views, the texts and lists in them, JSON texts) are valid until it
/// returns, also when it destroys the handle. Copy what you keep; release nothing.
///
/// **Errors.** Nothing is thrown. The first argument of every completion is the outcome: a code below 300 is
/// success, except that 0 says that no answer came at all: treat it as a failure. The library's own refusals
/// carry 400. On failure the result is empty. No request is repeated and none has a time limit.
///
/// **Two forms.** A plain function hands results over as *views*: structures with the record's fields in the
/// record's order, texts as `const char *`. Its twin, whose name ends in `_Json`, hands them over as JSON text:
/// an outcome as `{"errorCode", "errorMessage", "errorTitle"}`, a record as an object with its fields, a list as
/// an object whose only key names it; flags in it are the strings "true" and "false". Text that is not JSON reads
/// as an empty object. In C, lists and record arguments are opaque: call the `_Json` twin there.
#ifndef VELMORA_CLOUDAPIFLAT_H
#define VELMORA_CLOUDAPIFLAT_H

#include <velmora/Export.h>
#include <velmora/Version.h>

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus

#include <velmora/JobSubmit.h>
#include <velmora/Records.h>

#include <list>

namespace Velmora {
class CloudAPI;
}

/// A session; see the head of this file.
typedef Velmora::CloudAPI VelmoraCloudAPI;
/// The portal to talk to, see `Velmora::PortalTarget`.
typedef Velmora::PortalTarget VelmoraPortalTarget;

typedef Velmora::JobSubmit VelmoraJobSubmit;
typedef Velmora::DeleteFileDetails VelmoraDeleteFileDetails;
typedef Velmora::FileDownloadDetails VelmoraFileDownloadDetails;
typedef Velmora::FileUploadDetails VelmoraFileUploadDetails;
typedef std::list<Velmora::ItemTag> VelmoraItemTags;

#define VELMORA_LIST(Element, Name) typedef std::list<Element> Name

extern "C" {

#else

typedef struct VelmoraCloudAPI VelmoraCloudAPI;
typedef int32_t VelmoraPortalTarget;
enum { VELMORA_PORTAL_TEST = 0, VELMORA_PORTAL_DEVELOPMENT = 1, VELMORA_PORTAL_PRODUCTION = 2 };

typedef struct VelmoraJobSubmit VelmoraJobSubmit;
typedef struct VelmoraDeleteFileDetails VelmoraDeleteFileDetails;
typedef struct VelmoraFileDownloadDetails VelmoraFileDownloadDetails;
typedef struct VelmoraFileUploadDetails VelmoraFileUploadDetails;
typedef struct VelmoraItemTags VelmoraItemTags;

#ifdef _MSC_VER
#define VELMORA_LIST_WORDS 2
#else
#define VELMORA_LIST_WORDS 3
#endif
/// Stands in C for any `std::list`, so that the fields behind one can be reached; it cannot be walked.
typedef struct VelmoraList {
    void *opaque[VELMORA_LIST_WORDS];
} VelmoraList;

#define VELMORA_LIST(Element, Name) typedef VelmoraList Name

#endif

/// @name Views
/// Fields mean what they mean in the record of the same name, see Records.h.
/// @{

/// The outcome of an operation.
typedef struct VelmoraApiErrorView {
    int errorCode;
    const char *errorTitle;
    const char *errorMessage;
} VelmoraApiErrorView;

/// See `Velmora::CloudFile`.
typedef struct VelmoraCloudFileView {
    const char *jobId;
    const char *fileName;
    long long fileSize; ///< bytes
    long long fileDate;
    const char *fileHash;
    bool directory;
} VelmoraCloudFileView;
VELMORA_LIST(VelmoraCloudFileView, VelmoraCloudFileList);

/// See `Velmora::FileDownloadDetails`.
typedef struct VelmoraFileDownloadDetailsView {
    const char *localFileLocation;
    VelmoraCloudFileView cloudFileDetails;
} VelmoraFileDownloadDetailsView;

/// See `Velmora::FileUploadDetails`.
typedef struct VelmoraFileUploadDetailsView {
    const char *localFileLocation;
    const char *cloudFileJobID;
    long long totalFileSize; ///< bytes, as found on disk
} VelmoraFileUploadDetailsView;

/// See `Velmora::DeleteFileDetails`.
typedef struct VelmoraDeleteFileDetailsView {
    const char *jobId;
    const char *simulationId;
    const char *fileName;
} VelmoraDeleteFileDetailsView;

/// See `Velmora::ItemTag`.
typedef struct VelmoraItemTagView {
    const char *tagText;
    const char *tagType;
} VelmoraItemTagView;
VELMORA_LIST(VelmoraItemTagView, VelmoraItemTagList);

/// See `Velmora::UserDetails`.
typedef struct VelmoraUserDetailsView {
    const char *userId;
    const char *userEmail;
    const char *surname;
    const char *forename;
    const char *companyName;
} VelmoraUserDetailsView;

/// See `Velmora::AccountAccess`.
typedef struct VelmoraAccountAccessView {
    const char *accountID;
    const char *userEmail;
    int maxCoreHourRequest; ///< core hours
    bool accountAdmin;
    bool hasMFA;
} VelmoraAccountAccessView;

/// See `Velmora::AccountDetails`.
typedef struct VelmoraAccountDetailsView {
    const char *accountId;
    const char *accountName;
    bool overageEnabled;
    bool billingEnabled;
    const char *planCode;
    long long accountCreated;
    VelmoraAccountAccessView accountAccess;
} VelmoraAccountDetailsView;
VELMORA_LIST(VelmoraAccountDetailsView, VelmoraAccountDetailsList);

/// See `Velmora::AccountTransaction`.
typedef struct VelmoraAccountTransactionView {
    const char *accountId;
    const char *transactionId;
    const char *jobId;
    const char *simulationId;
    const char *transactionType;
    const char *transactionDescription;
    const char *userEmail;
    const char *userId;
    double transactionAmount;
    long long transactionDate;
    bool invoiceSubmitted;
    bool invoiceRequired;
    bool invoiceAccepted;
} VelmoraAccountTransactionView;
VELMORA_LIST(VelmoraAccountTransactionView, VelmoraAccountTransactionList);

/// See `Velmora::AccountBalance`.
typedef struct VelmoraAccountBalanceView {
    const char *accountId;
    double coreHoursAvailable; ///< core hours
    VelmoraAccountTransactionList recentTransactions;
} VelmoraAccountBalanceView;

/// See `Velmora::JobStatusEntry`.
typedef struct VelmoraJobStatusEntryView {
    const char *jobId;
    const char *jobStatus;
    long long jobStatusDate;
} VelmoraJobStatusEntryView;
VELMORA_LIST(VelmoraJobStatusEntryView, VelmoraJobStatusList);

/// See `Velmora::SimulationStatusEntry`.
typedef struct VelmoraSimulationStatusEntryView {
    const char *jobId;
    const char *simulationId;
    const char *simulationStatus;
    long long simulationStatusDate;
} VelmoraSimulationStatusEntryView;
VELMORA_LIST(VelmoraSimulationStatusEntryView, VelmoraSimulationStatusList);

/// See `Velmora::SimulationDetails`.
typedef struct VelmoraSimulationDetailsView {
    const char *simulationId;
    const char *consoleParameters;
    VelmoraSimulationStatusList simulationStatus;
} VelmoraSimulationDetailsView;
VELMORA_LIST(VelmoraSimulationDetailsView, VelmoraSimulationDetailsList);

/// Texts; each lives as long as the list.
VELMORA_LIST(const char *, VelmoraTextList);

/// See `Velmora::JobDetails`.
typedef struct VelmoraJobDetailsView {
    const char *jobId;
    const char *accountId;
    const char *jobName;
    const char *dockerTag;
    int coresRequired;       ///< per simulation
    double coreHourEstimate; ///< core hours per simulation
    int ramEstimate;         ///< MB
    const char *mainFile;
    const char *precision;
    int numberOfParts; ///< processes per simulation
    VelmoraTextList fileDependencies;
    VelmoraTextList fileAliases;
    const char *operation;
    VelmoraSimulationDetailsList simulations;
    VelmoraJobStatusList jobStatus;
    const char *jobType;
} VelmoraJobDetailsView;
VELMORA_LIST(VelmoraJobDetailsView, VelmoraJobDetailsList);

/// See `Velmora::SimulationProgress`.
typedef struct VelmoraSimulationProgressView {
    const char *simulationId;
    int progress;
} VelmoraSimulationProgressView;
VELMORA_LIST(VelmoraSimulationProgressView, VelmoraSimulationProgressList);

/// See `Velmora::JobProgress`.
typedef struct VelmoraJobProgressView {
    const char *jobId;
    VelmoraSimulationProgressList simulationProgressList;
} VelmoraJobProgressView;

/// See `Velmora::SimulationAbortState`.
typedef struct VelmoraSimulationAbortStateView {
    const char *jobId;
    const char *simulationId;
    const char *status;
} VelmoraSimulationAbortStateView;
VELMORA_LIST(VelmoraSimulationAbortStateView, VelmoraSimulationAbortStateList);
/// @}

/// @name Callbacks
/// `bytes` is a byte count cut to its low 32 bits, so it starts anew, negative, beyond 2 GiB.
/// @{
typedef void (*VelmoraDoneCallback)(const VelmoraApiErrorView *error);
typedef void (*VelmoraFlagCallback)(const VelmoraApiErrorView *error, bool flag);
typedef void (*VelmoraTextCallback)(const VelmoraApiErrorView *error, const char *text);
typedef void (*VelmoraMessageCallback)(const VelmoraApiErrorView *error, const char *jobId, const char *message);

typedef void (*VelmoraAccountBalanceCallback)(const VelmoraApiErrorView *error,
                                              const VelmoraAccountBalanceView *balance);
typedef void (*VelmoraAccountListCallback)(const VelmoraApiErrorView *error, const VelmoraAccountDetailsList *accounts);
typedef void (*VelmoraDeleteFileCallback)(const VelmoraApiErrorView *error, const VelmoraDeleteFileDetailsView *file);
typedef void (*VelmoraDownloadCallback)(const VelmoraApiErrorView *error, const VelmoraFileDownloadDetailsView *file);
typedef void (*VelmoraDownloadProgressCallback)(const VelmoraFileDownloadDetailsView *file, int32_t bytes);
typedef void (*VelmoraFileListCallback)(const VelmoraApiErrorView *error, const VelmoraCloudFileList *files);
typedef void (*VelmoraJobDetailsCallback)(const VelmoraApiErrorView *error, const VelmoraJobDetailsView *job);
typedef void (*VelmoraJobListCallback)(const VelmoraApiErrorView *error, const VelmoraJobDetailsList *jobs);
typedef void (*VelmoraJobProgressCallback)(const VelmoraApiErrorView *error, const VelmoraJobProgressView *progress);
typedef void (*VelmoraAbortCallback)(const VelmoraApiErrorView *error, const VelmoraSimulationAbortStateView *state);
typedef void (*VelmoraAbortListCallback)(const VelmoraApiErrorView *error,
                                         const VelmoraSimulationAbortStateList *states);
typedef void (*VelmoraTagListCallback)(const VelmoraApiErrorView *error, const VelmoraItemTagList *tags);
typedef void (*VelmoraUploadCallback)(const VelmoraApiErrorView *error, const VelmoraFileUploadDetailsView *file);
typedef void (*VelmoraUploadProgressCallback)(const VelmoraFileUploadDetailsView *file, int32_t bytes);
typedef void (*VelmoraUserDetailsCallback)(const VelmoraApiErrorView *error, const VelmoraUserDetailsView *user);

typedef void (*VelmoraDoneJsonCallback)(const char *error);
/// `result`: the record, the list's wrapper, or the bare text of an operation that answers with one.
typedef void (*VelmoraJsonCallback)(const char *error, const char *result);
typedef void (*VelmoraMessageJsonCallback)(const char *error, const char *jobId, const char *message);
typedef void (*VelmoraProgressJsonCallback)(const char *file, int32_t bytes);
/// @}

/// @name Session
/// @{

/// A session of the calling thread. Makes a `QCoreApplication` when the process has none; it lives as long as
/// any session does.
/// @return the handle; the caller ends it with `DestroyCloudAPI`
VELMORA_EXPORT VelmoraCloudAPI *CreateCloudAPI(void);
/// Drops what is in flight: no callback runs any more. May be called from inside a callback. Null is ignored.
VELMORA_EXPORT void DestroyCloudAPI(VelmoraCloudAPI *api);
/// Delivers what is due, then returns. For hosts without an event loop.
VELMORA_EXPORT void processEvents(VelmoraCloudAPI *api);
/// Chooses the portal for the requests that follow: 0 test, 1 development, 2 production. The environment variable
/// VELMORA_API_URL (a host, optionally with a port) wins over it. A null `portal` changes nothing.
VELMORA_EXPORT void setAPIPortal(VelmoraCloudAPI *api, const VelmoraPortalTarget *portal);
/// True between a successful login or renewal and logout; false while a renewal is under way.
VELMORA_EXPORT bool isUserLoggedIn(VelmoraCloudAPI *api);
/// Asks the service for a sign of life and waits for it; other callbacks may run meanwhile.
/// @return 1 when anything came back, otherwise -1; 0 for a null handle
VELMORA_EXPORT int currentNetworkStatus(VelmoraCloudAPI *api);
/// Logs out: forgets the tokens. Nothing is sent.
VELMORA_EXPORT void clearActiveAccount(VelmoraCloudAPI *api);
/// Whether the user needs a multi-factor code to sign in.
VELMORA_EXPORT void checkMFAEnabled(VelmoraCloudAPI *api, const char *emailAddress, VelmoraFlagCallback onComplete);
/// Signs in; the session then renews its token by itself. Writes the line "api->logUserIn()" to standard output.
/// @param mfaCode empty when the user has no multi-factor authentication
/// @param onComplete on success the message holds the service's whole answer, tokens included: do not show or log it
VELMORA_EXPORT void logUserIn(VelmoraCloudAPI *api, const char *emailAddress, const char *password, const char *mfaCode,
                              VelmoraDoneCallback onComplete);
/// As `logUserIn`.
VELMORA_EXPORT void logUserIn_Json(VelmoraCloudAPI *api, const char *emailAddress, const char *password,
                                   const char *mfaCode, VelmoraDoneJsonCallback onComplete);
/// @}

/// @name Accounts and users
/// @{

/// Mind the order: the last name comes first. The result is the user as changed.
VELMORA_EXPORT void modifyCurrentUserDetails(VelmoraCloudAPI *api, const char *lastName, const char *firstName,
                                             const char *companyName, VelmoraUserDetailsCallback onComplete);
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
/// @}

/// @name Jobs
/// @{

/// The result is the id to submit a job under.
VELMORA_EXPORT void generateNewJobID(VelmoraCloudAPI *api, const char *accountId, VelmoraTextCallback onComplete);
/// As `generateNewJobID`; the result is the bare id, not JSON.
VELMORA_EXPORT void generateNewJobID_Json(VelmoraCloudAPI *api, const char *accountId, VelmoraJsonCallback onComplete);
/// Validates, then submits. An invalid job completes inside the call with code 400 and a message that lists every
/// failed check; nothing is sent.
VELMORA_EXPORT void submitNewJob(VelmoraCloudAPI *api, const VelmoraJobSubmit *job,
                                 VelmoraJobDetailsCallback onComplete);
/// As `submitNewJob`. First writes to standard output the body that will be submitted (an empty line for an invalid
/// job), then a line "e" for each failed check; with a null handle, too.
/// @param job the keys are those of the text constructor of `Velmora::JobSubmit`
VELMORA_EXPORT void submitNewJob_Json(VelmoraCloudAPI *api, const char *job, VelmoraJsonCallback onComplete);
/// One job: what was submitted, its simulations, and the status history of all of them.
VELMORA_EXPORT void getJobDetails(VelmoraCloudAPI *api, const char *jobId, VelmoraJobDetailsCallback onComplete);
/// As `getJobDetails`.
VELMORA_EXPORT void getJobDetails_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete);
/// All jobs of the user.
VELMORA_EXPORT void getAllJobDetails(VelmoraCloudAPI *api, VelmoraJobListCallback onComplete);
/// As `getAllJobDetails`; the list is named "jobDetailsList".
VELMORA_EXPORT void getAllJobDetails_Json(VelmoraCloudAPI *api, VelmoraJsonCallback onComplete);
/// The result is the job list as it is after archiving.
VELMORA_EXPORT void archiveJob(VelmoraCloudAPI *api, const char *jobId, VelmoraJobListCallback onComplete);
/// As `archiveJob`; the list is named "jobDetailsList".
VELMORA_EXPORT void archiveJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete);
/// Stops every simulation of a job; the result has an element for each.
VELMORA_EXPORT void killJob(VelmoraCloudAPI *api, const char *jobId, VelmoraAbortListCallback onComplete);
/// As `killJob`; the list is named "simulationAbortList", its keys are jobID, simID and status.
VELMORA_EXPORT void killJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraJsonCallback onComplete);
/// Stops one simulation of a job; the others go on.
VELMORA_EXPORT void killSimulation(VelmoraCloudAPI *api, const char *jobId, const char *simulationId,
                                   VelmoraAbortCallback onComplete);
/// As `killSimulation`; the keys are jobID, simID and status.
VELMORA_EXPORT void killSimulation_Json(VelmoraCloudAPI *api, const char *jobId, const char *simulationId,
                                        VelmoraJsonCallback onComplete);
/// How far each simulation of a job is, as the service last heard of it.
VELMORA_EXPORT void getJobProgress(VelmoraCloudAPI *api, const char *jobId, VelmoraJobProgressCallback onComplete);
/// Follows a job.
/// @param onMessage receives each message of the service as it stands, any number of times
/// @param onFinished receives the job's end (code 200, after which the subscription is over) or the loss of the
///        connection (code 400; unsubscribe, or subscribe again). A job that is subscribed already is subscribed
///        anew; the earlier callbacks are not called again.
VELMORA_EXPORT void subscribeToJob(VelmoraCloudAPI *api, const char *jobId, VelmoraMessageCallback onMessage,
                                   VelmoraMessageCallback onFinished);
/// As `subscribeToJob`; only the outcome is JSON, job id and message come as they are.
VELMORA_EXPORT void subscribeToJob_Json(VelmoraCloudAPI *api, const char *jobId, VelmoraMessageJsonCallback onMessage,
                                        VelmoraMessageJsonCallback onFinished);
/// Neither callback of the job runs any more. A job that is not subscribed is ignored.
VELMORA_EXPORT void unsubscribeFromJob(VelmoraCloudAPI *api, const char *jobId);
/// @}

/// @name Tags
/// Every tag made or searched for here is of the type "ProjectTag". The lists that the first three hand over hold
/// the job's tags after the call; as JSON they are named "itemTagList".
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
/// The user's jobs that carry the tags.
VELMORA_EXPORT void searchUserTags(VelmoraCloudAPI *api, const VelmoraItemTags *tags,
                                   VelmoraJobListCallback onComplete);
/// As `searchUserTags`; the list is named "jobDetailsList".
/// @param tags an array of strings, each of which holds a tag's own JSON text (not an array of objects)
VELMORA_EXPORT void searchUserTags_Json(VelmoraCloudAPI *api, const char *tags, VelmoraJsonCallback onComplete);
/// @}

/// @name Files
/// Files are encrypted with the job's key before they leave the machine and decrypted after they arrived. Names
/// with a folder "/rtg/" in them are listed only when `showAllFiles` is true. Lists in JSON are named "fileList".
///
/// A file passed as JSON has the keys of its record; its sizes are read as 32 bits (beyond that as 0), its flag
/// "directory" as a JSON boolean. Progress comes first, the completion last.
/// @{

/// The files of a job, those of its simulations included.
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
/// The result is a copy of `file`, whatever the outcome.
VELMORA_EXPORT void deleteFile(VelmoraCloudAPI *api, const VelmoraDeleteFileDetails *file,
                               VelmoraDeleteFileCallback onComplete);
/// Fetches `file->cloudFileDetails` into `file->localFileLocation`, which appears, or is replaced, only when the
/// download is complete. A second download to a target that is being written is refused inside the call.
/// @param onProgress encrypted bytes received so far over all pieces
VELMORA_EXPORT void downloadFile(VelmoraCloudAPI *api, const VelmoraFileDownloadDetails *file,
                                 VelmoraDownloadProgressCallback onProgress, VelmoraDownloadCallback onComplete);
/// As `downloadFile`.
VELMORA_EXPORT void downloadFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                                      VelmoraJsonCallback onComplete);
/// Sends `file->localFileLocation` into the job `file->cloudFileJobID`.
/// @param onProgress bytes of the encrypted file sent so far
VELMORA_EXPORT void uploadFile(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file,
                               VelmoraUploadProgressCallback onProgress, VelmoraUploadCallback onComplete);
/// As `uploadFile`.
VELMORA_EXPORT void uploadFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                                    VelmoraJsonCallback onComplete);
/// As `uploadFile`, but returns only after the completion has run (or a callback has destroyed the handle); other
/// callbacks may run meanwhile.
VELMORA_EXPORT void uploadInputFile(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file,
                                    VelmoraUploadProgressCallback onProgress, VelmoraUploadCallback onComplete);
/// As `uploadInputFile`.
VELMORA_EXPORT void uploadInputFile_Json(VelmoraCloudAPI *api, const char *file, VelmoraProgressJsonCallback onProgress,
                                         VelmoraJsonCallback onComplete);
/// Ends the download to this target; its completion runs, with code 400 and the title "Download Cancelled", before
/// this returns. @return false when there is none
VELMORA_EXPORT bool cancelDownload(VelmoraCloudAPI *api, const VelmoraFileDownloadDetails *file);
/// As `cancelDownload`.
VELMORA_EXPORT bool cancelDownload_Json(VelmoraCloudAPI *api, const char *file);
/// Ends the uploads of this file (same path, same job), as `cancelDownload` does with "Upload Cancelled".
VELMORA_EXPORT bool cancelUpload(VelmoraCloudAPI *api, const VelmoraFileUploadDetails *file);
/// As `cancelUpload`.
VELMORA_EXPORT bool cancelUpload_Json(VelmoraCloudAPI *api, const char *file);
/// @}

#ifdef __cplusplus
} // extern "C"
#endif

#undef VELMORA_LIST

#endif
