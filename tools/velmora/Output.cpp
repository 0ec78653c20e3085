#include "Output.h"

#include "Terminal.h"

#include <QJsonDocument>

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

void warn(const Options &options, const QString &text)
{
    if (!options.quiet)
        Terminal::write(Terminal::Stream::Error, QStringLiteral("warning: %1\n").arg(text));
}

} // namespace Velmora::Cli
