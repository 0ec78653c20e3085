#pragma once

namespace Velmora {

/// One path of the REST interface.
struct Endpoint {
    int code;               ///< the service's number for it
    const char *path;       ///< below the base URL
    const char *title;      ///< `ApiError::errorTitle` of a failed request
    bool json = true;       ///< announces "application/json"
    bool forTokens = false; ///< what brings the token cannot wait for it
};

/// Every path of the REST interface, a row each. The codes 10, 11, 30 and 31 are not assigned. Applications show the
/// titles, so they stay as they are, spelling included.
namespace Endpoints {

inline constexpr Endpoint Login{0, "auth/login", "Error Authenticating Credentials", true, true};
inline constexpr Endpoint RefreshToken{1, "auth/refresh", "Error Authenticating Credentials", true, true};
inline constexpr Endpoint JobInit{2, "job/init", "Error Requesting Job ID"};
inline constexpr Endpoint JobKey{3, "job/key", "Error Requesting Encryption Key"};
inline constexpr Endpoint JobFilesUpload{4, "job/files", "Error Transferring Files", false};
inline constexpr Endpoint JobFilesDownload{5, "job/files", "Error Transferring Files", false};
inline constexpr Endpoint JobFilesList{6, "job/files/list", "Error Retrieving File List for Job"};
inline constexpr Endpoint JobFilesDelete{7, "job/files", "Error Transferring Files", false};
inline constexpr Endpoint JobList{8, "job/list", "Error Requesting Job Information"};
inline constexpr Endpoint SimulationStop{9, "job/simulation/stop", "Error Aboting Simulation"};
inline constexpr Endpoint JobSubmit{12, "job/submit", "Error Submitting Job"};
inline constexpr Endpoint AccountBalance{13, "account/balance", "Error Requesting Account Balance"};
inline constexpr Endpoint AccountList{14, "account/list", "Error Retrieving Account List"};
inline constexpr Endpoint UserDetails{15, "user/details", "Error Accessing User Details"};
inline constexpr Endpoint UserModify{16, "user/modify", "Error Modifying User Details"};
inline constexpr Endpoint JobLoad{17, "job/load", "Error Requesting Job Information"};
inline constexpr Endpoint JobProgress{18, "job/progress", "Error Requesting Job Progress"};
inline constexpr Endpoint JobStop{19, "job/stop", "Error Aborting Job"};
inline constexpr Endpoint JobArchive{20, "job/archive", "Error Archiving Job"};
inline constexpr Endpoint HasMfa{21, "auth/hasMFA", "Error Authenticating Credentials"};
inline constexpr Endpoint TagJob{22, "tag/job", "Error Editing Job Tags"};
inline constexpr Endpoint TagList{23, "tag/list", "Error Retrieving Tag List for Job"};
inline constexpr Endpoint TagListAccount{24, "tag/list/account", "Error Retrieving Tag List for Account"};
inline constexpr Endpoint TagSearch{25, "tag/search/job/user", "Error Searching for Tagged Jobs"};
inline constexpr Endpoint AccountBucketInformation{26, "account/bucketInformation",
                                                   "Error Getting Account Bucket Information"};
inline constexpr Endpoint JobFilesCredentials{27, "job/files/credentials", "Error Getting Temp AWS Credentials"};
inline constexpr Endpoint HpcList{28, "account/hpc/list", "Unknown Error"};
inline constexpr Endpoint HpcPreference{29, "account/hpc/preference", "Unknown Error"};
inline constexpr Endpoint UserEventAdd{32, "user/event/add", "Error Logging User Event"};

} // namespace Endpoints

} // namespace Velmora
