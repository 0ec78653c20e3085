#include "Commands.h"

#include "Files.h"
#include "Follow.h"
#include "JobFile.h"
#include "Json.h"
#include "Output.h"

#include <QFileInfo>

#include <algorithm>

namespace Velmora::Cli {

namespace {

Table simulationTable(const JobState &state)
{
    Table table({{QStringLiteral("SIMULATION"), Align::Left},
                 {QStringLiteral("STATUS"), Align::Left},
                 {QStringLiteral("DONE"), Align::Right},
                 {QStringLiteral("PARAMETERS"), Align::Left, true}});
    for (const SimulationDetails &simulation : state.job.simulations)
        table.add({shown(simulation.simulationId), shown(statusOf(simulation)),
                   QStringLiteral("%1%").arg(state.progressOf(simulation)), shown(simulation.consoleParameters)});
    return table;
}

QString statusText(const JobState &state)
{
    const JobDetails &job = state.job;
    const long long seconds = (changedAt(job) - submittedAt(job)) / 1000;
    return QStringLiteral("%1  %2  %3, %4 after it was submitted\n\n%5")
        .arg(shown(job.jobId), shown(job.jobName), shown(statusOf(job)), durationText(seconds),
             fitted(simulationTable(state)));
}

/// The account to charge when neither the file nor the arguments name one: the user's only one.
std::string onlyAccount(Session &session)
{
    const auto accounts =
        session.get<std::list<AccountDetails>>([&](const auto &done) { session.api().getAccountList(done); });
    if (accounts.size() == 1)
        return accounts.front().accountId;
    QString message = QStringLiteral("no account to charge: give --account, or accountID in the job file");
    for (const AccountDetails &account : accounts)
        message += QStringLiteral("\n  %1  %2").arg(shown(account.accountId), shown(account.accountName));
    throw Failure(ExitCode::WrongUse, QStringLiteral("No Account"), message);
}

std::string baseName(const std::string &path)
{
    return QFileInfo(QString::fromStdString(path)).fileName().toStdString();
}

Failure failedUploads(const Failure &failure, const Batch &uploads, const std::string &jobId)
{
    return Failure(failure)
        .with(QStringLiteral("jobId"), QString::fromStdString(jobId))
        .with(QStringLiteral("uploads"), uploads.toJson());
}

/// Uploads the inputs under a new job id, then submits. `uploads` receives the outcome of each upload.
JobDetails submit(Session &session, const Options &options, JobSubmit job, const QStringList &inputs, Batch &uploads)
{
    if (job.accountID.empty())
        job.accountID = onlyAccount(session);
    job.jobID = session.get<std::string>(
        [&](const auto &done) { session.api().generateNewJobID(job.accountID, options.hpcId, done); });
    if (job.jobID.empty())
        throw Failure(ExitCode::Refused, QStringLiteral("Error Submitting Job"),
                      QStringLiteral("the service gave out no job id"));
    if (!inputs.isEmpty()) {
        uploads = uploadsOf(inputs, job.jobID);
        moveFiles(session, options, QStringLiteral("uploading %1 to %2").arg(countText(uploads), shown(job.jobID)),
                  uploads);
        if (const auto failure = batchFailure(session, uploads, QStringLiteral("no job was submitted")))
            throw failedUploads(*failure, uploads, job.jobID);
        // The storage has no folders.
        job.mainFile = baseName(job.mainFile);
        for (std::string &name : job.dependentFilesList)
            name = baseName(name);
    }
    const QString hint = QStringLiteral("whether %1 was submitted is not known; see:\n  velmora job %1%2")
                             .arg(shown(job.jobID), sameOptions(options));
    try {
        JobDetails details = session.get<JobDetails>([&](const auto &done) { session.api().submitNewJob(job, done); });
        if (details.jobId.empty())
            details.jobId = job.jobID;
        return details;
    } catch (const Failure &failure) {
        if (failure.code() == ExitCode::Refused)
            throw;
        throw Failure(failure.code(), QStringLiteral("Error Submitting Job"),
                      failure.message() + QLatin1Char('\n') + hint)
            .with(QStringLiteral("jobId"), QString::fromStdString(job.jobID));
    }
}

/// Follows the job to its end, finished or not. Throws `Failure` when it can no longer be followed.
Follow::End follow(Session &session, const Options &options, JobState &state, const QString &notice = QString())
{
    ProgressView view(progressMode(options));
    if (!notice.isEmpty())
        view.notice(notice);
    Follow follow(session, state, view, options);
    const Follow::End end = follow.run();
    const QString jobId = shown(state.job.jobId);
    const QString again = QStringLiteral("watch it again with:\n  velmora watch %1%2").arg(jobId, sameOptions(options));
    const QString key = QStringLiteral("jobId");
    const QString value = QString::fromStdString(state.job.jobId);
    switch (end) {
    case Follow::End::Finished:
    case Follow::End::NotFinished:
        break;
    case Follow::End::Refused:
        throw Failure(ExitCode::Refused, follow.error(), errorText(follow.error()) + QLatin1Char('\n') + again)
            .with(key, value);
    case Follow::End::Unreachable:
        throw Failure(ExitCode::NoConnection, QStringLiteral("No Connection"),
                      QStringLiteral("%1\n%2 may go on; %3").arg(session.noConnection().message(), jobId, again))
            .with(key, value);
    case Follow::End::Interrupted:
        throw Failure(ExitCode::Interrupted, QStringLiteral("Interrupted"),
                      QStringLiteral("%1 goes on at the service; %2").arg(jobId, again))
            .with(key, value);
    }
    return end;
}

/// Downloads the job's results. @return the error, if not all of them arrived.
std::optional<Failure> fetchResults(Session &session, const Options &options, const JobDetails &job, Batch &downloads)
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
    std::list<std::string> inputs = job.fileDependencies;
    inputs.push_back(job.mainFile);
    listing.remove_if([&](const CloudFile &file) {
        return std::any_of(inputs.begin(), inputs.end(),
                           [&](const std::string &input) { return baseName(input) == file.fileName; });
    });
    downloads = downloadsOf(listing, folder);
    if (downloads.transfers.empty())
        return std::nullopt;
    moveFiles(session, options,
              QStringLiteral("downloading %1 to %2").arg(countText(downloads), shown(folder.toStdString())), downloads);
    return batchFailure(session, downloads, retryHint(options, downloads, job.jobId));
}

Failure notFinished(const JobDetails &job, const QString &more)
{
    QString message = QStringLiteral("%1 did not finish: it was %2").arg(shown(job.jobId), shown(outcomeOf(job)));
    if (!more.isEmpty())
        message += QLatin1Char('\n') + more;
    return Failure(ExitCode::NotFinished, QStringLiteral("Job Not Finished"), message)
        .with(QStringLiteral("job"), toJson(job));
}

} // namespace

void run(const Options &options)
{
    const JobFile file = checkedJobFile(options);
    const QStringList inputs = options.noUpload ? QStringList() : checkedInputs(file.inputs);
    if (!options.noDownload)
        checkDownloadFolder(options);
    Session session(options);
    session.signIn();
    JobState state;
    Batch uploads;
    state.job = submit(session, options, file.job, inputs, uploads);
    const Follow::End end = follow(session, options, state, QStringLiteral("submitted %1").arg(shown(state.job.jobId)));

    // The results of a job that did not finish may show why.
    Batch downloads;
    std::optional<Failure> problem;
    if (!options.noDownload)
        problem = fetchResults(session, options, state.job, downloads);
    const auto text = [&] {
        QString result = statusText(state);
        if (!options.noDownload && !problem)
            result += downloads.transfers.empty()
                          ? QStringLiteral("\nno result files\n")
                          : QStringLiteral("\n%1 in %2\n")
                                .arg(countText(downloads), downloadFolder(options, state.job.jobId));
        return result;
    };
    if (end == Follow::End::Finished && !problem) {
        QJsonObject document = toJson(state.job);
        document.insert(QStringLiteral("uploads"), uploads.toJson());
        document.insert(QStringLiteral("downloads"), downloads.toJson());
        print(options, document, text);
        return;
    }
    if (!options.json)
        print(options, {}, text);
    const bool interrupted = problem && problem->code() == ExitCode::Interrupted;
    if (end == Follow::End::NotFinished && !interrupted)
        problem = notFinished(state.job, problem ? problem->message() : QString());
    throw problem->with(QStringLiteral("job"), toJson(state.job))
        .with(QStringLiteral("uploads"), uploads.toJson())
        .with(QStringLiteral("downloads"), downloads.toJson());
}

void watch(const Options &options)
{
    Session session(options);
    session.signIn();
    JobState state;
    state.job = session.job(options.jobId);
    const Follow::End end = follow(session, options, state);
    if (end == Follow::End::Finished || !options.json)
        print(options, toJson(state.job), [&] { return statusText(state); });
    if (end == Follow::End::NotFinished)
        throw notFinished(state.job, QString());
}

} // namespace Velmora::Cli
