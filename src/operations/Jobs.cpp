// Creating, submitting, inspecting, stopping and archiving jobs.

#include "base/Log.h"
#include "transport/Pipeline.h"

namespace Velmora {

void CloudAPIImpl::generateNewJobID(const std::string &accountId, const std::string &hpcId,
                                    const ResultDone<std::string> &onComplete)
{
    const QByteArray body =
        hpcId.empty() ? bodyOf({{"accountId", accountId}}) : bodyOf({{"accountId", accountId}, {"hpcId", hpcId}});
    call<std::string>(
        {RequestType::JobInit, Verb::Post, body},
        [](const QByteArray &reply) {
            return QJsonDocument::fromJson(reply).object().value(QLatin1String("jobId")).toString().toStdString();
        },
        onComplete);
}

void CloudAPIImpl::submitNewJob(const std::string &submissionJson, const ResultDone<JobDetails> &onComplete)
{
    callForRecord({RequestType::JobSubmit, Verb::Post, QByteArray::fromStdString(submissionJson)}, onComplete);
}

void CloudAPIImpl::submitNewJob(const JobSubmit &job, const ResultDone<JobDetails> &onComplete)
{
    std::list<JobSubmitError> failures;
    if (job.validate(&failures)) {
        submitNewJob(job.toSubmissionJson(), onComplete);
        return;
    }
    ApiError refusal{400, errorTitle(RequestType::JobSubmit).toStdString(), "Bad Job Definition \n"};
    for (const JobSubmitError failure : failures)
        refusal.errorMessage += JobSubmit::errorMessage(failure) + '\n';
    refusal.errorMessage += "\nValidate Job again.";
    if (const auto callback = onComplete) // a copy: the callback may destroy the original
        callback(refusal, {});
}

void CloudAPIImpl::requestAllJobInformation(const ResultDone<std::list<JobDetails>> &onComplete)
{
    VELMORA_LOG() << "in CloudAPI::requestAllJobInformation(): ZRV call for information on all jobs";
    callForList({RequestType::JobList}, onComplete);
}

void CloudAPIImpl::getJobDetails(const std::string &jobId, const ResultDone<JobDetails> &onComplete)
{
    callForRecord({RequestType::JobLoad, Verb::Post, bodyOf({{"jobId", jobId}})}, onComplete);
}

void CloudAPIImpl::getJobProgress(const std::string &jobId, const ResultDone<JobProgress> &onComplete)
{
    VELMORA_LOG() << "in CloudAPI::getJobProgress(): Requesting job progress - " << toQt(jobId);
    callForRecord({RequestType::JobProgress, Verb::Post, bodyOf({{"jobId", jobId}})}, onComplete);
}

void CloudAPIImpl::killJob(const std::string &jobId, const ResultDone<std::list<SimulationAbortState>> &onComplete)
{
    callForList({RequestType::JobStop, Verb::Post, bodyOf({{"jobId", jobId}})}, onComplete);
}

void CloudAPIImpl::killSimulation(const std::string &jobId, const std::string &simulationId,
                                  const ResultDone<SimulationAbortState> &onComplete)
{
    callForRecord({RequestType::SimulationStop, Verb::Post, bodyOf({{"jobId", jobId}, {"simulationId", simulationId}})},
                  onComplete);
}

void CloudAPIImpl::archiveJob(const std::string &jobId, const ResultDone<std::list<JobDetails>> &onComplete)
{
    callForList({RequestType::JobArchive, Verb::Post, bodyOf({{"jobId", jobId}})}, onComplete);
}

} // namespace Velmora
