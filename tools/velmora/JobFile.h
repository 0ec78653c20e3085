/// @file JobFile.h
/// Job files: the JSON form of `JobSubmit`, with what the client fills in.
#ifndef VELMORA_CLI_JOBFILE_H
#define VELMORA_CLI_JOBFILE_H

#include "Options.h"

#include <velmora/JobSubmit.h>

#include <QJsonArray>
#include <QStringList>

#include <list>

namespace Velmora::Cli {

struct JobFile {
    JobSubmit job;
    QStringList inputs;   ///< paths of the main file, then of what it depends on
    QStringList warnings; ///< what the file says that will not be heeded
};

/// Reads a job file. The origin defaults to "velmora"; `--account` wins over the file's account.
/// Throws `Failure` when the file cannot be read or is not a JSON object.
JobFile readJobFile(const Options &options);

/// Reads a job file, warns of what will not be heeded, and throws `Failure` unless all checks hold.
JobFile checkedJobFile(const Options &options);

/// The checks that fail; the job id, which the service gives out later, is not asked for.
std::list<JobSubmitError> failedChecks(const JobSubmit &job);
/// One line per failed check.
QStringList checkMessages(const JobSubmit &job, const std::list<JobSubmitError> &errors);
QJsonArray checksJson(const std::list<JobSubmitError> &errors);

} // namespace Velmora::Cli

#endif
