#include "commands/Commands.h"

#include "common/JobState.h"
#include "common/Json.h"
#include "common/Output.h"
#include "common/Progress.h"
#include "common/Render.h"
#include "common/Terminal.h"
#include "run/JobFile.h"
#include "session/Session.h"

#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>

namespace Velmora::Cli {

namespace {

QString number(double value) { return QString::number(value, 'g', 6); }

QString jobText(const JobDetails &details)
{
    Facts facts;
    const auto fact = [&facts](const char *name, const QString &value) { facts.push_back({name, value}); };
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
    return fitted(facts) + QLatin1Char('\n') + fitted(simulations);
}

std::list<JobDetails> allJobs(Session &session)
{
    auto list = session.get<std::list<JobDetails>>([&](const auto &done) { session.api().getAllJobDetails(done); });
    sortNewestFirst(list);
    return list;
}

/// The running jobs, one per line; empty when none is running.
QString runningJobs(Session &session, int columns)
{
    Table table({{QStringLiteral("JOB"), Align::Left},
                 {QStringLiteral("NAME"), Align::Left, true},
                 {QStringLiteral("STATUS"), Align::Left},
                 {QStringLiteral("SIMS"), Align::Right},
                 {QStringLiteral("DONE"), Align::Right},
                 {QString(), Align::Left}});
    bool isAny = false;
    for (const JobDetails &entry : allJobs(session)) {
        if (endOf(entry) != JobEnd::Going)
            continue;
        isAny = true;
        const auto result =
            session.get<JobProgress>([&](const auto &done) { session.api().getJobProgress(entry.jobId, done); });
        int sum = 0;
        for (const SimulationProgress &simulation : result.simulationProgressList)
            sum += percent(simulation.progress);
        const int share = sum / std::max<int>(1, int(entry.simulations.size()));
        table.add({shown(entry.jobId), shown(entry.jobName), shown(statusOf(entry)),
                   QString::number(entry.simulations.size()), QStringLiteral("%1%").arg(share),
                   bar(share, 20, BarStyle::forTerminal(Terminal::supportsUtf8()))});
    }
    return isAny ? table.toString(columns) : QString();
}

/// Shows them until none is running any more: redrawn in place on a terminal, else whenever something has changed.
void showRunningJobs(Session &session, const Options &options)
{
    constexpr int PauseMs = 3000;
    const auto write = [](const QString &text) { Terminal::write(Terminal::Stream::Output, text); };
    const bool onTerminal = Terminal::isTerminal(Terminal::Stream::Output);
    LiveBlock block(write);
    QElapsedTimer silence;
    QString last;
    for (silence.start();;) {
        const int columns = onTerminal ? Terminal::size(Terminal::Stream::Output).columns : 0;
        try {
            const QString text = runningJobs(session, columns);
            silence.start();
            if (text.isEmpty())
                break;
            if (onTerminal)
                block.show(text.split(QLatin1Char('\n'), Qt::SkipEmptyParts), columns);
            else if (text != last)
                write(text);
            last = text;
        } catch (const Failure &failure) {
            if (failure.code() != ExitCode::NoConnection || silence.elapsed() > options.patienceSeconds * 1000)
                throw;
        }
        session.ask<bool>([](const auto &done) { QTimer::singleShot(PauseMs, [done] { done({200, {}, {}}, true); }); });
    }
    write(last.isEmpty() ? QStringLiteral("no job is running\n") : QStringLiteral("no job is running any more\n"));
}

} // namespace

void jobs(const Options &options)
{
    if (options.live && options.json)
        throw Failure(ExitCode::WrongUse, QStringLiteral("Wrong Use"),
                      QStringLiteral("--watch shows a table that changes; without it --json gives one document"));
    Session session(options);
    session.signIn();
    if (options.live) {
        showRunningJobs(session, options);
        return;
    }
    const auto list = allJobs(session);
    print(options, jobListJson(list), [&] { return fitted(jobTable(list)); });
}

void job(const Options &options)
{
    Session session(options);
    session.signIn();
    const JobDetails details = session.job(options.jobId);
    print(options, toJson(details), [&] { return jobText(details); });
}

void progress(const Options &options)
{
    Session session(options);
    session.signIn();
    const auto result =
        session.get<JobProgress>([&](const auto &done) { session.api().getJobProgress(options.jobId, done); });
    print(options, toJson(result), [&] {
        const BarStyle style = BarStyle::forTerminal(Terminal::supportsUtf8());
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
    auto list =
        session.get<std::list<JobDetails>>([&](const auto &done) { session.api().archiveJob(options.jobId, done); });
    sortNewestFirst(list);
    print(options, jobListJson(list),
          [&] { return QStringLiteral("archived %1\n\n").arg(shown(options.jobId)) + fitted(jobTable(list)); });
}

void validate(const Options &options)
{
    checkedJobFile(options);
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
