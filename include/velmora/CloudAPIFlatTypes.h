/// @file CloudAPIFlatTypes.h
/// What the functions of CloudAPIFlat.h take and hand over: the handle, views of the records, the types of the
/// callbacks. An application includes CloudAPIFlat.h. This header, too, compiles as C11 and as C++17.
#ifndef VELMORA_CLOUDAPIFLATTYPES_H
#define VELMORA_CLOUDAPIFLATTYPES_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus

#include <velmora/ClientOptions.h>
#include <velmora/JobSubmit.h>
#include <velmora/Records.h>

#include <list>

namespace Velmora {
class CloudAPI;
}

/// A session: what a handle points to.
typedef Velmora::CloudAPI VelmoraCloudAPI;
/// The portal to talk to, see `Velmora::PortalTarget`.
typedef Velmora::PortalTarget VelmoraPortalTarget;

typedef Velmora::ClientOptions VelmoraClientOptions;
typedef Velmora::ProxyDefinition VelmoraProxyDefinition;
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

typedef struct VelmoraClientOptions VelmoraClientOptions;
typedef struct VelmoraProxyDefinition VelmoraProxyDefinition;
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
/// Takes the place of any `std::list` in C, so that the fields after one have their right offset. Its elements
/// cannot be reached.
typedef struct VelmoraList {
    void *opaque[VELMORA_LIST_WORDS];
} VelmoraList;

#define VELMORA_LIST(Element, Name) typedef VelmoraList Name

#endif

/// @name Views
/// The fields mean what they mean in the record of the same name, see Records.h.
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

/// See `Velmora::HpcDetails`.
typedef struct VelmoraHpcDetailsView {
    const char *hpcId;
    bool hpcActive; ///< accepts jobs
    const char *hpcCloud;
    const char *hpcClusterName;
    const char *hpcDescription;
    const char *hpcRegion;
    const char *hpcAccountBucket;
} VelmoraHpcDetailsView;
VELMORA_LIST(VelmoraHpcDetailsView, VelmoraHpcDetailsList);

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

/// Texts. Each is valid as long as the list.
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
/// `bytes` is a byte count of which only the low 32 bits are passed: beyond 2 GiB it wraps around to negative values.
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
typedef void (*VelmoraHpcListCallback)(const VelmoraApiErrorView *error, const VelmoraHpcDetailsList *clusters);
typedef void (*VelmoraJobDetailsCallback)(const VelmoraApiErrorView *error, const VelmoraJobDetailsView *job);
typedef void (*VelmoraJobListCallback)(const VelmoraApiErrorView *error, const VelmoraJobDetailsList *jobs);
typedef void (*VelmoraJobProgressCallback)(const VelmoraApiErrorView *error, const VelmoraJobProgressView *progress);
typedef void (*VelmoraJobUpdateCallback)(const VelmoraJobProgressView *progress);
typedef void (*VelmoraAbortCallback)(const VelmoraApiErrorView *error, const VelmoraSimulationAbortStateView *state);
typedef void (*VelmoraAbortListCallback)(const VelmoraApiErrorView *error,
                                         const VelmoraSimulationAbortStateList *states);
typedef void (*VelmoraTagListCallback)(const VelmoraApiErrorView *error, const VelmoraItemTagList *tags);
typedef void (*VelmoraUploadCallback)(const VelmoraApiErrorView *error, const VelmoraFileUploadDetailsView *file);
typedef void (*VelmoraUploadProgressCallback)(const VelmoraFileUploadDetailsView *file, int32_t bytes);
typedef void (*VelmoraUserDetailsCallback)(const VelmoraApiErrorView *error, const VelmoraUserDetailsView *user);

typedef void (*VelmoraDoneJsonCallback)(const char *error);
/// `result`: the record, the object that names the list, or the bare text of an operation whose result is a text.
typedef void (*VelmoraJsonCallback)(const char *error, const char *result);
typedef void (*VelmoraUpdateJsonCallback)(const char *progress);
typedef void (*VelmoraMessageJsonCallback)(const char *error, const char *jobId, const char *message);
typedef void (*VelmoraProgressJsonCallback)(const char *file, int32_t bytes);
/// `change`: see `Velmora::SessionChange`; in C one of VELMORA_SESSION_….
typedef void (*VelmoraSessionCallback)(int change);
/// What can happen to a session.
enum {
    VELMORA_SESSION_SIGNED_IN = 0,
    VELMORA_SESSION_RENEWED = 1,
    VELMORA_SESSION_RENEWAL_FAILED = 2, ///< there is no token any more: sign in again
    VELMORA_SESSION_SIGNED_OUT = 3
};
/// @}

#ifdef __cplusplus
} // extern "C"
#endif

#undef VELMORA_LIST

#endif
