/// @file ProgressView.h
/// Progress on standard error: bars that redraw in place, or plain lines.
#ifndef VELMORA_CLI_PROGRESSVIEW_H
#define VELMORA_CLI_PROGRESSVIEW_H

#include "common/JobState.h"
#include "common/Progress.h"
#include "common/Render.h"
#include "common/Terminal.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Velmora::Cli {

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
