/// @file Sweep.h
/// Sweeps from the command line, and tables of what their simulations found.
#ifndef VELMORA_CLI_SWEEP_H
#define VELMORA_CLI_SWEEP_H

#include "common/JobState.h"

#include <QString>
#include <QStringList>

namespace Velmora::Cli {

/// The solver parameters of each simulation: every combination of the values in braces, the first brace varying
/// slowest. "{8..16..2}" counts from 8 to 16 in steps of 2, "{8..16}" in steps of 1; "{a,b,c}" lists values. Throws
/// `Failure`, also for more than a thousand.
QStringList sweepOf(const QString &pattern);

/// One line for each simulation, as CSV: its id, status and parameters, and the numbers, texts and flags of its
/// "summary.json" in a folder of that name below `folder`. Cells of what is missing are empty.
QByteArray summaryTable(const JobDetails &job, const QString &folder);

} // namespace Velmora::Cli

#endif
