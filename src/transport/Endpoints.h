#pragma once

namespace Velmora {

/// One path of the REST interface.
struct Endpoint {
    const char *path;       ///< below the base URL
    const char *title;      ///< `ApiError::errorTitle` of a failed request
    bool json = true;       ///< announces "application/json"
    bool forTokens = false; ///< what brings the token cannot wait for it
};

/// Every path of the REST interface, a row each. Applications show the titles, so they stay as they are, spelling
/// included.
namespace Endpoints {

inline constexpr Endpoint Login{"auth/login", "Error Authenticating Credentials", true, true};
inline constexpr Endpoint RefreshToken{"auth/refresh", "Error Authenticating Credentials", true, true};
inline constexpr Endpoint JobInit{"job/init", "Error Requesting Job ID"};
inline constexpr Endpoint JobKey{"job/key", "Error Requesting Encryption Key"};
inline constexpr Endpoint JobFilesUpload{"job/files", "Error Transferring Files", false};
inline constexpr Endpoint JobFilesDownload{"job/files", "Error Transferring Files", false};
inline constexpr Endpoint JobFilesList{"job/files/list", "Error Retrieving File List for Job"};
inline constexpr Endpoint JobFilesDelete{"job/files", "Error Transferring Files", false};
inline constexpr Endpoint JobList{"job/list", "Error Requesting Job Information"};
inline constexpr Endpoint SimulationStop{"job/simulation/stop", "Error Aboting Simulation"};
inline constexpr Endpoint JobSubmit{"job/submit", "Error Submitting Job"};
inline constexpr Endpoint AccountBalance{"account/balance", "Error Requesting Account Balance"};
inline constexpr Endpoint AccountList{"account/list", "Error Retrieving Account List"};
inline constexpr Endpoint UserDetails{"user/details", "Error Accessing User Details"};
inline constexpr Endpoint UserModify{"user/modify", "Error Modifying User Details"};
inline constexpr Endpoint JobLoad{"job/load", "Error Requesting Job Information"};
inline constexpr Endpoint JobProgress{"job/progress", "Error Requesting Job Progress"};
inline constexpr Endpoint JobStop{"job/stop", "Error Aborting Job"};
inline constexpr Endpoint JobArchive{"job/archive", "Error Archiving Job"};
inline constexpr Endpoint HasMfa{"auth/hasMFA", "Error Authenticating Credentials"};
inline constexpr Endpoint TagJob{"tag/job", "Error Editing Job Tags"};
inline constexpr Endpoint TagList{"tag/list", "Error Retrieving Tag List for Job"};
inline constexpr Endpoint TagListAccount{"tag/list/account", "Error Retrieving Tag List for Account"};
inline constexpr Endpoint TagSearch{"tag/search/job/user", "Error Searching for Tagged Jobs"};
inline constexpr Endpoint AccountBucketInformation{"account/bucketInformation",
                                                   "Error Getting Account Bucket Information"};
inline constexpr Endpoint JobFilesCredentials{"job/files/credentials", "Error Getting Temp AWS Credentials"};
inline constexpr Endpoint HpcList{"account/hpc/list", "Unknown Error"};
inline constexpr Endpoint HpcPreference{"account/hpc/preference", "Unknown Error"};
inline constexpr Endpoint UserEventAdd{"user/event/add", "Error Logging User Event"};

} // namespace Endpoints

} // namespace Velmora
