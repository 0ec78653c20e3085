/// @file JobState.h
/// How far a job is, read from its records.
#ifndef VELMORA_CLI_JOBSTATE_H
#define VELMORA_CLI_JOBSTATE_H

#include <velmora/Records.h>

#include <map>
#include <string>

namespace Velmora::Cli {

/// A job and the progress of its simulations, by simulation id.
struct JobState {
    JobDetails job;
    std::map<std::string, int> progress;

    /// In percent, from 0 to 100; 100 for a simulation whose status says that it finished.
    int progressOf(const SimulationDetails &simulation) const;
};

enum class JobEnd { Going, Finished, NotFinished };

/// The latest status in lower case; "unknown" when there is none.
std::string statusOf(const JobDetails &job);
std::string statusOf(const SimulationDetails &simulation);
std::string statusOf(const JobDetails &job, const std::string &simulationId);
/// The status that the job ended with: the latest one before it was archived.
std::string outcomeOf(const JobDetails &job);
JobEnd endOf(const JobDetails &job);

/// When the job came to the service, and when it was last heard of; 0 when not known.
long long submittedAt(const JobDetails &job);
long long changedAt(const JobDetails &job);

} // namespace Velmora::Cli

#endif
