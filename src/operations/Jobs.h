#pragma once

#include "base/Log.h"
#include "transport/Call.h"

#include <velmora/JobSubmit.h>
#include <velmora/Records.h>

#include <list>
#include <optional>
#include <string>

/// Creating, submitting, inspecting, stopping and archiving jobs.
namespace Velmora::Jobs {

inline std::string readNewId(const QByteArray &body)
{
    return QJsonDocument::fromJson(body).object().value(QLatin1String("jobId")).toString().toStdString();
}

inline Call<std::string> generateId(const std::string &accountId, const std::string &hpcId)
{
    const QByteArray body =
        hpcId.empty() ? bodyOf({{"accountId", accountId}}) : bodyOf({{"accountId", accountId}, {"hpcId", hpcId}});
    return {{Endpoints::JobInit, Verb::Post, body}, readNewId};
}

inline Call<JobDetails> submit(const std::string &submissionJson)
{
    return {{Endpoints::JobSubmit, Verb::Post, QByteArray::fromStdString(submissionJson)}};
}

/// Why a job is not submitted; no value for a valid one.
std::optional<ApiError> refusalOf(const JobSubmit &job);

inline Call<std::list<JobDetails>> list()
{
    VELMORA_LOG() << "in CloudAPI::requestAllJobInformation(): ZRV call for information on all jobs";
    return {{Endpoints::JobList}};
}

inline Call<JobDetails> details(const std::string &jobId)
{
    return {{Endpoints::JobLoad, Verb::Post, bodyOf({{"jobId", jobId}})}};
}

inline Call<JobProgress> progress(const std::string &jobId)
{
    VELMORA_LOG() << "in CloudAPI::getJobProgress(): Requesting job progress - " << toQt(jobId);
    return {{Endpoints::JobProgress, Verb::Post, bodyOf({{"jobId", jobId}})}};
}

inline Call<std::list<SimulationAbortState>> stop(const std::string &jobId)
{
    return {{Endpoints::JobStop, Verb::Post, bodyOf({{"jobId", jobId}})}};
}

inline Call<SimulationAbortState> stopSimulation(const std::string &jobId, const std::string &simulationId)
{
    return {{Endpoints::SimulationStop, Verb::Post, bodyOf({{"jobId", jobId}, {"simulationId", simulationId}})}};
}

inline Call<std::list<JobDetails>> archive(const std::string &jobId)
{
    return {{Endpoints::JobArchive, Verb::Post, bodyOf({{"jobId", jobId}})}};
}

} // namespace Velmora::Jobs
