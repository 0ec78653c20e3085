/// @file Results.h
/// What a job leaves: its files, a table of its simulations.
#ifndef VELMORA_CLI_RESULTS_H
#define VELMORA_CLI_RESULTS_H

#include "common/JobState.h"
#include "run/Journal.h"
#include "transfers/Files.h"

#include <optional>

namespace Velmora::Cli {

/// Downloads the job's files but for its inputs. What the journal says to be here is not fetched again.
/// @param journal  may be null
/// @return the error, if not all of them arrived
std::optional<Failure> fetchResults(Session &session, const Options &options, const JobDetails &job, Batch &downloads,
                                    Journal *journal);

/// Throws `Failure` when the table of `--csv` could not be written.
void checkTable(const Options &options);
/// Writes the table of `--csv`, if there is one to write. Throws `Failure`.
void writeTable(const Options &options, const JobDetails &job);

} // namespace Velmora::Cli

#endif
