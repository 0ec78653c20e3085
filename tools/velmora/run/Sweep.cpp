#include "run/Sweep.h"

#include "common/Options.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

namespace Velmora::Cli {

namespace {

constexpr int MostSimulations = 1000;
constexpr double Tolerance = 1e-9; // of a step: 0.1 has no exact form

using Row = std::map<QString, QString>;

Failure refuse(const QString &pattern, const QString &why)
{
    return Failure(ExitCode::WrongUse, QStringLiteral("Bad Sweep"), QStringLiteral("--each %1: %2").arg(pattern, why));
}

int decimalsOf(const QString &number)
{
    const int point = number.indexOf(QLatin1Char('.'));
    return point < 0 ? 0 : number.size() - point - 1;
}

/// The values between a pair of braces.
QStringList valuesOf(const QString &pattern, const QString &inside)
{
    static const QRegularExpression range(QStringLiteral(
        "^\\s*([-+]?\\d+(?:\\.\\d+)?)\\.\\.([-+]?\\d+(?:\\.\\d+)?)(?:\\.\\.([-+]?\\d+(?:\\.\\d+)?))?\\s*$"));
    const auto match = range.match(inside);
    if (!match.hasMatch()) {
        if (inside.trimmed().isEmpty())
            throw refuse(pattern, QStringLiteral("there is nothing between \"{\" and \"}\""));
        if (inside.contains(QLatin1String("..")))
            throw refuse(pattern,
                         QStringLiteral("\"{%1}\" is no range; write {FROM..TO} or {FROM..TO..STEP}").arg(inside));
        QStringList values;
        for (const QString &value : inside.split(QLatin1Char(',')))
            values << value.trimmed();
        return values;
    }
    const double from = match.captured(1).toDouble(), to = match.captured(2).toDouble();
    const double step = match.captured(3).isEmpty() ? 1 : std::abs(match.captured(3).toDouble());
    const double count = step > 0 ? std::floor(std::abs(to - from) / step + Tolerance) + 1 : 0;
    if (count < 1 || count > MostSimulations)
        throw refuse(pattern, step > 0
                                  ? QStringLiteral("\"{%1}\" has more than %2 values").arg(inside).arg(MostSimulations)
                                  : QStringLiteral("the step of \"{%1}\" is 0").arg(inside));
    const int decimals =
        std::max({decimalsOf(match.captured(1)), decimalsOf(match.captured(2)), decimalsOf(match.captured(3))});
    QStringList values;
    for (int i = 0; i < int(count); ++i)
        values << QString::number(from + (to < from ? -step : step) * i, 'f', decimals);
    return values;
}

/// The options of a solver's command line, such as "-load 8 -fast": a value, or nothing, by name.
Row parametersOf(const QString &line, QStringList &names)
{
    static const QRegularExpression number(QStringLiteral("^-\\.?\\d"));
    Row row;
    QString name;
    for (const QString &word : line.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        if (word.startsWith(QLatin1Char('-')) && !number.match(word).hasMatch()) {
            name = word;
            row[name] = QString();
            if (!names.contains(name))
                names << name;
        } else if (!name.isEmpty()) {
            row[name] += (row[name].isEmpty() ? QString() : QStringLiteral(" ")) + word;
        }
    }
    return row;
}

QString numberText(double value)
{
    const bool isWhole = std::abs(value) < 1e15 && value == std::floor(value);
    return isWhole ? QString::number(qint64(value)) : QString::number(value, 'g', QLocale::FloatingPointShortest);
}

void flatten(const QString &prefix, const QJsonObject &object, Row &row, QStringList &names)
{
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString name = prefix + member.key();
        if (member->isObject()) {
            flatten(name + QLatin1Char('.'), member->toObject(), row, names);
            continue;
        }
        if (member->isArray() || member->isNull())
            continue;
        row[name] = member->isDouble() ? numberText(member->toDouble())
                    : member->isBool() ? (member->toBool() ? QStringLiteral("true") : QStringLiteral("false"))
                                       : member->toString();
        if (!names.contains(name))
            names << name;
    }
}

QJsonObject summaryIn(const QString &folder)
{
    QFile file(QDir(folder).filePath(QStringLiteral("summary.json")));
    return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
}

QString cell(QString text)
{
    static const QRegularExpression special(QStringLiteral("[\",\r\n]"));
    if (!special.match(text).hasMatch())
        return text;
    return QLatin1Char('"') + text.replace(QLatin1Char('"'), QLatin1String("\"\"")) + QLatin1Char('"');
}

} // namespace

QStringList sweepOf(const QString &pattern)
{
    QStringList combinations{QString()};
    int at = 0;
    const auto append = [&](const QStringList &values) {
        if (qint64(combinations.size()) * values.size() > MostSimulations)
            throw refuse(pattern, QStringLiteral("more than %1 simulations").arg(MostSimulations));
        QStringList longer;
        for (const QString &head : std::as_const(combinations))
            for (const QString &value : values)
                longer << head + value;
        combinations = longer;
    };
    while (at < pattern.size()) {
        const int open = pattern.indexOf(QLatin1Char('{'), at);
        const int close = pattern.indexOf(QLatin1Char('}'), at);
        if (open < 0 && close < 0)
            break;
        if (open < 0 || close < open || pattern.mid(open + 1, close - open - 1).contains(QLatin1Char('{')))
            throw refuse(pattern, QStringLiteral("\"{\" and \"}\" do not match"));
        append({pattern.mid(at, open - at)});
        append(valuesOf(pattern, pattern.mid(open + 1, close - open - 1)));
        at = close + 1;
    }
    append({pattern.mid(at)});
    return combinations;
}

QByteArray summaryTable(const JobDetails &job, const QString &folder)
{
    QStringList parameterNames, summaryNames;
    std::vector<std::pair<Row, Row>> rows; // parameters, summary
    for (const SimulationDetails &simulation : job.simulations) {
        Row summary;
        QJsonObject object = summaryIn(QDir(folder).filePath(QString::fromStdString(simulation.simulationId)));
        for (const char *known : {"jobId", "simulationId", "consoleParameters"})
            object.remove(QLatin1String(known));
        flatten(QString(), object, summary, summaryNames);
        rows.emplace_back(parametersOf(QString::fromStdString(simulation.consoleParameters), parameterNames), summary);
    }
    QStringList titles{QStringLiteral("simulation"), QStringLiteral("status")};
    titles += parameterNames + summaryNames;
    QStringList lines;
    const auto add = [&lines](const QStringList &cells) {
        QStringList quoted;
        for (const QString &each : cells)
            quoted << cell(each);
        lines << quoted.join(QLatin1Char(',')) + QLatin1String("\r\n");
    };
    add(titles);
    auto row = rows.begin();
    for (const SimulationDetails &simulation : job.simulations) {
        QStringList cells{QString::fromStdString(simulation.simulationId),
                          QString::fromStdString(statusOf(simulation))};
        for (const QString &name : parameterNames)
            cells << row->first[name];
        for (const QString &name : summaryNames)
            cells << row->second[name];
        add(cells);
        ++row;
    }
    return lines.join(QString()).toUtf8();
}

} // namespace Velmora::Cli
