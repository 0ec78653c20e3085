#include "Output.h"

#include "Json.h"
#include "ProgressView.h"
#include "Terminal.h"

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

QJsonObject jobListJson(const std::list<JobDetails> &list)
{
    return {{QStringLiteral("jobDetailsList"), toJsonArray(list)}};
}

void warn(const Options &options, const QString &text) { notice(options, QStringLiteral("warning: ") + text); }

} // namespace Velmora::Cli
