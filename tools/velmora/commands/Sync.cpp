#include "commands/Commands.h"
#include "common/Json.h"
#include "common/Output.h"
#include "transfers/Files.h"
#include "transfers/Selector.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>

#include <map>
#include <set>

namespace Velmora::Cli {

namespace {

constexpr qint64 ClockStepMs = 2000; // some file systems count in these

struct Plan {
    std::string jobId;
    QString folder;
    Batch batch;
    std::set<std::string> deletions; ///< names of the job's files, or paths below the folder
    int same = 0;
};

/// Encryption adds 1 to 16 bytes to each piece, and the service does not tell how many pieces there are.
bool canBeSizeOf(qint64 plain, qint64 stored) { return stored > plain && stored - plain <= 16 + plain / 512; }

qint64 dateOf(const QFileInfo &file) { return file.lastModified().toMSecsSinceEpoch(); }

bool isJob(const std::string &place) { return !place.empty() && place.back() == ':'; }

std::string namedIn(const std::string &place) { return place.substr(0, place.size() - 1); }

/// Uploads have no folders. A file below one that the job has under its whole path is a result, which stays as it is.
void planUploads(Plan &plan, const std::list<CloudFile> &listing, bool deletes)
{
    std::map<std::string, CloudFile> stored;
    for (const CloudFile &file : listing)
        if (!file.directory)
            stored.emplace(file.fileName, file);
    QStringList candidates;
    std::set<std::string> kept;
    for (const QString &path : filesBelow(plan.folder))
        if (!path.contains(QLatin1Char('/')) || stored.count(path.toStdString()) == 0)
            candidates << QDir(plan.folder).filePath(path);
    QStringList changed;
    for (const QString &path : checkedInputs(candidates)) {
        const QFileInfo local(path);
        const auto found = stored.find(local.fileName().toStdString());
        kept.insert(local.fileName().toStdString());
        if (found != stored.end() && canBeSizeOf(local.size(), found->second.fileSize) &&
            dateOf(local) <= found->second.fileDate)
            ++plan.same;
        else
            changed << path;
    }
    plan.batch = uploadsOf(changed, plan.jobId);
    for (const auto &[name, file] : stored)
        if (deletes && name.find('/') == std::string::npos && kept.count(name) == 0)
            plan.deletions.insert(name);
}

void planDownloads(Plan &plan, const std::list<CloudFile> &listing, bool hiddenToo, bool deletes)
{
    std::set<std::string> stored;
    for (const CloudFile &file : listing)
        stored.insert(file.fileName);
    std::list<CloudFile> changed = listing;
    changed.remove_if([&](const CloudFile &file) {
        const auto path = localPathOf(plan.folder, file.fileName);
        const QFileInfo local(path.value_or(QString()));
        const bool isSame = path && local.isFile() && canBeSizeOf(local.size(), file.fileSize) &&
                            qAbs(dateOf(local) - file.fileDate) < ClockStepMs;
        plan.same += isSame ? 1 : 0;
        return isSame || (isHidden(file) && !hiddenToo);
    });
    plan.batch = downloadsOf(changed, plan.folder);
    if (!deletes)
        return;
    for (const QString &path : filesBelow(plan.folder))
        if (stored.count(path.toStdString()) == 0)
            plan.deletions.insert(path.toStdString());
}

QString textOf(const Plan &plan, bool up)
{
    Table table({{QStringLiteral("ACTION"), Align::Left},
                 {QStringLiteral("FILE"), Align::Left, true},
                 {QStringLiteral("SIZE"), Align::Right}});
    for (const Transfer &transfer : plan.batch.transfers)
        table.add({up ? QStringLiteral("upload") : QStringLiteral("download"), shown(transfer.file.fileName),
                   sizeText(transfer.total)});
    for (const std::string &name : plan.deletions)
        table.add({QStringLiteral("delete"), shown(name), QString()});
    return plan.batch.transfers.empty() && plan.deletions.empty() ? QString() : fitted(table) + QLatin1Char('\n');
}

void deleteLocal(const Plan &plan)
{
    QStringList left;
    for (const std::string &name : plan.deletions) {
        const QString path = QDir(plan.folder).filePath(QString::fromStdString(name));
        if (!QFile::remove(path))
            left << path;
    }
    if (!left.isEmpty())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Error"),
                      QStringLiteral("cannot be deleted:\n  ") + left.join(QLatin1String("\n  ")));
}

QJsonObject documentOf(const Plan &plan, bool up)
{
    QJsonArray deletions;
    for (const std::string &name : plan.deletions)
        deletions.append(QString::fromStdString(name));
    return {{QStringLiteral("jobId"), QString::fromStdString(plan.jobId)},
            {up ? QStringLiteral("uploads") : QStringLiteral("downloads"), plan.batch.toJson()},
            {QStringLiteral("deletions"), deletions},
            {QStringLiteral("same"), plan.same}};
}

} // namespace

void sync(const Options &given)
{
    Options options = given;
    const bool up = isJob(options.target);
    if (up == isJob(options.source))
        throw Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"),
                      QStringLiteral("one of the two is a folder, the other a job with a colon:\n"
                                     "  velmora sync DIR JOB:\n  velmora sync JOB: DIR"));
    Plan plan;
    plan.jobId = namedIn(up ? options.target : options.source);
    options.folder = up ? options.source : options.target;
    plan.folder = QString::fromStdString(options.folder);
    if (!up)
        checkDownloadFolder(options);
    else if (!QFileInfo(plan.folder).isDir())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Bad Folder"),
                      QStringLiteral("%1 is no folder").arg(plan.folder));

    Session session(options);
    session.signIn();
    const auto listing = session.get<std::list<CloudFile>>(
        [&](const auto &done) { session.api().getJobFileList(plan.jobId, true, done); });
    if (up)
        planUploads(plan, listing, options.deleteOthers);
    else
        planDownloads(plan, listing, options.allFiles, options.deleteOthers);

    const auto summary = [&](const char *form) {
        return QString::fromLatin1(form).arg(countText(plan.batch), QString::number(plan.deletions.size()),
                                             QString::number(plan.same));
    };
    if (options.dryRun) {
        print(options, documentOf(plan, up), [&] {
            return textOf(plan, up) + summary(up ? "would upload %1, delete %2, leave %3 as they are\n"
                                                 : "would download %1, delete %2, leave %3 as they are\n");
        });
        return;
    }
    if (!plan.deletions.empty())
        confirm(options, textOf(plan, up) + QStringLiteral("Delete these %1 files of %2?")
                                                .arg(plan.deletions.size())
                                                .arg(up ? shown(plan.jobId) : plan.folder));
    if (!plan.batch.transfers.empty())
        moveFiles(session, options,
                  up ? QStringLiteral("uploading %1 to %2").arg(countText(plan.batch), shown(plan.jobId))
                     : QStringLiteral("downloading %1 to %2").arg(countText(plan.batch), plan.folder),
                  plan.batch);
    keepDates(plan.batch);
    // Nothing is deleted unless all else has arrived.
    if (const auto failure = batchFailure(session, plan.batch, QStringLiteral("the same command goes on")))
        throw Failure(*failure).with(documentOf(plan, up));
    if (up)
        deleteFiles(session, plan.jobId, plan.deletions);
    else
        deleteLocal(plan);
    print(options, documentOf(plan, up), [&] {
        return summary(up ? "uploaded %1, deleted %2, left %3 as they are\n"
                          : "downloaded %1, deleted %2, left %3 as they are\n");
    });
}

} // namespace Velmora::Cli
