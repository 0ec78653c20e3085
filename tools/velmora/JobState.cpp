#include "JobState.h"

#include "Render.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <vector>

namespace Velmora::Cli {

namespace {

constexpr const char *Unknown = "unknown";
constexpr const char *Archived = "archived";
constexpr const char *Finished = "finished";

struct Step {
    std::string status;
    long long date;
};

std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

/// Oldest first, whatever the order in which the service lists them; its order where dates are equal.
std::vector<Step> historyOf(const JobDetails &job)
{
    std::vector<Step> steps;
    for (const JobStatusEntry &entry : job.jobStatus)
        steps.push_back({lowerCase(entry.jobStatus), entry.jobStatusDate});
    std::stable_sort(steps.begin(), steps.end(), [](const Step &a, const Step &b) { return a.date < b.date; });
    return steps;
}

} // namespace

std::string statusOf(const JobDetails &job)
{
    const std::vector<Step> steps = historyOf(job);
    return steps.empty() ? Unknown : steps.back().status;
}

std::string statusOf(const SimulationDetails &simulation)
{
    const SimulationStatusEntry *latest = nullptr;
    for (const SimulationStatusEntry &entry : simulation.simulationStatus)
        if (latest == nullptr || entry.simulationStatusDate >= latest->simulationStatusDate)
            latest = &entry;
    return latest == nullptr ? Unknown : lowerCase(latest->simulationStatus);
}

std::string statusOf(const JobDetails &job, const std::string &simulationId)
{
    const auto found = std::find_if(job.simulations.begin(), job.simulations.end(),
                                    [&](const auto &simulation) { return simulation.simulationId == simulationId; });
    return found == job.simulations.end() ? Unknown : statusOf(*found);
}

std::string outcomeOf(const JobDetails &job)
{
    const std::vector<Step> steps = historyOf(job);
    const auto found =
        std::find_if(steps.rbegin(), steps.rend(), [](const Step &step) { return step.status != Archived; });
    return found == steps.rend() ? statusOf(job) : found->status;
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

long long submittedAt(const JobDetails &job)
{
    const std::vector<Step> steps = historyOf(job);
    return steps.empty() ? 0 : steps.front().date;
}

long long changedAt(const JobDetails &job)
{
    const std::vector<Step> steps = historyOf(job);
    return steps.empty() ? 0 : steps.back().date;
}

int JobState::progressOf(const SimulationDetails &simulation) const
{
    if (statusOf(simulation) == Finished)
        return 100;
    const auto found = progress.find(simulation.simulationId);
    return found == progress.end() ? 0 : percent(found->second);
}

} // namespace Velmora::Cli
