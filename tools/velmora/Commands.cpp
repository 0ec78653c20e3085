#include "Commands.h"

#include "JobFile.h"
#include "JobState.h"
#include "Json.h"
#include "Output.h"
#include "Render.h"
#include "Session.h"
#include "Terminal.h"

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
    const auto list =
        session.get<std::list<JobDetails>>([&](const auto &done) { session.api().archiveJob(options.jobId, done); });
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
