#include "transfers/TransferView.h"

#include "common/Json.h"

#include <QTime>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

namespace Velmora::Cli {

namespace {

using Phase = Transfer::Phase;

constexpr int LineIntervalMs = 5000;
constexpr int BriefMs = 1000;
constexpr int EventIntervalMs = 1000;
constexpr qint64 NeverMs = std::numeric_limits<qint64>::max();
constexpr size_t MostActive = 8; // where there is no room for all
constexpr size_t MostLines = 20; // files with lines of their own
constexpr int LongestBar = 40;
constexpr int LeastBar = 5;
constexpr int PhaseWidth = 10;
constexpr int PercentWidth = 4;
constexpr int RateWidth = 9;
constexpr int TimeWidth = 12; // "1:23:45 left"
constexpr int SizeWidth = 7;  // "1.23 MB"
constexpr int Gap = 2;

QString rateText(double bytesPerSecond)
{
    return bytesPerSecond > 0 ? sizeText(qint64(bytesPerSecond)) + QLatin1String("/s") : QString();
}

QString leftText(qint64 seconds)
{
    return seconds < 0 ? QString() : QStringLiteral("%1 left").arg(durationText(seconds));
}

double averageOf(qint64 bytes, qint64 milliseconds)
{
    return milliseconds > 0 ? double(bytes) * 1000 / double(milliseconds) : 0;
}

QString tookText(qint64 milliseconds) { return QStringLiteral("in %1").arg(durationText((milliseconds + 500) / 1000)); }

/// The figures behind a bar.
struct Figures {
    int percent = 0;
    QString rate;
    QString time;
};

Figures figuresOf(const Transfer &transfer)
{
    Figures figures{transfer.share(), {}, {}};
    if (transfer.phase == Phase::Done && !transfer.kept) {
        const qint64 took = transfer.ended - transfer.begun;
        figures.rate = rateText(averageOf(transfer.total, took));
        figures.time = tookText(took);
    } else if (transfer.phase == Phase::Sending || transfer.phase == Phase::Receiving) {
        const double rate = transfer.meter.rate();
        figures.rate = rateText(rate);
        figures.time = leftText(rate > 0 ? std::llround(double(transfer.total - transfer.moved) / rate) : -1);
    }
    return figures;
}

Figures figuresOf(const Batch &batch)
{
    const qint64 total = batch.total();
    const qint64 moved = batch.moved();
    Figures figures;
    if (batch.count(Phase::Done) == int(batch.transfers.size()))
        figures.percent = 100;
    else if (total > 0)
        figures.percent = int(double(moved) / double(total) * 100);
    if (batch.ended > 0) {
        figures.rate = rateText(averageOf(moved - batch.kept(), batch.ended));
        figures.time = tookText(batch.ended);
    } else {
        figures.rate = rateText(batch.meter.rate());
        figures.time = leftText(batch.secondsLeft());
    }
    return figures;
}

QString totalText(const Batch &batch)
{
    QString text = QStringLiteral("%1 of %2 done").arg(batch.count(Phase::Done)).arg(batch.transfers.size());
    if (const int failed = batch.count(Phase::Failed))
        text += QStringLiteral(", %1 failed").arg(failed);
    return text + QStringLiteral(", %1 of %2").arg(sizeText(batch.moved()), sizeText(batch.total()));
}

QString summaryOf(const std::vector<const Transfer *> &transfers)
{
    std::map<Phase, int> counts;
    for (const Transfer *transfer : transfers)
        ++counts[transfer->phase];
    QStringList parts;
    for (const auto &[phase, count] : counts)
        parts << QStringLiteral("%1 %2").arg(count).arg(phaseText(phase));
    return parts.join(QLatin1String(", "));
}

bool isActive(const Transfer *transfer) { return transfer->isActive(); }
bool hasFailed(const Transfer *transfer) { return transfer->phase == Phase::Failed; }

} // namespace

QStringList transferFrame(const Batch &batch, Terminal::Size size, BarStyle style)
{
    // The last column stays free: a full line would wrap.
    const int columns = std::max(1, size.columns - 1);
    const bool several = batch.transfers.size() > 1;
    std::vector<const Transfer *> transfers;
    int nameWidth = 0;
    if (several) // the widest text, so that the columns do not move
        nameWidth =
            displayWidth(totalText(batch)) - displayWidth(sizeText(batch.moved())) + SizeWidth - PhaseWidth - Gap;
    for (const Transfer &transfer : batch.transfers) {
        transfers.push_back(&transfer);
        nameWidth = std::max(nameWidth, displayWidth(shown(transfer.file.fileName)));
    }
    const size_t room = size_t(std::max(1, size.rows - (several ? 1 : 0)));
    std::vector<const Transfer *> hidden;
    if (transfers.size() > room) {
        const auto active = std::stable_partition(transfers.begin(), transfers.end(), isActive);
        const auto failed = std::stable_partition(active, transfers.end(), hasFailed);
        // Many small files are on their way at a time, and gone before anybody has read their names.
        const auto shownActive = std::min(active, transfers.begin() + long(std::min(transfers.size(), MostActive)));
        std::stable_sort(transfers.begin(), active, [](const auto *a, const auto *b) { return a->total > b->total; });
        const auto end = std::rotate(shownActive, active, failed); // the failures follow
        const size_t shownCount = std::min(room - 1, size_t(end - transfers.begin()));
        hidden.assign(transfers.begin() + long(shownCount), transfers.end());
        transfers.resize(shownCount);
    }

    constexpr int figuresWidth = PercentWidth + Gap + RateWidth + Gap + TimeWidth;
    nameWidth = std::min(nameWidth, std::max(LeastBar, std::min(columns / 3, columns - PhaseWidth - figuresWidth - 4)));
    const int barWidth = std::min(LongestBar, columns - nameWidth - Gap - PhaseWidth - Gap - 1 - figuresWidth);
    const auto line = [&](const QString &left, const Figures &figures) {
        QString text = left + QString(Gap, QLatin1Char(' '));
        if (barWidth >= LeastBar)
            text += bar(figures.percent, barWidth, style) + QLatin1Char(' ');
        text += padded(QString::number(figures.percent) + QLatin1Char('%'), PercentWidth, Align::Right);
        for (const auto &[part, width] : {std::pair(figures.rate, RateWidth), std::pair(figures.time, TimeWidth)})
            text += QString(Gap, QLatin1Char(' ')) + padded(part, width, Align::Right);
        while (text.endsWith(QLatin1Char(' ')))
            text.chop(1);
        return elided(text, columns);
    };

    QStringList lines;
    for (const Transfer *transfer : transfers)
        lines << line(padded(elided(shown(transfer->file.fileName), nameWidth), nameWidth + Gap) +
                          padded(phaseText(transfer->phase), PhaseWidth),
                      figuresOf(*transfer));
    if (!hidden.empty())
        lines << elided((lines.isEmpty() ? QStringLiteral("%1 files: %2") : QStringLiteral("and %1 more: %2"))
                            .arg(QString::number(hidden.size()), summaryOf(hidden)),
                        columns);
    if (several) {
        const int width = nameWidth + Gap + PhaseWidth;
        lines << line(padded(elided(totalText(batch), width), width), figuresOf(batch));
    }
    return lines;
}

TransferView::TransferView(ProgressMode mode)
    : m_mode(mode)
    , m_block([](const QString &text) { Terminal::write(Terminal::Stream::Error, text); })
{
}

TransferView::~TransferView() { m_block.leave(); }

void TransferView::update(const Batch &batch, qint64 now)
{
    if (m_mode == ProgressMode::Bars) {
        Terminal::Size size = Terminal::size(Terminal::Stream::Error);
        --size.rows; // the cursor's own line
        m_block.show(transferFrame(batch, size, BarStyle::forTerminal(Terminal::supportsUtf8())), size.columns);
    } else if (m_mode == ProgressMode::Lines) {
        writeChanges(batch, now);
    } else if (m_mode == ProgressMode::Json) {
        writeEvents(batch, now);
    }
}

std::vector<TransferView::Written> &TransferView::written(const Batch &batch)
{
    for (size_t index = m_written.size(); index < batch.transfers.size(); ++index)
        m_written.push_back({batch.transfers[index].phase, 0});
    return m_written;
}

void TransferView::writeChanges(const Batch &batch, qint64 now)
{
    const auto write = [](const QString &what, const Figures &figures) {
        QStringList parts{QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), what,
                          QString::number(figures.percent) + QLatin1Char('%'), figures.rate, figures.time};
        parts.removeAll(QString());
        Terminal::write(Terminal::Stream::Error, parts.join(QLatin1Char(' ')) + QLatin1Char('\n'));
    };
    const bool few = batch.transfers.size() <= MostLines;
    for (size_t index = 0; index < batch.transfers.size(); ++index) {
        const Transfer &transfer = batch.transfers[index];
        Written &last = written(batch)[index];
        const bool moved = transfer.phase != last.phase;
        // A short phase gets no line; of many files only those that fail, or take long, get any.
        const bool due = transfer.hasEnded() ? moved && (few || last.at > 0 || transfer.phase != Phase::Done)
                         : transfer.isActive()
                             ? now - std::max(last.at, transfer.begun) >= (moved && few ? BriefMs : LineIntervalMs)
                             : false;
        if (!due)
            continue;
        last = {transfer.phase, now};
        write(shown(transfer.file.fileName) + QLatin1Char(' ') + phaseText(transfer.phase), figuresOf(transfer));
    }
    if (batch.transfers.size() > 1 && isTotalDue(batch, now, few ? NeverMs : LineIntervalMs))
        write(totalText(batch), figuresOf(batch));
}

bool TransferView::isTotalDue(const Batch &batch, qint64 now, qint64 interval)
{
    if (m_summed || (batch.ended == 0 && now - m_summedAt < interval))
        return false;
    m_summed = batch.ended > 0;
    m_summedAt = now;
    return true;
}

void TransferView::writeEvents(const Batch &batch, qint64 now)
{
    for (size_t index = 0; index < batch.transfers.size(); ++index) {
        const Transfer &transfer = batch.transfers[index];
        Written &last = written(batch)[index];
        if (transfer.phase == last.phase && !(transfer.isActive() && now - last.at >= EventIntervalMs))
            continue;
        last = {transfer.phase, now};
        QJsonObject event{{QStringLiteral("file"), QString::fromStdString(transfer.file.fileName)},
                          {QStringLiteral("direction"), transfer.direction == Transfer::Direction::Up
                                                            ? QStringLiteral("up")
                                                            : QStringLiteral("down")},
                          {QStringLiteral("state"), phaseText(transfer.phase)},
                          {QStringLiteral("bytes"), transfer.moved},
                          {QStringLiteral("totalBytes"), transfer.total}};
        if (transfer.phase == Phase::Failed)
            event.insert(QStringLiteral("error"), toJson(transfer.error));
        writeEvent("file", event);
    }
    if (!isTotalDue(batch, now, EventIntervalMs))
        return;
    QJsonObject event{{QStringLiteral("files"), batch.countEnded()},
                      {QStringLiteral("failed"), batch.count(Phase::Failed)},
                      {QStringLiteral("totalFiles"), int(batch.transfers.size())},
                      {QStringLiteral("bytes"), batch.moved()},
                      {QStringLiteral("totalBytes"), batch.total()},
                      {QStringLiteral("bytesPerSecond"), batch.meter.rate()}};
    if (const qint64 left = batch.secondsLeft(); left >= 0)
        event.insert(QStringLiteral("secondsLeft"), left);
    writeEvent("files", event);
}

} // namespace Velmora::Cli
