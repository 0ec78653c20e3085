#include "common/Render.h"

#include <QDateTime>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <utility>

namespace Velmora::Cli {

namespace {

constexpr int ColumnGap = 2;
constexpr int LeastElasticWidth = 8;
const QChar Ellipsis(0x2026);

bool isWide(uint code)
{
    // East Asian wide and full-width forms, and the emoji blocks.
    static constexpr std::pair<uint, uint> ranges[] = {
        {0x1100, 0x115F}, {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},   {0x4E00, 0x9FFF},
        {0xA000, 0xA4CF}, {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
        {0xFFE0, 0xFFE6}, {0x1F300, 0x1F64F}, {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD},
    };
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [code](const auto &range) { return code >= range.first && code <= range.second; });
}

int widthOf(uint code)
{
    switch (QChar::category(code)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_Enclosing:
    case QChar::Other_Format:
        return 0;
    default:
        return isWide(code) ? 2 : 1;
    }
}

} // namespace

QString shown(const std::string &text)
{
    QString result = QString::fromStdString(text);
    for (QChar &character : result)
        if (character.category() == QChar::Other_Control)
            character = QChar::ReplacementCharacter;
    return result;
}

QString dateText(long long milliseconds)
{
    if (milliseconds == 0)
        return QStringLiteral("-");
    return QDateTime::fromMSecsSinceEpoch(milliseconds).toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString sizeText(long long bytes)
{
    bytes = std::max(0LL, bytes);
    if (bytes < 1000)
        return QStringLiteral("%1 B").arg(bytes);
    constexpr const char *units[] = {"kB", "MB", "GB", "TB", "PB"};
    double value = double(bytes) / 1000;
    size_t unit = 0;
    for (; value >= 999.5 && unit + 1 < std::size(units); ++unit)
        value /= 1000;
    const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    return QString::number(value, 'f', decimals) + QLatin1Char(' ') + QLatin1String(units[unit]);
}

QString durationText(long long seconds)
{
    seconds = std::max(0LL, seconds);
    const auto twoDigits = [](long long value) { return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0')); };
    const QString tail = QLatin1Char(':') + twoDigits(seconds % 60);
    if (seconds < 3600)
        return QString::number(seconds / 60) + tail;
    return QString::number(seconds / 3600) + QLatin1Char(':') + twoDigits(seconds / 60 % 60) + tail;
}

int displayWidth(const QString &text)
{
    const auto codes = text.toUcs4();
    return std::accumulate(codes.begin(), codes.end(), 0, [](int sum, uint code) { return sum + widthOf(code); });
}

QString elided(const QString &text, int width)
{
    if (width <= 0)
        return QString();
    if (displayWidth(text) <= width)
        return text;
    QString result;
    int used = 0;
    for (const char32_t code : text.toUcs4()) {
        used += widthOf(code);
        if (used > width - 1)
            break;
        result += QString::fromUcs4(&code, 1);
    }
    return result + Ellipsis;
}

QString padded(const QString &text, int width, Align align)
{
    const QString blanks(std::max(0, width - displayWidth(text)), QLatin1Char(' '));
    return align == Align::Left ? text + blanks : blanks + text;
}

int percent(int value) { return std::clamp(value, 0, 100); }

BarStyle BarStyle::forTerminal(bool utf8)
{
    return utf8 ? BarStyle{QChar(0x2588), QChar(0x2591)} : BarStyle{QLatin1Char('#'), QLatin1Char('.')};
}

QString bar(int value, int width, BarStyle style)
{
    width = std::max(0, width);
    const int filled = int(qint64(percent(value)) * width / 100);
    return QString(filled, style.full) + QString(width - filled, style.empty);
}

Table::Table(std::vector<Column> columns)
    : m_columns(std::move(columns))
{
}

void Table::add(const QStringList &cells) { m_rows.push_back(cells); }

std::vector<int> Table::widths(int maxWidth) const
{
    std::vector<int> result;
    for (size_t column = 0; column < m_columns.size(); ++column) {
        int width = displayWidth(m_columns[column].title);
        for (const QStringList &row : m_rows)
            width = std::max(width, displayWidth(row.value(int(column))));
        result.push_back(width);
    }
    if (maxWidth <= 0)
        return result;
    int excess = std::accumulate(result.begin(), result.end(), ColumnGap * (int(result.size()) - 1)) - maxWidth;
    while (excess > 0) {
        int widest = -1;
        for (size_t column = 0; column < result.size(); ++column)
            if (m_columns[column].elastic && result[column] > LeastElasticWidth &&
                (widest < 0 || result[column] > result[size_t(widest)]))
                widest = int(column);
        if (widest < 0)
            break;
        --result[size_t(widest)];
        --excess;
    }
    return result;
}

QString Table::toString(int maxWidth) const
{
    const std::vector<int> columnWidths = widths(maxWidth);
    const auto line = [&](const QStringList &cells) {
        QString text;
        for (size_t column = 0; column < m_columns.size(); ++column) {
            if (column > 0)
                text += QString(ColumnGap, QLatin1Char(' '));
            text += padded(elided(cells.value(int(column)), columnWidths[column]), columnWidths[column],
                           m_columns[column].align);
        }
        while (text.endsWith(QLatin1Char(' ')))
            text.chop(1);
        return text + QLatin1Char('\n');
    };
    QStringList titles;
    for (const Column &column : m_columns)
        titles << column.title;
    QString text = line(titles);
    for (const QStringList &row : m_rows)
        text += line(row);
    return text;
}

} // namespace Velmora::Cli
