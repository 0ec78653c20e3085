#pragma once

#include "portal/service/State.h"

namespace VelmoraPortal {

/// The words of a job's and a simulation's status.
namespace Status {
inline const std::string submitted = "SUBMITTED";
inline const std::string queued = "QUEUED";
inline const std::string running = "RUNNING";
inline const std::string finished = "FINISHED";
inline const std::string stopped = "STOPPED";
inline const std::string failed = "FAILED";
inline const std::string archived = "ARCHIVED";
} // namespace Status

/// Something that the job's socket tells: a simulation's progress or status, or the job's own status.
struct JobEvent {
    const Simulation *simulation = nullptr; ///< null: the job itself; valid until the job changes again
    std::string status;
    int progress = 0;
};

/*
 * SUBMITTED --5%--> QUEUED --10%--> RUNNING --all simulations ended--> FINISHED --archive--> ARCHIVED
 *     \______________|_________________\------------stop--------------> STOPPED ---archive-->    "
 *
 * The simulations of a sweep start one after the other, overlap, and end in turn; the last one ends
 * when the duration is over, or later when the solver takes longer. A simulation that the solver cannot
 * solve is FAILED, and so is its job. A job whose simulations were all stopped one by one is STOPPED.
 */

/// Plans a job that is submitted now.
void plan(Job &job, Milliseconds now, Milliseconds duration);
/// Brings the job up to `now`; returns what happened, in order.
std::vector<JobEvent> advance(Job &job, Milliseconds now);
/// Stops one simulation; false when it had ended before.
bool stop(Job &job, Simulation &simulation, Milliseconds now, std::vector<JobEvent> &events);
/// Stops the whole job and all that still runs in it; false when it had ended before.
bool stop(Job &job, Milliseconds now, std::vector<JobEvent> &events);

bool isActive(const Job &job);
/// The status the job ended with, seen through ARCHIVED; empty while it is active.
std::string outcome(const Job &job);

} // namespace VelmoraPortal
