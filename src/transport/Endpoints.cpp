#include "transport/Endpoints.h"

namespace Velmora {

namespace {

// Titles are shown by hosts and stay as they are, spelling included.
constexpr Endpoint endpoints[] = {
    {RequestType::Login, "auth/login", "Error Authenticating Credentials"},
    {RequestType::RefreshToken, "auth/refresh", "Error Authenticating Credentials"},
    {RequestType::JobInit, "job/init", "Error Requesting Job ID"},
    {RequestType::JobKey, "job/key", "Error Requesting Encryption Key"},
    {RequestType::JobFilesUpload, "job/files", "Error Transferring Files", false},
    {RequestType::JobFilesDownload, "job/files", "Error Transferring Files", false},
    {RequestType::JobFilesList, "job/files/list", "Error Retrieving File List for Job"},
    {RequestType::JobFilesDelete, "job/files", "Error Transferring Files", false},
    {RequestType::JobList, "job/list", "Error Requesting Job Information"},
    {RequestType::SimulationStop, "job/simulation/stop", "Error Aboting Simulation"},
    {RequestType::JobSubmit, "job/submit", "Error Submitting Job"},
    {RequestType::AccountBalance, "account/balance", "Error Requesting Account Balance"},
    {RequestType::AccountList, "account/list", "Error Retrieving Account List"},
    {RequestType::UserDetails, "user/details", "Error Accessing User Details"},
    {RequestType::UserModify, "user/modify", "Error Modifying User Details"},
    {RequestType::JobLoad, "job/load", "Error Requesting Job Information"},
    {RequestType::JobProgress, "job/progress", "Error Requesting Job Progress"},
    {RequestType::JobStop, "job/stop", "Error Aborting Job"},
    {RequestType::JobArchive, "job/archive", "Error Archiving Job"},
    {RequestType::HasMfa, "auth/hasMFA", "Error Authenticating Credentials"},
    {RequestType::TagJob, "tag/job", "Error Editing Job Tags"},
    {RequestType::TagList, "tag/list", "Error Retrieving Tag List for Job"},
    {RequestType::TagListAccount, "tag/list/account", "Error Retrieving Tag List for Account"},
    {RequestType::TagSearch, "tag/search/job/user", "Error Searching for Tagged Jobs"},
    {RequestType::AccountBucketInformation, "account/bucketInformation", "Error Getting Account Bucket Information"},
    {RequestType::JobFilesCredentials, "job/files/credentials", "Error Getting Temp AWS Credentials"},
    {RequestType::HpcList, "account/hpc/list", "Unknown Error"},
    {RequestType::HpcPreference, "account/hpc/preference", "Unknown Error"},
    {RequestType::UserEventAdd, "user/event/add", "Error Logging User Event"},
};

} // namespace

const Endpoint *findEndpoint(RequestType type)
{
    for (const Endpoint &endpoint : endpoints) {
        if (endpoint.type == type)
            return &endpoint;
    }
    return nullptr;
}

QString errorTitle(RequestType type)
{
    const Endpoint *endpoint = findEndpoint(type);
    return QLatin1String(endpoint ? endpoint->title : "Unknown Error");
}

} // namespace Velmora
