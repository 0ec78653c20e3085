#include "common/JobState.h"

#include "common/Render.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <utility>

namespace Velmora::Cli {

namespace {

constexpr const char *Unknown = "unknown";
constexpr const char *Archived = "archived";
constexpr const char *Finished = "finished";
constexpr long long LeastObservedMs = 2000;

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

std::string orUnknown(const std::string &status) { return status.empty() ? Unknown : lowerCase(status); }

std::pair<long long, long long> datesOf(const JobDetails &job)
{
    if (job.jobStatus.empty())
        return {0, 0};
    const auto [first, last] =
        std::minmax_element(job.jobStatus.begin(), job.jobStatus.end(),
                            [](const auto &a, const auto &b) { return a.jobStatusDate < b.jobStatusDate; });
    return {first->jobStatusDate, last->jobStatusDate};
}

} // namespace

std::string statusOf(const JobDetails &job) { return orUnknown(latestStatus(job)); }

std::string statusOf(const SimulationDetails &simulation) { return orUnknown(latestStatus(simulation)); }

std::string statusOf(const JobDetails &job, const std::string &simulationId)
{
    const auto found = std::find_if(job.simulations.begin(), job.simulations.end(),
                                    [&](const auto &simulation) { return simulation.simulationId == simulationId; });
    return found == job.simulations.end() ? Unknown : statusOf(*found);
}

std::string outcomeOf(const JobDetails &job)
{
    JobDetails active;
    active.jobStatus = job.jobStatus;
    active.jobStatus.remove_if([](const JobStatusEntry &entry) { return lowerCase(entry.jobStatus) == Archived; });
    return statusOf(active.jobStatus.empty() ? job : active);
}

JobEnd endOf(const JobDetails &job)
{
    static constexpr std::array<const char *, 8> failures = {"stopped", "failed",    "aborted",  "killed",
                                                             "error",   "cancelled", "canceled", Archived};
    if (outcomeOf(job) == Finished)
        return JobEnd::Finished;
    const std::string status = statusOf(job);
    const bool failed = std::any_of(failures.begin(), failures.end(), [&](const char *word) { return status == word; });
    return failed ? JobEnd::NotFinished : JobEnd::Going;
}

long long submittedAt(const JobDetails &job) { return datesOf(job).first; }

long long changedAt(const JobDetails &job) { return datesOf(job).second; }

int JobState::progressOf(const SimulationDetails &simulation) const
{
    if (statusOf(simulation) == Finished)
        return 100;
    const auto found = progress.find(simulation.simulationId);
    return found == progress.end() ? 0 : percent(found->second);
}

int JobState::totalProgress() const
{
    int total = 0;
    for (const SimulationDetails &simulation : job.simulations)
        total += progressOf(simulation);
    return total;
}

void Pace::note(long long milliseconds, const JobState &state)
{
    const int progress = state.totalProgress();
    m_whole = 100 * int(state.job.simulations.size());
    if (progress == m_last)
        return;
    if (m_last == 0) {
        m_first = progress;
        m_firstAt = milliseconds;
    }
    m_last = progress;
    m_lastAt = milliseconds;
}

long long Pace::secondsLeft(long long milliseconds) const
{
    if (m_lastAt - m_firstAt < LeastObservedMs || m_last <= m_first || m_last >= m_whole)
        return -1;
    const double rest = double(m_whole - m_last) * double(m_lastAt - m_firstAt) / double(m_last - m_first);
    return std::max(0LL, std::llround((rest - double(milliseconds - m_lastAt)) / 1000));
}

} // namespace Velmora::Cli
