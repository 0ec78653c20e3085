#include "run/ProgressView.h"

#include <algorithm>
#include <utility>

namespace Velmora::Cli {

namespace {

constexpr int LineIntervalMs = 5000;
constexpr int LongestBar = 40;
constexpr int StatusWidth = 9;

bool isUnderWay(const SimulationDetails &simulation) { return statusOf(simulation) == "running"; }

bool isAhead(const SimulationDetails &simulation)
{
    const std::string status = statusOf(simulation);
    return status == "queued" || status == "submitted" || status == "unknown";
}

QString summaryOf(const std::vector<const SimulationDetails *> &simulations)
{
    std::map<std::string, int> counts;
    for (const SimulationDetails *simulation : simulations)
        ++counts[statusOf(*simulation)];
    QStringList parts;
    for (const auto &[status, count] : counts)
        parts << QStringLiteral("%1 %2").arg(count).arg(shown(status));
    return parts.join(QLatin1String(", "));
}

} // namespace

QStringList jobFrame(const JobState &state, long long elapsedSeconds, Terminal::Size size, BarStyle style)
{
    // The last column stays free: a full line would wrap.
    const int columns = std::max(1, size.columns - 1);
    std::vector<const SimulationDetails *> simulations;
    int nameWidth = 0;
    int finished = 0;
    for (const SimulationDetails &simulation : state.job.simulations) {
        simulations.push_back(&simulation);
        nameWidth = std::max(nameWidth, displayWidth(shown(simulation.simulationId)));
        finished += state.progressOf(simulation) == 100 ? 1 : 0;
    }

    QString heading = QStringLiteral("  %1  %2 of %3 done  %4")
                          .arg(shown(statusOf(state.job)), QString::number(finished),
                               QString::number(simulations.size()), durationText(elapsedSeconds));
    if (state.secondsLeft >= 0)
        heading += QStringLiteral(", about %1 left").arg(durationText(state.secondsLeft));
    const QString name = shown(state.job.jobName.empty() ? state.job.jobId : state.job.jobName);
    const int nameRoom = std::max(1, columns - displayWidth(heading));
    QStringList lines{elided(elided(name, nameRoom) + heading, columns)};

    const size_t room = size_t(std::max(1, size.rows - 1));
    std::vector<const SimulationDetails *> hidden;
    if (simulations.size() > room) {
        const auto rank = [](const SimulationDetails *simulation) {
            return isUnderWay(*simulation) ? 0 : isAhead(*simulation) ? 1 : 2;
        };
        std::stable_sort(simulations.begin(), simulations.end(),
                         [&](const auto *a, const auto *b) { return rank(a) < rank(b); });
        hidden.assign(simulations.begin() + long(room - 1), simulations.end());
        simulations.resize(room - 1);
    }

    constexpr int percentWidth = 4;
    nameWidth = std::min(nameWidth, std::max(4, columns / 3));
    const int barWidth = std::min(LongestBar, columns - nameWidth - StatusWidth - percentWidth - 5);
    for (const SimulationDetails *simulation : simulations) {
        const int progress = state.progressOf(*simulation);
        QString line = padded(elided(shown(simulation->simulationId), nameWidth), nameWidth) + QLatin1String("  ") +
                       padded(elided(shown(statusOf(*simulation)), StatusWidth), StatusWidth) + QLatin1String("  ");
        if (barWidth >= 5)
            line += bar(progress, barWidth, style) + QLatin1Char(' ');
        line += padded(QString::number(progress) + QLatin1Char('%'), percentWidth, Align::Right);
        lines << elided(line, columns);
    }
    if (!hidden.empty())
        lines << elided(QStringLiteral("and %1 more: %2").arg(hidden.size()).arg(summaryOf(hidden)), columns);
    return lines;
}

ProgressView::ProgressView(ProgressMode mode)
    : m_mode(mode)
    , m_block(writeError)
{
    m_start.start();
}

ProgressView::~ProgressView() { m_block.leave(); }

void ProgressView::update(const JobState &state)
{
    m_state = state;
    m_hasState = true;
    m_pace.note(m_start.elapsed(), m_state);
    if (m_mode == ProgressMode::Bars)
        draw();
    else if (m_mode != ProgressMode::None)
        writeChanges();
}

void ProgressView::tick()
{
    if (m_mode == ProgressMode::Bars && m_hasState)
        draw();
}

void ProgressView::notice(const QString &text)
{
    if (m_mode == ProgressMode::Json)
        writeEvent("notice", {{QStringLiteral("text"), text}});
    if (m_mode == ProgressMode::None || m_mode == ProgressMode::Json)
        return;
    m_block.clear(Terminal::size(Terminal::Stream::Error).columns);
    writeError(text + QLatin1Char('\n'));
    tick();
}

void ProgressView::draw()
{
    Terminal::Size size = Terminal::size(Terminal::Stream::Error);
    --size.rows; // the cursor's own line
    m_state.secondsLeft = m_pace.secondsLeft(m_start.elapsed());
    m_block.show(jobFrame(m_state, m_start.elapsed() / 1000, size, BarStyle::forTerminal(Terminal::supportsUtf8())),
                 size.columns);
}

void ProgressView::writeChanges()
{
    const std::string jobStatus = statusOf(m_state.job);
    if (jobStatus != m_writtenStatus) {
        m_writtenStatus = jobStatus;
        write(nullptr, 0);
    }
    for (const SimulationDetails &simulation : m_state.job.simulations) {
        const std::string status = statusOf(simulation);
        const int progress = m_state.progressOf(simulation);
        Written &written = m_written[simulation.simulationId];
        const bool due = !written.since.isValid() || written.since.hasExpired(LineIntervalMs) || progress == 100;
        if (status == written.status && (progress == written.progress || !due))
            continue;
        written.status = status;
        written.progress = progress;
        written.since.start();
        write(&simulation, progress);
    }
}

void ProgressView::write(const SimulationDetails *simulation, int progress)
{
    const std::string status = simulation ? statusOf(*simulation) : m_writtenStatus;
    const long long left = m_pace.secondsLeft(m_start.elapsed());
    if (m_mode == ProgressMode::Json) {
        QJsonObject event{{QStringLiteral("jobId"), QString::fromStdString(m_state.job.jobId)},
                          {QStringLiteral("status"), QString::fromStdString(status)}};
        if (simulation) {
            event.insert(QStringLiteral("simulationId"), QString::fromStdString(simulation->simulationId));
            event.insert(QStringLiteral("progress"), progress);
        }
        if (left >= 0)
            event.insert(QStringLiteral("secondsLeft"), left);
        writeEvent(simulation ? "simulation" : "job", event);
        return;
    }
    QStringList parts{QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), shown(m_state.job.jobId)};
    if (simulation)
        parts << shown(simulation->simulationId);
    parts << shown(status);
    if (simulation)
        parts << QString::number(progress) + QLatin1Char('%');
    if (simulation && left >= 0)
        parts << QStringLiteral("(job: about %1 left)").arg(durationText(left));
    writeError(parts.join(QLatin1Char(' ')) + QLatin1Char('\n'));
}

} // namespace Velmora::Cli
