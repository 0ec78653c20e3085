#pragma once

#include <QString>

namespace Velmora {

/// One code per path of the REST interface. Codes 10, 11, 30 and 31 stay unassigned.
enum class RequestType : quint32 {
    Login = 0,
    RefreshToken = 1,
    JobInit = 2,
    JobKey = 3,
    JobFilesUpload = 4,
    JobFilesDownload = 5,
    JobFilesList = 6,
    JobFilesDelete = 7,
    JobList = 8,
    SimulationStop = 9,
    JobSubmit = 12,
    AccountBalance = 13,
    AccountList = 14,
    UserDetails = 15,
    UserModify = 16,
    JobLoad = 17,
    JobProgress = 18,
    JobStop = 19,
    JobArchive = 20,
    HasMfa = 21,
    TagJob = 22,
    TagList = 23,
    TagListAccount = 24,
    TagSearch = 25,
    AccountBucketInformation = 26,
    JobFilesCredentials = 27,
    HpcList = 28,
    HpcPreference = 29,
    UserEventAdd = 32,
};

struct Endpoint {
    RequestType type;
    const char *path;  ///< below the base URL
    const char *title; ///< `ApiError::errorTitle` of a failed request
    bool json = true;  ///< announces "application/json"
};

/// The endpoint's row; null for a code that is not assigned.
const Endpoint *findEndpoint(RequestType type);

/// "Unknown Error" for a code that is not assigned.
QString errorTitle(RequestType type);

} // namespace Velmora
