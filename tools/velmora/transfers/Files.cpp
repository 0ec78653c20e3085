#include "transfers/Files.h"

#include "common/Render.h"
#include "transfers/Selector.h"
#include "transfers/TransferQueue.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <utility>

namespace Velmora::Cli {

namespace {

using Phase = Transfer::Phase;

constexpr int MostNames = 20;

QString unreadable(const QString &path)
{
    const QFileInfo info(path);
    if (info.isDir())
        return QStringLiteral("is a folder");
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString() : file.errorString();
}

QString namesOf(const Batch &batch, Phase phase)
{
    QString text;
    int named = 0;
    for (const Transfer &transfer : batch.transfers) {
        if (transfer.phase != phase || ++named > MostNames)
            continue;
        text += QStringLiteral("\n  ") + shown(transfer.file.fileName);
        if (phase == Phase::Failed)
            text +=
                QStringLiteral(": ") + (transfer.error.errorCode == 0 ? shown(plainText(transfer.error.errorMessage))
                                                                      : errorText(transfer.error));
    }
    return named > MostNames ? text + QStringLiteral("\n  and %1 more").arg(named - MostNames) : text;
}

} // namespace

QStringList checkedInputs(const QStringList &paths)
{
    QStringList inputs;
    QStringList problems;
    std::map<QString, QString> byName;
    std::set<QString> seen;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        const QString problem = unreadable(path);
        if (!problem.isEmpty()) {
            problems << QStringLiteral("%1: %2").arg(path, problem);
            continue;
        }
        if (!seen.insert(info.canonicalFilePath()).second)
            continue;
        const auto [other, isNew] = byName.emplace(info.fileName(), path);
        if (!isNew)
            problems << QStringLiteral("%1: would replace %2, which has the same name").arg(path, other->second);
        inputs << path;
    }
    problems.removeDuplicates();
    if (problems.size() > MostNames) {
        const int more = int(problems.size()) - MostNames;
        problems = problems.mid(0, MostNames) << QStringLiteral("and %1 more").arg(more);
    }
    if (!problems.isEmpty())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Bad Input Files"),
                      QStringLiteral("nothing was sent:\n  ") + problems.join(QLatin1String("\n  ")));
    return inputs;
}

QString downloadFolder(const Options &options, const std::string &jobId)
{
    if (!options.folder.empty())
        return QString::fromStdString(options.folder);
    return localPathOf(QString(), jobId).value_or(QStringLiteral("results"));
}

void checkDownloadFolder(const Options &options)
{
    const QString folder = options.folder.empty() ? QStringLiteral(".") : QString::fromStdString(options.folder);
    QFileInfo existing(QDir(folder).absolutePath());
    while (!existing.exists() && !existing.isRoot())
        existing = QFileInfo(existing.absolutePath());
    if (!existing.isDir() || !existing.isWritable())
        throw Failure(ExitCode::WrongUse, QStringLiteral("Bad Folder"),
                      QStringLiteral("nothing can be saved in %1").arg(folder));
}

std::optional<QString> localPathOf(const QString &folder, const std::string &cloudName)
{
    const QString name = QString::fromStdString(cloudName);
    // A name with control characters could send commands to the terminal that lists the folder.
    if (!isSafePath(cloudName) || shown(cloudName) != name)
        return std::nullopt;
    return folder.isEmpty() ? name : QDir(folder).filePath(name);
}

Batch uploadsOf(const QStringList &paths, const std::string &jobId)
{
    Batch batch;
    for (const QString &path : paths)
        batch.transfers.push_back(Transfer::up(path, jobId));
    return batch;
}

Batch downloadsOf(const std::list<CloudFile> &listing, const QString &folder)
{
    Batch batch;
    std::set<std::string> seen;
    for (const CloudFile &file : listing) {
        if (file.directory || !seen.insert(file.fileName).second)
            continue;
        if (const auto path = localPathOf(folder, file.fileName))
            batch.transfers.push_back(Transfer::down(file, *path));
        else
            batch.transfers.push_back(
                Transfer::failed(file, {400, "Bad Name", "no file of that name can be saved in a folder"}));
    }
    return batch;
}

Batch selectedDownloads(const std::list<CloudFile> &listing, const Options &options, const QString &folder)
{
    if (options.files.empty())
        return downloadsOf(listing, folder);
    std::set<std::string> wanted;
    std::vector<Transfer> unmatched;
    for (const std::string &argument : options.files) {
        const std::set<std::string> matching =
            Selector(argument, Selector::Reach::Folders).in(listing, options.allFiles);
        if (matching.empty()) {
            CloudFile missing;
            missing.jobId = options.jobId;
            missing.fileName = argument;
            unmatched.push_back(
                Transfer::failed(missing, {404, "No Such File", options.jobId + " has no file of that name"}));
        }
        wanted.insert(matching.begin(), matching.end());
    }
    std::list<CloudFile> files = listing;
    files.remove_if([&](const CloudFile &file) { return wanted.count(file.fileName) == 0; });
    Batch batch = downloadsOf(files, folder);
    batch.transfers.insert(batch.transfers.end(), unmatched.begin(), unmatched.end());
    return batch;
}

void moveFiles(Session &session, const Options &options, const QString &heading, Batch &batch,
               const std::function<void(const Transfer &)> &onDone)
{
    notice(options, heading);
    TransferView view(progressMode(options));
    TransferQueue(session, view, batch, onDone).run();
}

std::optional<Failure> batchFailure(Session &session, const Batch &batch, const QString &hint)
{
    const int failed = batch.count(Phase::Failed);
    const int undone = batch.count(Phase::Undone);
    if (failed == 0 && undone == 0)
        return std::nullopt;
    const bool interrupted = Interrupt::instance().isRaised();
    QStringList parts;
    if (failed > 0)
        parts << QStringLiteral("%1 of %2 failed:").arg(failed).arg(countText(batch)) + namesOf(batch, Phase::Failed);
    if (undone > 0)
        parts << (interrupted ? QStringLiteral("interrupted; left undone:") : QStringLiteral("left undone:")) +
                     namesOf(batch, Phase::Undone);
    if (!hint.isEmpty())
        parts << hint;
    QString message = parts.join(QLatin1Char('\n'));
    if (interrupted)
        return Failure(ExitCode::Interrupted, QStringLiteral("Interrupted"), message);
    const auto first = std::find_if(batch.transfers.begin(), batch.transfers.end(),
                                    [](const Transfer &transfer) { return transfer.phase == Phase::Failed; });
    // A lost connection and a failure on this machine have the same code.
    const ApiError error = first == batch.transfers.end() ? ApiError() : first->error;
    const QString unreachable = error.errorCode == 400 ? session.whyUnreachable() : QString();
    if (!unreachable.isEmpty())
        message += QStringLiteral("\ncould not reach %1: %2").arg(shown(session.host()), unreachable);
    const bool lost = error.errorCode == 0 || !unreachable.isEmpty();
    return Failure(lost ? ExitCode::NoConnection : ExitCode::Refused, error, message);
}

QString retryHint(const Options &options, const Batch &batch, const std::string &jobId)
{
    QString names;
    int count = 0;
    bool isUpload = false;
    for (const Transfer &transfer : batch.transfers) {
        if ((transfer.phase != Phase::Failed && transfer.phase != Phase::Undone) || transfer.localPath.isEmpty())
            continue;
        ++count;
        isUpload = transfer.direction == Transfer::Direction::Up;
        names += QLatin1Char(' ') + quoted(isUpload ? transfer.localPath.toStdString() : transfer.file.fileName);
    }
    if (count == 0 || (isUpload && count > MostNames))
        return QString();
    if (isUpload)
        return QStringLiteral("upload the rest with:\n  velmora upload %1%2%3")
            .arg(quoted(jobId), names, sameOptions(options));
    return QStringLiteral("download the rest with:\n  velmora download %1%2 --to %3%4")
        .arg(quoted(jobId), count > MostNames ? QString() : names, quoted(downloadFolder(options, jobId).toStdString()),
             sameOptions(options));
}

QStringList filesBelow(const QString &folder)
{
    QStringList paths;
    const QDir root(QFileInfo(folder).absoluteFilePath());
    QDirIterator files(root.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        if (!files.fileName().startsWith(QLatin1String("UNCONFIRMED_DOWNLOAD.")))
            paths << root.relativeFilePath(path);
    }
    paths.sort();
    return paths;
}

void keepDates(const Batch &batch)
{
    for (const Transfer &transfer : batch.transfers) {
        QFile file(transfer.localPath);
        if (transfer.phase == Phase::Done && transfer.file.fileDate > 0 && file.open(QIODevice::ReadWrite))
            file.setFileTime(QDateTime::fromMSecsSinceEpoch(transfer.file.fileDate), QFileDevice::FileModificationTime);
    }
}

void deleteFiles(Session &session, const std::string &jobId, const std::set<std::string> &names)
{
    constexpr int AtOnce = 32;
    struct Outcome {
        int waiting = 1; // a refusal inside the call must not end the wait before the last call is made
        std::vector<std::pair<std::string, ApiError>> failed;
    };
    const auto outcome = std::make_shared<Outcome>();
    for (auto next = names.begin(); next != names.end();) {
        const auto answer = session.ask<bool>([&](const auto &done) {
            const auto end = [outcome, done] {
                if (--outcome->waiting == 0)
                    done({200, {}, {}}, true);
            };
            outcome->waiting = 1;
            for (int count = 0; count < AtOnce && next != names.end(); ++count, ++next) {
                ++outcome->waiting;
                session.api().deleteFile({jobId, {}, *next},
                                         [outcome, end](const ApiError &error, const DeleteFileDetails &file) {
                                             if (!succeeded(error))
                                                 outcome->failed.emplace_back(file.fileName, error);
                                             end();
                                         });
            }
            end();
        });
        session.check(answer.error);
    }
    if (outcome->failed.empty())
        return;
    const Failure first = session.failureOf(outcome->failed.front().second);
    QString message = QStringLiteral("%1 of %2 not deleted; the first is %3\n  %4")
                          .arg(QString::number(outcome->failed.size()), QString::number(names.size()),
                               shown(outcome->failed.front().first), first.message());
    throw Failure(first.code(), outcome->failed.front().second, message);
}

QString countText(const Batch &batch)
{
    const auto count = batch.transfers.size();
    return QStringLiteral("%1 %2 (%3)")
        .arg(QString::number(count), count == 1 ? QStringLiteral("file") : QStringLiteral("files"),
             sizeText(batch.total()));
}

QString keptText(int count, const char *where)
{
    if (count == 0)
        return QString();
    return QStringLiteral("; %1 of them %2 %3 already")
        .arg(QString::number(count), count == 1 ? QStringLiteral("is") : QStringLiteral("are"), QLatin1String(where));
}

} // namespace Velmora::Cli
