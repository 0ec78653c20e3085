/// @file Files.h
/// Which local and cloud files a command means, and moving them.
#ifndef VELMORA_CLI_FILES_H
#define VELMORA_CLI_FILES_H

#include "Session.h"
#include "Transfer.h"

#include <QStringList>

#include <list>
#include <optional>
#include <string>

namespace Velmora::Cli {

/// The files without those named twice. Throws `Failure` naming every one that cannot be read, and
/// those that the storage, which knows no folders, could not tell apart.
QStringList checkedInputs(const QStringList &paths);

/// The folder for a job's files: `--to`, or one named after the job in the working directory.
QString downloadFolder(const Options &options, const std::string &jobId);
/// Throws `Failure` when nothing could be written there. Makes nothing.
void checkDownloadFolder(const Options &options);

/// Where a cloud file goes: its path below the job, below `folder`. No value for a name that would
/// lead out of it.
std::optional<QString> localPathOf(const QString &folder, const std::string &cloudName);

/// Uploads of all paths to the job.
Batch uploadsOf(const QStringList &paths, const std::string &jobId);
/// Downloads of all files of the listing, in its order; folders and repeated names are left out.
Batch downloadsOf(const std::list<CloudFile> &listing, const QString &folder);
/// Downloads of the files that the options name: by name, by folder, or by a pattern for the whole
/// name or its last part. What matches nothing is in the batch as failed.
Batch selectedDownloads(const std::list<CloudFile> &listing, const Options &options, const QString &folder);

/// Moves the files, showing progress under a heading.
void moveFiles(Session &session, const Options &options, const QString &heading, Batch &batch);

/// What became of a batch that is not done in full, and which words to give the user; no value for one
/// that is. `remedy` follows the names, on lines of its own.
std::optional<Failure> verdictOn(Session &session, const Batch &batch, const QString &remedy);
/// The command that moves what the batch left behind; empty when none would.
QString remedyFor(const Options &options, const Batch &batch, const std::string &jobId);

/// "3 files (812 MB)".
QString countText(const Batch &batch);

} // namespace Velmora::Cli

#endif
