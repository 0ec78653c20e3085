#include "common/Output.h"

#include "common/JobState.h"
#include "common/Json.h"
#include "common/Progress.h"
#include "common/Terminal.h"

#include <QJsonDocument>

#include <algorithm>

namespace Velmora::Cli {

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

QString fitted(const Facts &facts)
{
    Table table({{QString(), Align::Left}, {QString(), Align::Left, true}});
    for (const auto &[name, value] : facts)
        table.add({QLatin1String(name), value});
    const QString text = fitted(table);
    return text.mid(text.indexOf(QLatin1Char('\n')) + 1);
}

void sortNewestFirst(std::list<JobDetails> &list)
{
    list.sort([](const JobDetails &a, const JobDetails &b) { return submittedAt(a) > submittedAt(b); });
}

Table jobTable(const std::list<JobDetails> &list)
{
    Table table({{QStringLiteral("JOB"), Align::Left},
                 {QStringLiteral("NAME"), Align::Left, true},
                 {QStringLiteral("STATUS"), Align::Left},
                 {QStringLiteral("SUBMITTED"), Align::Left},
                 {QStringLiteral("SIMS"), Align::Right},
                 {QStringLiteral("CORES"), Align::Right}});
    for (const JobDetails &entry : list)
        table.add({shown(entry.jobId), shown(entry.jobName), shown(statusOf(entry)),
                   dateText(submittedAt(entry)).left(16), QString::number(entry.simulations.size()),
                   QString::number(entry.coresRequired)});
    return table;
}

QJsonObject jobListJson(const std::list<JobDetails> &list)
{
    return {{QStringLiteral("jobDetailsList"), toJsonArray(list)}};
}

void confirm(const Options &options, const QString &question)
{
    if (options.yes)
        return;
    const auto answer = Terminal::ask(question + QStringLiteral(" [y/N] "), Terminal::Echo::On);
    if (Interrupt::instance().isRaised())
        throw Failure(ExitCode::Interrupted, QStringLiteral("Interrupted"), QStringLiteral("interrupted"));
    if (!answer)
        throw Failure(ExitCode::WrongUse, QStringLiteral("Not Confirmed"),
                      question + QStringLiteral("\nThere is no terminal to answer on; give --yes."));
    if (!answer->trimmed().startsWith(QLatin1Char('y'), Qt::CaseInsensitive))
        throw Failure(ExitCode::Refused, QStringLiteral("Not Confirmed"), QStringLiteral("nothing was done"));
}

void warn(const Options &options, const QString &text) { notice(options, QStringLiteral("warning: ") + text); }

} // namespace Velmora::Cli
