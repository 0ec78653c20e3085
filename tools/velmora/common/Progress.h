/// @file Progress.h
/// Lines and events on standard error, of whatever takes a while.
#ifndef VELMORA_CLI_PROGRESS_H
#define VELMORA_CLI_PROGRESS_H

#include "common/Options.h"
#include "common/Render.h"
#include "common/Terminal.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

namespace Velmora::Cli {

/// A block of lines at the bottom of a terminal that is redrawn in place.
class LiveBlock {
public:
    using Write = std::function<void(const QString &)>;
    explicit LiveBlock(Write write);
    /// Every line must fit the terminal's columns. If the terminal has become narrower
    /// since, the drawn lines are assumed to have wrapped.
    void show(const QStringList &lines, int columns);
    /// Erases the block, so that other text can follow.
    void clear(int columns);
    /// Keeps the block as it is; the next one is drawn below it.
    void leave() { m_drawn.clear(); }

private:
    QString toTop(int columns) const;

    Write m_write;
    std::vector<int> m_drawn; ///< widths of the lines on the terminal
};

enum class ProgressMode { Bars, Lines, Json, None };

/// As `--progress` says. Otherwise bars on a terminal, unless log lines would break them, and lines elsewhere; nothing
/// when quiet.
ProgressMode progressMode(const Options &options);

void writeError(const QString &text);
/// One line of JSON on standard error, with the time and the kind of the event.
void writeEvent(const char *kind, QJsonObject event);
/// A line on standard error, or the event "notice"; nothing when quiet.
void notice(const Options &options, const QString &text);

} // namespace Velmora::Cli

#endif
