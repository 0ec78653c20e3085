#pragma once

#include "base/Log.h"
#include "transport/Call.h"

#include <velmora/Records.h>

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

inline Request remove(const DeleteFileDetails &file)
{
    VELMORA_LOG() << "Delete File API call being made:";
    const QString name = file.simulationId.empty()
                             ? toQt(file.fileName)
                             : QStringLiteral("%1/%2").arg(toQt(file.simulationId), toQt(file.fileName));
    return {Endpoints::JobFilesDelete, Verb::Delete, {}, QStringLiteral("/%1/%2").arg(toQt(file.jobId), name)};
}

} // namespace Velmora::Files
