/// @file Files.h
/// The local and cloud files that a command selects, and their transfer.
#ifndef VELMORA_CLI_FILES_H
#define VELMORA_CLI_FILES_H

#include "session/Session.h"
#include "transfers/Transfer.h"

#include <QStringList>

#include <functional>
#include <list>
#include <optional>
#include <set>
#include <string>

namespace Velmora::Cli {

/// The files without duplicates. Throws `Failure` that names every file that cannot be read, and files
/// with the same name: the storage has no folders, so one would replace the other.
QStringList checkedInputs(const QStringList &paths);

/// The folder for a job's files: `--to`, or one named after the job in the working directory.
QString downloadFolder(const Options &options, const std::string &jobId);
/// Throws `Failure` when the folder is not writable. Creates nothing.
void checkDownloadFolder(const Options &options);

/// The local path of a cloud file: its path below the job, below `folder`. No value for a name that
/// leads out of the folder, or that holds control characters.
std::optional<QString> localPathOf(const QString &folder, const std::string &cloudName);

/// Uploads of all paths to the job.
Batch uploadsOf(const QStringList &paths, const std::string &jobId);
/// Downloads of all files of the listing, in its order; folders and repeated names are left out.
Batch downloadsOf(const std::list<CloudFile> &listing, const QString &folder);
/// Downloads of the files that the options name: by name, by folder, or by a pattern for the whole
/// name or its last part. An argument that matches nothing becomes a failed transfer.
Batch selectedDownloads(const std::list<CloudFile> &listing, const Options &options, const QString &folder);

/// Moves the files, showing progress under a heading. @param onDone  receives each one that has arrived
void moveFiles(Session &session, const Options &options, const QString &heading, Batch &batch,
               const std::function<void(const Transfer &)> &onDone = {});

/// The error of a batch that is not complete, with the names of the files; no value for a complete one.
/// `hint` follows the names, on lines of its own.
std::optional<Failure> batchFailure(Session &session, const Batch &batch, const QString &hint);
/// A hint with the command that transfers the remaining files; empty when there is none.
QString retryHint(const Options &options, const Batch &batch, const std::string &jobId);

/// The plain files below a folder, as sorted paths that begin at it. Working files of downloads are left out.
QStringList filesBelow(const QString &folder);
/// Gives downloaded files the date that the service tells, by which `sync` finds them unchanged.
void keepDates(const Batch &batch);
/// Deletes the job's files. Throws `Failure` that names those that are left.
void deleteFiles(Session &session, const std::string &jobId, const std::set<std::string> &names);

/// "3 files (812 MB)".
QString countText(const Batch &batch);
/// "; 2 of them are here already", or nothing.
QString keptText(int count, const char *where);

} // namespace Velmora::Cli

#endif
