/// @file ProgressView.h
/// Progress on standard error: bars that redraw in place, or plain lines.
#ifndef VELMORA_CLI_PROGRESSVIEW_H
#define VELMORA_CLI_PROGRESSVIEW_H

#include "JobState.h"
#include "Options.h"
#include "Render.h"
#include "Terminal.h"

#include <QElapsedTimer>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Velmora::Cli {

/// A block of lines at the bottom of a terminal that is drawn again and again in one place.
class LiveBlock {
public:
    using Write = std::function<void(const QString &)>;
    explicit LiveBlock(Write write);
    /// Every line must fit the terminal's columns. What stands there is taken to have been wrapped
    /// anew if the terminal has become narrower since.
    void show(const QStringList &lines, int columns);
    /// Takes the block away, so that other text can follow.
    void clear(int columns);
    /// Leaves the block where it stands.
    void leave() { m_drawn.clear(); }

private:
    QString toTop(int columns) const;

    Write m_write;
    std::vector<int> m_drawn; ///< widths of the lines that stand there
};

enum class ProgressMode { Bars, Lines, None };

/// Bars on a terminal, unless log lines would tear them; nothing when quiet.
ProgressMode progressMode(const Options &options);

/// The lines that show a job: a heading, then a bar for each simulation, at most `size.rows` in all.
/// Where that is not enough, those that are under way come first and the last line sums up the rest.
QStringList jobFrame(const JobState &state, long long elapsedSeconds, Terminal::Size size, BarStyle style);

/// Shows a job while it is followed.
class ProgressView {
public:
    explicit ProgressView(ProgressMode mode);
    ~ProgressView();
    ProgressView(const ProgressView &) = delete;
    ProgressView &operator=(const ProgressView &) = delete;

    void update(const JobState &state);
    /// Draws the bars again, for the time that has passed.
    void tick();
    /// One line that stays; nothing when quiet.
    void notice(const QString &text);

private:
    void draw();
    void writeChanges();

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
    std::string m_writtenStatus;
    std::map<std::string, Written> m_written;
};

} // namespace Velmora::Cli

#endif
