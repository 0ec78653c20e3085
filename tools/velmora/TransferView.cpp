#include "TransferView.h"

#include <QTime>

#include <algorithm>
#include <cmath>
#include <map>

namespace Velmora::Cli {

namespace {

using Phase = Transfer::Phase;

constexpr int LineIntervalMs = 5000;
constexpr int BriefMs = 1000;
constexpr int LongestBar = 40;
constexpr int LeastBar = 5;
constexpr int PhaseWidth = 10;
constexpr int PercentWidth = 4;
constexpr int RateWidth = 9;
constexpr int TimeWidth = 10;
constexpr int SizeWidth = 7; // "1.23 MB"
constexpr int Gap = 2;

QString rateText(double bytesPerSecond)
{
    return bytesPerSecond > 0 ? sizeText(qint64(bytesPerSecond)) + QLatin1String("/s") : QString();
}

QString leftText(qint64 bytes, double bytesPerSecond)
{
    if (bytes <= 0 || bytesPerSecond <= 0)
        return QString();
    return QStringLiteral("%1 left").arg(durationText(std::llround(double(bytes) / bytesPerSecond)));
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
    if (transfer.phase == Phase::Done) {
        const qint64 took = transfer.ended - transfer.begun;
        figures.rate = rateText(averageOf(transfer.total, took));
        figures.time = tookText(took);
    } else if (transfer.phase == Phase::Sending || transfer.phase == Phase::Receiving) {
        figures.rate = rateText(transfer.meter.rate());
        figures.time = leftText(transfer.total - transfer.moved, transfer.meter.rate());
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
        figures.rate = rateText(averageOf(moved, batch.ended));
        figures.time = tookText(batch.ended);
    } else {
        figures.rate = rateText(batch.meter.rate());
        figures.time = leftText(batch.left(), batch.meter.rate());
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

int rankOf(const Transfer &transfer)
{
    if (transfer.isActive())
        return 0;
    switch (transfer.phase) {
    case Phase::Failed:
        return 1;
    case Phase::Waiting:
    case Phase::Undone:
        return 2;
    default:
        return 3;
    }
}

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
        std::stable_sort(transfers.begin(), transfers.end(),
                         [](const auto *a, const auto *b) { return rankOf(*a) < rankOf(*b); });
        hidden.assign(transfers.begin() + long(room - 1), transfers.end());
        transfers.resize(room - 1);
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
        lines << elided(QStringLiteral("and %1 more: %2").arg(hidden.size()).arg(summaryOf(hidden)), columns);
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

void TransferView::heading(const QString &text)
{
    if (m_mode != ProgressMode::None)
        Terminal::write(Terminal::Stream::Error, text + QLatin1Char('\n'));
}

void TransferView::update(const Batch &batch, qint64 now)
{
    if (m_mode == ProgressMode::Bars) {
        Terminal::Size size = Terminal::size(Terminal::Stream::Error);
        --size.rows; // the cursor's own line
        m_block.show(transferFrame(batch, size, BarStyle::forTerminal(Terminal::supportsUtf8())), size.columns);
    } else if (m_mode == ProgressMode::Lines) {
        writeChanges(batch, now);
    }
}

void TransferView::writeChanges(const Batch &batch, qint64 now)
{
    const auto write = [](const QString &what, const Figures &figures) {
        QStringList parts{QTime::currentTime().toString(QStringLiteral("HH:mm:ss")), what,
                          QString::number(figures.percent) + QLatin1Char('%'), figures.rate, figures.time};
        parts.removeAll(QString());
        Terminal::write(Terminal::Stream::Error, parts.join(QLatin1Char(' ')) + QLatin1Char('\n'));
    };
    m_written.resize(batch.transfers.size());
    for (size_t index = 0; index < batch.transfers.size(); ++index) {
        const Transfer &transfer = batch.transfers[index];
        Written &written = m_written[index];
        const bool moved = transfer.phase != written.phase;
        // A short phase gets no line.
        const bool due = transfer.hasEnded() ? moved
                         : transfer.isActive()
                             ? now - std::max(written.at, transfer.begun) >= (moved ? BriefMs : LineIntervalMs)
                             : false;
        if (!due)
            continue;
        written = {transfer.phase, now};
        write(shown(transfer.file.fileName) + QLatin1Char(' ') + phaseText(transfer.phase), figuresOf(transfer));
    }
    if (batch.ended > 0 && batch.transfers.size() > 1 && !m_summed) {
        m_summed = true;
        write(totalText(batch), figuresOf(batch));
    }
}

} // namespace Velmora::Cli
