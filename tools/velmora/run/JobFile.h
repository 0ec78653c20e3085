/// @file JobFile.h
/// Job files: the JSON form of `JobSubmit`, with what the client fills in.
#ifndef VELMORA_CLI_JOBFILE_H
#define VELMORA_CLI_JOBFILE_H

#include "common/Options.h"

#include <velmora/JobSubmit.h>

#include <QJsonArray>
#include <QStringList>

#include <list>

namespace Velmora::Cli {

struct JobFile {
    JobSubmit job;
    QStringList inputs;   ///< paths of the main file, then of its dependencies
    QStringList warnings; ///< keys and values of the file that are ignored

    /// What is submitted but for ids and account, to find out whether it has changed.
    QJsonObject definition() const;
};

/// Reads a job file. `--each` gives its simulations. The origin defaults to "velmora"; `--account` overrides the file's
/// account. Throws `Failure` when the file cannot be read or is not a JSON object.
JobFile readJobFile(const Options &options);

/// Reads a job file, prints its warnings, and throws `Failure` unless all checks pass.
JobFile checkedJobFile(const Options &options);

/// The checks that fail, without the one for the job id, which the service assigns later.
std::list<JobSubmitError> failedChecks(const JobSubmit &job);
/// One line per failed check.
QStringList checkMessages(const JobSubmit &job, const std::list<JobSubmitError> &errors);
QJsonArray checksJson(const std::list<JobSubmitError> &errors);

} // namespace Velmora::Cli

#endif
