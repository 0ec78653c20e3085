/// @file JobState.h
/// The state of a job, read from its records.
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
    long long secondsLeft = -1; ///< estimated; negative when it is not known

    /// In percent, from 0 to 100; 100 for a finished simulation.
    int progressOf(const SimulationDetails &simulation) const;
    /// Of all simulations together, in percent of one.
    int totalProgress() const;
};

/// Estimates when a job ends, from the progress since it was first seen to run.
class Pace {
public:
    void note(long long milliseconds, const JobState &state);
    /// Negative when it is not known.
    long long secondsLeft(long long milliseconds) const;

private:
    int m_first = 0, m_last = 0, m_whole = 0; ///< progress
    long long m_firstAt = 0, m_lastAt = 0;
};

enum class JobEnd { Going, Finished, NotFinished };

/// The latest status in lower case; "unknown" when there is none.
std::string statusOf(const JobDetails &job);
std::string statusOf(const SimulationDetails &simulation);
std::string statusOf(const JobDetails &job, const std::string &simulationId);
/// The status with which the job ended: the latest one before it was archived.
std::string outcomeOf(const JobDetails &job);
JobEnd endOf(const JobDetails &job);

/// The dates of the job's first and last status; 0 when there is none.
long long submittedAt(const JobDetails &job);
long long changedAt(const JobDetails &job);

} // namespace Velmora::Cli

#endif
