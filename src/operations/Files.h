#pragma once

#include "base/Log.h"
#include "transport/Call.h"

#include <velmora/Records.h>

#include <optional>
#include <string>

/// Listing and deleting files in the cloud. A listing is named by what is appended to the endpoint's URL;
/// `JobGrants::listFiles` requests it.
namespace Velmora::Files {

inline QString ofUser()
{
    VELMORA_LOG() << "in CloudAPI::getUsersFileList(): ZRV call for all users files";
    return {};
}

inline QString ofJob(const std::string &jobId)
{
    VELMORA_LOG() << "in CloudAPI::getJobFileList(): ZRV call for all users files in this job: " << toQt(jobId);
    return QStringLiteral("/%1").arg(toQt(jobId));
}

inline QString ofSimulation(const std::string &jobId, const std::string &simulationId)
{
    VELMORA_LOG() << "in CloudAPI::getJobFileList(): ZRV call for all users files in this simulation: JobID: "
                  << toQt(jobId) << "\tSimID: " << toQt(simulationId);
    return QStringLiteral("/%1/%2").arg(toQt(jobId), toQt(simulationId));
}

/// Why a file is not deleted; no value when it can be named.
std::optional<ApiError> refusalOf(const DeleteFileDetails &file);

Request remove(const DeleteFileDetails &file);

} // namespace Velmora::Files
