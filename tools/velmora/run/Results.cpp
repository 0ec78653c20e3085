#include "run/Results.h"

#include "common/Progress.h"
#include "run/Sweep.h"

#include <QFileInfo>
#include <QSaveFile>

#include <algorithm>

namespace Velmora::Cli {

namespace {

Failure badTable(const QSaveFile &file)
{
    return Failure(ExitCode::WrongUse, QStringLiteral("Bad Table"),
                   QStringLiteral("%1: %2").arg(file.fileName(), file.errorString()));
}

bool isInput(const JobDetails &job, const CloudFile &file)
{
    const QString name = QString::fromStdString(file.fileName);
    const auto is = [&](const std::string &input) {
        return QFileInfo(QString::fromStdString(input)).fileName() == name;
    };
    return is(job.mainFile) || std::any_of(job.fileDependencies.begin(), job.fileDependencies.end(), is);
}

} // namespace

std::optional<Failure> fetchResults(Session &session, const Options &options, const JobDetails &job, Batch &downloads,
                                    Journal *journal)
{
    std::list<CloudFile> listing;
    const QString folder = downloadFolder(options, job.jobId);
    try {
        listing = session.get<std::list<CloudFile>>(
            [&](const auto &done) { session.api().getJobFileList(job.jobId, false, done); });
    } catch (const Failure &failure) {
        return Failure(failure.code(), QStringLiteral("Error Downloading Results"),
                       QStringLiteral("%1\nthe results of %2 were not downloaded; download them with:\n"
                                      "  velmora download %3 --to %4%5")
                           .arg(failure.message(), shown(job.jobId), quoted(job.jobId), quoted(folder.toStdString()),
                                sameOptions(options)));
    }
    listing.remove_if([&](const CloudFile &file) { return isInput(job, file); });
    downloads = downloadsOf(listing, folder);
    for (Transfer &transfer : downloads.transfers)
        if (journal && !transfer.hasEnded() && journal->isFetched(transfer))
            transfer.keep();
    const int kept = downloads.count(Transfer::Phase::Done);
    if (kept == int(downloads.transfers.size()))
        return std::nullopt;
    const QString heading =
        QStringLiteral("downloading %1 to %2").arg(countText(downloads), shown(folder.toStdString())) +
        keptText(kept, "here");
    std::function<void(const Transfer &)> onDone;
    if (journal)
        onDone = [journal](const Transfer &transfer) { journal->note(transfer); };
    moveFiles(session, options, heading, downloads, onDone);
    QString hint = retryHint(options, downloads, job.jobId);
    if (journal)
        hint = QStringLiteral("run the same command again to go on, or ") + hint;
    return batchFailure(session, downloads, hint);
}

void checkTable(const Options &options)
{
    if (options.csvFile.empty())
        return;
    QSaveFile file(QString::fromStdString(options.csvFile));
    if (!file.open(QIODevice::WriteOnly))
        throw badTable(file);
    file.cancelWriting();
}

void writeTable(const Options &options, const JobDetails &job)
{
    if (options.csvFile.empty())
        return;
    QSaveFile file(QString::fromStdString(options.csvFile));
    const QByteArray table = summaryTable(job, downloadFolder(options, job.jobId));
    if (!file.open(QIODevice::WriteOnly) || file.write(table) != table.size() || !file.commit())
        throw badTable(file);
    notice(options, QStringLiteral("wrote %1 (%2 simulations)").arg(file.fileName()).arg(job.simulations.size()));
}

} // namespace Velmora::Cli
