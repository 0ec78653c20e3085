/// @file ProgressView.h
/// Progress on standard error: bars that redraw in place, or plain lines.
#ifndef VELMORA_CLI_PROGRESSVIEW_H
#define VELMORA_CLI_PROGRESSVIEW_H

#include "JobState.h"
#include "Options.h"
#include "Render.h"
#include "Terminal.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <string>
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

/// One line of JSON on standard error, with the time and the kind of the event.
void writeEvent(const char *kind, QJsonObject event);
/// A line on standard error, or the event "notice"; nothing when quiet.
void notice(const Options &options, const QString &text);

/// The lines that show a job: a heading, then a bar for each simulation, at most `size.rows` in all.
/// Where that is not enough, running simulations come first and the last line sums up the rest.
QStringList jobFrame(const JobState &state, long long elapsedSeconds, Terminal::Size size, BarStyle style);

/// Shows a job while it is followed.
class ProgressView {
public:
    explicit ProgressView(ProgressMode mode);
    ~ProgressView();
    ProgressView(const ProgressView &) = delete;
    ProgressView &operator=(const ProgressView &) = delete;

    void update(const JobState &state);
    /// Redraws the bars, which show the elapsed time.
    void tick();
    /// One line that stays; nothing when quiet.
    void notice(const QString &text);

private:
    void draw();
    void writeChanges();
    void write(const SimulationDetails *simulation, int progress);

    struct Written {
        std::string status;
        int progress = 0;
        QElapsedTimer since;
    };

    ProgressMode m_mode;
    LiveBlock m_block;
    JobState m_state;
    bool m_hasState = false;
    QElapsedTimer m_start;
    Pace m_pace;
    std::string m_writtenStatus;
    std::map<std::string, Written> m_written;
};

} // namespace Velmora::Cli

#endif
