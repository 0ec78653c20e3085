#include "common/Progress.h"

#include <QDateTime>
#include <QJsonDocument>

#include <algorithm>
#include <utility>

namespace Velmora::Cli {

void writeError(const QString &text) { Terminal::write(Terminal::Stream::Error, text); }

LiveBlock::LiveBlock(Write write)
    : m_write(std::move(write))
{
}

QString LiveBlock::toTop(int columns) const
{
    int rows = 0;
    for (const int width : m_drawn)
        rows += std::max(1, (width + columns - 1) / columns);
    return rows > 0 ? QStringLiteral("\x1b[%1A\r").arg(rows) : QString();
}

void LiveBlock::show(const QStringList &lines, int columns)
{
    QString text = toTop(columns);
    m_drawn.clear();
    for (const QString &line : lines) {
        text += line + QStringLiteral("\x1b[K\n");
        m_drawn.push_back(displayWidth(line));
    }
    m_write(text + QStringLiteral("\x1b[J"));
}

void LiveBlock::clear(int columns)
{
    if (!m_drawn.empty())
        m_write(toTop(columns) + QStringLiteral("\x1b[J"));
    m_drawn.clear();
}

ProgressMode progressMode(const Options &options)
{
    if (options.quiet || options.progress == "none")
        return ProgressMode::None;
    if (options.progress == "json")
        return ProgressMode::Json;
    if (options.progress == "lines")
        return ProgressMode::Lines;
    return Terminal::isTerminal(Terminal::Stream::Error) && !options.verbose ? ProgressMode::Bars : ProgressMode::Lines;
}

void writeEvent(const char *kind, QJsonObject event)
{
    event.insert(QStringLiteral("event"), QLatin1String(kind));
    event.insert(QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    writeError(QString::fromUtf8(QJsonDocument(event).toJson(QJsonDocument::Compact)) + QLatin1Char('\n'));
}

void notice(const Options &options, const QString &text)
{
    const ProgressMode mode = progressMode(options);
    if (mode == ProgressMode::Json)
        writeEvent("notice", {{QStringLiteral("text"), text}});
    else if (mode != ProgressMode::None)
        writeError(text + QLatin1Char('\n'));
}

} // namespace Velmora::Cli
