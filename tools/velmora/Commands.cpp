#include "Commands.h"

#include "Follow.h"
#include "JobFile.h"
#include "JobState.h"
#include "Json.h"
#include "Render.h"
#include "Session.h"
#include "Terminal.h"

#include <QJsonDocument>

#include <algorithm>
#include <functional>
#include <vector>

namespace Velmora::Cli {

namespace {

/// A command's result: the JSON document, or text made only when asked for.
void print(const Options &options, const QJsonObject &document, const std::function<QString()> &text)
{
    Terminal::write(Terminal::Stream::Output,
                    options.json ? QString::fromUtf8(QJsonDocument(document).toJson()) : text());
}

QString fitted(const Table &table)
{
    const bool onTerminal = Terminal::isTerminal(Terminal::Stream::Output);
    return table.toString(onTerminal ? Terminal::size(Terminal::Stream::Output).columns : 0);
}

QString number(double value) { return QString::number(value, 'g', 6); }

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

Table jobTable(const std::list<JobDetails> &list)
{
    std::vector<const JobDetails *> sorted;
    for (const JobDetails &entry : list)
        sorted.push_back(&entry);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto *a, const auto *b) { return submittedAt(*a) > submittedAt(*b); });
    Table table({{QStringLiteral("JOB"), Align::Left},
                 {QStringLiteral("NAME"), Align::Left, true},
                 {QStringLiteral("STATUS"), Align::Left},
                 {QStringLiteral("SUBMITTED"), Align::Left},
                 {QStringLiteral("SIMS"), Align::Right},
                 {QStringLiteral("CORES"), Align::Right}});
    for (const JobDetails *entry : sorted)
        table.add({shown(entry->jobId), shown(entry->jobName), shown(statusOf(*entry)),
                   dateText(submittedAt(*entry)).left(16), QString::number(entry->simulations.size()),
                   QString::number(entry->coresRequired)});
    return table;
}

QString jobText(const JobDetails &details)
{
    Table facts({{QString(), Align::Left}, {QString(), Align::Left, true}});
    const auto fact = [&facts](const char *name, const QString &value) { facts.add({QLatin1String(name), value}); };
    fact("Job", shown(details.jobId));
    fact("Name", shown(details.jobName));
    fact("Account", shown(details.accountId));
    fact("Type", shown(details.jobType));
    fact("Operation", shown(details.operation));
    fact("Main file", shown(details.mainFile));
    for (const std::string &file : details.fileDependencies)
        fact("Depends on", shown(file));
    fact("Solver", shown(details.dockerTag));
    fact("Precision", shown(details.precision));
    fact("Cores", QStringLiteral("%1 per simulation").arg(details.coresRequired));
    fact("Memory", QStringLiteral("%1 MB").arg(details.ramEstimate));
    fact("Core hours", QStringLiteral("%1 per simulation").arg(number(details.coreHourEstimate)));
    for (const JobStatusEntry &entry : details.jobStatus)
        fact("Status", QStringLiteral("%1  %2").arg(dateText(entry.jobStatusDate), shown(entry.jobStatus).toLower()));

    Table simulations({{QStringLiteral("SIMULATION"), Align::Left},
                       {QStringLiteral("STATUS"), Align::Left},
                       {QStringLiteral("PARAMETERS"), Align::Left, true}});
    for (const SimulationDetails &simulation : details.simulations)
        simulations.add(
            {shown(simulation.simulationId), shown(statusOf(simulation)), shown(simulation.consoleParameters)});
    const QString text = fitted(facts);
    return text.mid(text.indexOf(QLatin1Char('\n')) + 1) + QLatin1Char('\n') + fitted(simulations);
}

QJsonObject jobListJson(const std::list<JobDetails> &list)
{
    return {{QStringLiteral("jobDetailsList"), toJsonArray(list)}};
}

void warn(const Options &options, const QString &text)
{
    if (!options.quiet)
        Terminal::write(Terminal::Stream::Error, QStringLiteral("warning: %1\n").arg(text));
}

JobSubmit checkedJob(const Options &options)
{
    const JobFile file = readJobFile(options);
    for (const QString &warning : file.warnings)
        warn(options, warning);
    const auto errors = failedChecks(file.job);
    if (errors.empty())
        return file.job;
    const QStringList messages = checkMessages(file.job, errors);
    throw Failure(ExitCode::WrongUse, QStringLiteral("Bad Job Definition"),
                  QStringLiteral("%1 is not valid:\n  %2")
                      .arg(QString::fromStdString(options.jobFile), messages.join(QLatin1String("\n  "))))
        .with(QStringLiteral("valid"), false)
        .with(QStringLiteral("failedChecks"), checksJson(errors));
}

/// The account to charge when neither the file nor the arguments name one: the only one there is.
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

JobDetails submit(Session &session, const Options &options, JobSubmit job)
{
    if (job.accountID.empty())
        job.accountID = onlyAccount(session);
    job.jobID = session.get<std::string>(
        [&](const auto &done) { session.api().generateNewJobID(job.accountID, options.hpcId, done); });
    if (job.jobID.empty())
        throw Failure(ExitCode::Refused, QStringLiteral("Error Submitting Job"),
                      QStringLiteral("the service gave out no job id"));
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

/// Follows the job, then ends the command with its table or by what went wrong.
void followToEnd(Session &session, const Options &options, ProgressView &view, JobState &state)
{
    Follow follow(session, state, view, options);
    const Follow::End end = follow.run();
    const QString jobId = shown(state.job.jobId);
    const QString again = QStringLiteral("watch it again with:\n  velmora watch %1%2").arg(jobId, sameOptions(options));
    const QString key = QStringLiteral("jobId");
    const QString value = QString::fromStdString(state.job.jobId);
    switch (end) {
    case Follow::End::Finished:
        print(options, toJson(state.job), [&] { return statusText(state); });
        return;
    case Follow::End::NotFinished:
        if (!options.json)
            print(options, {}, [&] { return statusText(state); });
        throw Failure(ExitCode::NotFinished, QStringLiteral("Job Not Finished"),
                      QStringLiteral("%1 did not finish: it was %2").arg(jobId, shown(outcomeOf(state.job))))
            .with(QStringLiteral("job"), toJson(state.job));
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
}

JobDetails load(Session &session, const Options &options)
{
    auto details = session.get<JobDetails>([&](const auto &done) { session.api().getJobDetails(options.jobId, done); });
    if (details.jobId.empty())
        details.jobId = options.jobId;
    return details;
}

} // namespace

void login(const Options &options)
{
    Session session(options);
    session.signIn();
    const QString mfa = session.usedMfa() ? QStringLiteral(", with a one-time code") : QString();
    print(options,
          {{QStringLiteral("user"), QString::fromStdString(session.user())},
           {QStringLiteral("host"), QString::fromStdString(session.host())},
           {QStringLiteral("mfa"), session.usedMfa()}},
          [&] {
              return QStringLiteral("%1 can sign in to %2%3\n").arg(shown(session.user()), shown(session.host()), mfa);
          });
}

void run(const Options &options)
{
    const JobSubmit definition = checkedJob(options);
    Session session(options);
    session.signIn();
    JobState state;
    state.job = submit(session, options, definition);
    ProgressView view(progressMode(options));
    view.notice(QStringLiteral("submitted %1").arg(shown(state.job.jobId)));
    followToEnd(session, options, view, state);
}

void watch(const Options &options)
{
    Session session(options);
    session.signIn();
    JobState state;
    state.job = load(session, options);
    ProgressView view(progressMode(options));
    followToEnd(session, options, view, state);
}

void jobs(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto list =
        session.get<std::list<JobDetails>>([&](const auto &done) { session.api().getAllJobDetails(done); });
    print(options, jobListJson(list), [&] { return fitted(jobTable(list)); });
}

void job(const Options &options)
{
    Session session(options);
    session.signIn();
    const JobDetails details = load(session, options);
    print(options, toJson(details), [&] { return jobText(details); });
}

void progress(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto result =
        session.get<JobProgress>([&](const auto &done) { session.api().getJobProgress(options.jobId, done); });
    print(options, toJson(result), [&] {
        const BarStyle style = BarStyle::forTerminal(Terminal::speaksUtf8());
        Table table({{QStringLiteral("SIMULATION"), Align::Left},
                     {QStringLiteral("DONE"), Align::Right},
                     {QString(), Align::Left}});
        for (const SimulationProgress &entry : result.simulationProgressList)
            table.add({shown(entry.simulationId), QStringLiteral("%1%").arg(percent(entry.progress)),
                       bar(entry.progress, 20, style)});
        return fitted(table);
    });
}

void stop(const Options &options)
{
    Session session(options);
    session.signIn();
    std::list<SimulationAbortState> states;
    if (options.simulationId.empty())
        states = session.get<std::list<SimulationAbortState>>(
            [&](const auto &done) { session.api().killJob(options.jobId, done); });
    else
        states.push_back(session.get<SimulationAbortState>(
            [&](const auto &done) { session.api().killSimulation(options.jobId, options.simulationId, done); }));
    print(options, {{QStringLiteral("simulationAbortList"), toJsonArray(states)}}, [&] {
        Table table({{QStringLiteral("SIMULATION"), Align::Left}, {QStringLiteral("STATUS"), Align::Left, true}});
        for (const SimulationAbortState &state : states)
            table.add({shown(state.simulationId), shown(state.status).toLower()});
        return fitted(table);
    });
}

void archive(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto list =
        session.get<std::list<JobDetails>>([&](const auto &done) { session.api().archiveJob(options.jobId, done); });
    print(options, jobListJson(list),
          [&] { return QStringLiteral("archived %1\n\n").arg(shown(options.jobId)) + fitted(jobTable(list)); });
}

void validate(const Options &options)
{
    checkedJob(options);
    print(options, {{QStringLiteral("valid"), true}, {QStringLiteral("failedChecks"), QJsonArray()}},
          [&] { return QStringLiteral("%1 is valid\n").arg(QString::fromStdString(options.jobFile)); });
}

void status(const Options &options)
{
    Session session(options);
    const int reached = session.api().currentNetworkStatus();
    if (reached != 1)
        throw session.noConnection();
    print(
        options,
        {{QStringLiteral("host"), QString::fromStdString(session.host())}, {QStringLiteral("networkStatus"), reached}},
        [&] { return QStringLiteral("%1 answers\n").arg(shown(session.host())); });
}

} // namespace Velmora::Cli
