#include "commands/Commands.h"

#include "common/Json.h"
#include "common/Output.h"
#include "run/Follow.h"
#include "run/Results.h"
#include "run/Submission.h"

#include <algorithm>
#include <set>

namespace Velmora::Cli {

namespace {

QJsonObject joined(QJsonObject object, const QJsonObject &more)
{
    for (auto member = more.begin(); member != more.end(); ++member)
        object.insert(member.key(), member.value());
    return object;
}

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

/// Follows the job to its end, finished or not. Throws `Failure` when it can no longer be followed.
Follow::End follow(Session &session, const Options &options, JobState &state)
{
    if (const JobEnd end = endOf(state.job); end != JobEnd::Going)
        return end == JobEnd::Finished ? Follow::End::Finished : Follow::End::NotFinished;
    ProgressView view(progressMode(options));
    Follow follow(session, state, view, options);
    const Follow::End end = follow.run();
    const QString jobId = shown(state.job.jobId);
    QString again = QStringLiteral("watch it again with:\n  velmora watch %1%2").arg(jobId, sameOptions(options));
    if (!options.jobFile.empty())
        again = QStringLiteral("run the same command again to go on, or ") + again;
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

Failure notFinished(const JobDetails &job, const QString &more)
{
    QString message = QStringLiteral("%1 did not finish: it was %2").arg(shown(job.jobId), shown(outcomeOf(job)));
    if (!more.isEmpty())
        message += QLatin1Char('\n') + more;
    return Failure(ExitCode::NotFinished, QStringLiteral("Job Not Finished"), message)
        .with(QStringLiteral("job"), toJson(job));
}

void printSubmitted(const Options &options, const JobDetails &job, const QJsonObject &more)
{
    print(options, joined(toJson(job), more), [&] {
        return QStringLiteral("%1  %2  %3\n\nwait for it and fetch its results with:\n  velmora watch %4 --to %5%6\n")
            .arg(shown(job.jobId), shown(job.jobName), shown(statusOf(job)), quoted(job.jobId),
                 quoted(downloadFolder(options, job.jobId).toStdString()), sameOptions(options));
    });
}

/// How a job that was followed ended, and what is to be said of it.
struct Ending {
    const JobState &state;
    Follow::End end;
    Journal *journal; ///< may be null
    QString hint;     ///< on a job that did not finish
    QJsonObject more; ///< of the document, beside the job
    bool hasFetched;
};

/// Fetches the results and prints the outcome. Throws `Failure` unless the job finished and all of them are here.
void conclude(Session &session, const Options &options, Ending &ending, bool fetches)
{
    const JobDetails &job = ending.state.job;
    // The results of a job that did not finish may show why.
    Batch downloads;
    std::optional<Failure> problem;
    if (fetches) {
        problem = fetchResults(session, options, job, downloads, ending.journal);
        ending.hasFetched = std::any_of(downloads.transfers.begin(), downloads.transfers.end(),
                                        [](const Transfer &transfer) { return !transfer.kept; });
        ending.more.insert(QStringLiteral("downloads"), downloads.toJson());
        writeTable(options, job);
    }
    const auto text = [&] {
        QString result = statusText(ending.state);
        if (fetches && !problem)
            result +=
                downloads.transfers.empty()
                    ? QStringLiteral("\nno result files\n")
                    : QStringLiteral("\n%1 in %2\n").arg(countText(downloads), downloadFolder(options, job.jobId));
        return result;
    };
    if (ending.end == Follow::End::Finished && !problem) {
        print(options, joined(toJson(job), ending.more), text);
        return;
    }
    if (!options.json)
        print(options, {}, text);
    const bool interrupted = problem && problem->code() == ExitCode::Interrupted;
    if (ending.end == Follow::End::NotFinished && !interrupted)
        problem = notFinished(job, problem ? problem->message() : ending.hint);
    throw problem->with(QStringLiteral("job"), toJson(job)).with(ending.more);
}

} // namespace

void run(const Options &options)
{
    const JobFile file = checkedJobFile(options);
    Journal journal(options);
    if (options.again)
        journal.forget();
    Session session(options);
    Submission submission(session, options, file, journal);
    if (journal.submission() == Journal::Submission::Done)
        submission.checkUnchanged();
    const auto inputs = [&] { return options.noUpload ? QStringList() : checkedInputs(file.inputs); };
    if (journal.submission() == Journal::Submission::None)
        inputs(); // complains before anybody is asked for a password
    if (!options.noDownload && !options.noWait)
        checkDownloadFolder(options);
    checkTable(options);
    session.signIn();

    JobState state;
    Batch uploads;
    const auto earlier = submission.earlier();
    state.job = earlier ? *earlier : submission.submit(inputs(), uploads);
    const QString id = shown(state.job.jobId);
    notice(options, earlier
                        ? QStringLiteral("going on with %1, submitted at %2").arg(id, dateText(submittedAt(*earlier)))
                        : QStringLiteral("submitted %1").arg(id));
    if (options.noWait) {
        printSubmitted(options, state.job, {{QStringLiteral("uploads"), uploads.toJson()}});
        return;
    }
    const bool wasOver = endOf(state.job) != JobEnd::Going;
    const Follow::End end = follow(session, options, state);
    Ending ending{state, end, &journal, QStringLiteral("start a new job with --again"), {}, false};
    ending.more.insert(QStringLiteral("uploads"), uploads.toJson());
    conclude(session, options, ending, !options.noDownload);
    if (wasOver && !ending.hasFetched)
        notice(options, QStringLiteral("nothing was left to do; start a new job with --again"));
}

void watch(const Options &options)
{
    const bool fetches = !options.folder.empty();
    if (fetches)
        checkDownloadFolder(options);
    checkTable(options);
    Session session(options);
    session.signIn();
    JobState state;
    state.job = session.job(options.jobId);
    const Follow::End end = follow(session, options, state);
    Ending ending{state, end, nullptr, {}, {}, false};
    conclude(session, options, ending, fetches);
}

void newJob(const Options &options)
{
    Session session(options);
    session.signIn();
    const std::string account = accountToCharge(session, options.accountId);
    const auto id = session.get<std::string>(
        [&](const auto &done) { session.api().generateNewJobID(account, options.hpcId, done); });
    print(options,
          {{QStringLiteral("jobId"), QString::fromStdString(id)},
           {QStringLiteral("accountId"), QString::fromStdString(account)}},
          [&] { return shown(id) + QLatin1Char('\n'); });
}

void submit(const Options &options)
{
    JobSubmit job = checkedJobFile(options).job;
    Session session(options);
    session.signIn();
    job.jobID = options.jobId;
    job.accountID = accountToCharge(session, job.accountID);
    dropFolders(job);
    const auto listing = session.get<std::list<CloudFile>>(
        [&](const auto &done) { session.api().getJobFileList(job.jobID, true, done); });
    std::set<std::string> missing(job.dependentFilesList.begin(), job.dependentFilesList.end());
    missing.insert(job.mainFile);
    for (const CloudFile &file : listing)
        missing.erase(file.fileName);
    if (!missing.empty()) {
        QString message =
            QStringLiteral("no job was submitted: %1 lacks inputs, upload them first:").arg(shown(job.jobID));
        for (const std::string &name : missing)
            message += QStringLiteral("\n  ") + shown(name);
        throw Failure(ExitCode::WrongUse, QStringLiteral("Missing Inputs"), message);
    }
    checkCost(session, options, job);
    const auto answer = session.ask<JobDetails>([&](const auto &done) { session.api().submitNewJob(job, done); });
    if (answer.error.errorCode == 0) {
        const Failure failure = session.failureOf(answer.error);
        throw Failure(failure.code(), QStringLiteral("Error Submitting Job"),
                      QStringLiteral("%1\nwhether %2 was submitted is not known; see:\n  velmora job %2%3")
                          .arg(failure.message(), shown(job.jobID), sameOptions(options)));
    }
    session.check(answer.error);
    printSubmitted(options, answer.result, {});
}

} // namespace Velmora::Cli
