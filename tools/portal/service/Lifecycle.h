#pragma once

#include "portal/service/State.h"

namespace VelmoraPortal {

/// The status names of jobs and simulations.
namespace Status {
inline const std::string submitted = "SUBMITTED";
inline const std::string queued = "QUEUED";
inline const std::string running = "RUNNING";
inline const std::string finished = "FINISHED";
inline const std::string stopped = "STOPPED";
inline const std::string failed = "FAILED";
inline const std::string archived = "ARCHIVED";
} // namespace Status

/// An event that the job's sockets report: a simulation's progress or status, or the job's own status.
struct JobEvent {
    const Simulation *simulation = nullptr; ///< null: the job itself; valid until the job changes again
    std::string status;
    int progress = 0;
};

/*
 * SUBMITTED --5%--> QUEUED --10%--> RUNNING --all simulations finished--> FINISHED --archive--> ARCHIVED
 *     \______________|_________________\--------------stop--------------> STOPPED --archive---> "
 *
 * The simulations of a sweep start one after the other, overlap, and finish in the same order. The last one
 * finishes after the duration, or later when the solver takes longer. A simulation that the solver cannot solve
 * is FAILED, and so is its job. A job whose simulations were all stopped one by one is STOPPED.
 */

/// Makes the schedule of a job that is submitted now.
void plan(Job &job, Milliseconds now, Milliseconds duration);
/// Brings the job up to `now`; returns the events in order.
std::vector<JobEvent> advance(Job &job, Milliseconds now);
/// Stops one simulation; false when it was finished already.
bool stop(Job &job, Simulation &simulation, Milliseconds now, std::vector<JobEvent> &events);
/// Stops the job and its running simulations; false when it was finished already.
bool stop(Job &job, Milliseconds now, std::vector<JobEvent> &events);

bool isActive(const Job &job);
/// The status in which the job finished, also after ARCHIVED; empty while it is active.
std::string outcome(const Job &job);

} // namespace VelmoraPortal
