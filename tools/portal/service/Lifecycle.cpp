#include "portal/service/Lifecycle.h"

#include <algorithm>

namespace VelmoraPortal {
namespace {

bool hasEnded(const Simulation &simulation)
{
    const std::string &status = simulation.history.back().status;
    return status == Status::finished || status == Status::stopped || status == Status::failed;
}

void set(Job &job, const std::string &status, Milliseconds date, std::vector<JobEvent> &events)
{
    job.history.push_back({status, date});
    events.push_back({nullptr, status, 0});
}

void set(Simulation &simulation, const std::string &status, Milliseconds date, std::vector<JobEvent> &events)
{
    simulation.history.push_back({status, date});
    events.push_back({&simulation, status, simulation.progress});
}

void advance(Simulation &simulation, Milliseconds now, std::vector<JobEvent> &events)
{
    if (hasEnded(simulation) || now < simulation.start)
        return;
    if (simulation.history.back().status != Status::running)
        set(simulation, Status::running, simulation.start, events);
    if (!simulation.problem.empty())
        return set(simulation, Status::failed, now, events);
    const auto length = std::max<Milliseconds>(simulation.end - simulation.start, 1);
    const Milliseconds most = simulation.solved ? 100 : 99;
    const int progress = static_cast<int>(std::clamp<Milliseconds>((now - simulation.start) * 100 / length, 0, most));
    const bool grown = progress > simulation.progress;
    simulation.progress = std::max(progress, simulation.progress);
    if (now >= simulation.end && simulation.solved)
        set(simulation, Status::finished, std::max(simulation.end, simulation.solvedAt), events);
    else if (grown)
        events.push_back({&simulation, Status::running, progress});
}

void endWhenDone(Job &job, std::vector<JobEvent> &events)
{
    Milliseconds last = 0;
    bool finished = false;
    bool failed = false;
    for (const Simulation &simulation : job.simulations) {
        if (!hasEnded(simulation))
            return;
        last = std::max(last, simulation.history.back().date);
        finished = finished || simulation.history.back().status == Status::finished;
        failed = failed || simulation.history.back().status == Status::failed;
    }
    set(job, failed ? Status::failed : finished ? Status::finished : Status::stopped, last, events);
}

} // namespace

void plan(Job &job, Milliseconds now, Milliseconds duration)
{
    job.history = {{Status::submitted, now}};
    job.queued = now + duration / 20;
    job.running = now + duration / 10;
    const auto count = static_cast<Milliseconds>(job.simulations.size());
    for (Milliseconds i = 0; i < count; ++i) {
        Simulation &simulation = job.simulations[static_cast<std::size_t>(i)];
        simulation.history = {{Status::submitted, now}};
        simulation.start = job.running + duration * 25 * i / (100 * count);
        simulation.end = now + duration * 70 / 100 + duration * 30 * (i + 1) / (100 * count);
    }
}

std::vector<JobEvent> advance(Job &job, Milliseconds now)
{
    std::vector<JobEvent> events;
    if (!isActive(job))
        return events;
    if (job.status() == Status::submitted && now >= job.queued) {
        set(job, Status::queued, job.queued, events);
        for (Simulation &simulation : job.simulations)
            if (!hasEnded(simulation))
                set(simulation, Status::queued, job.queued, events);
    }
    if (job.status() == Status::queued && now >= job.running)
        set(job, Status::running, job.running, events);
    if (job.status() != Status::running)
        return events;
    for (Simulation &simulation : job.simulations)
        advance(simulation, now, events);
    endWhenDone(job, events);
    return events;
}

bool stop(Job &job, Simulation &simulation, Milliseconds now, std::vector<JobEvent> &events)
{
    if (!isActive(job) || hasEnded(simulation))
        return false;
    set(simulation, Status::stopped, now, events);
    endWhenDone(job, events);
    return true;
}

bool stop(Job &job, Milliseconds now, std::vector<JobEvent> &events)
{
    if (!isActive(job))
        return false;
    for (Simulation &simulation : job.simulations)
        if (!hasEnded(simulation))
            set(simulation, Status::stopped, now, events);
    set(job, Status::stopped, now, events);
    return true;
}

bool isActive(const Job &job)
{
    return job.status() == Status::submitted || job.status() == Status::queued || job.status() == Status::running;
}

std::string outcome(const Job &job)
{
    for (auto entry = job.history.rbegin(); entry != job.history.rend(); ++entry)
        if (entry->status == Status::finished || entry->status == Status::stopped || entry->status == Status::failed)
            return entry->status;
    return {};
}

} // namespace VelmoraPortal
