/// @file Render.h
/// Text output: aligned columns, bars, dates.
#ifndef VELMORA_CLI_RENDER_H
#define VELMORA_CLI_RENDER_H

#include <QString>
#include <QStringList>

#include <string>
#include <vector>

namespace Velmora::Cli {

/// Text of the service, safe for a terminal: control characters are replaced.
QString shown(const std::string &text);
/// A time stamp in milliseconds as local date and time; "-" for 0.
QString dateText(long long milliseconds);
/// Bytes in three digits: "999 B", "1.23 kB", "45.6 MB", "789 GB".
QString sizeText(long long bytes);
/// Seconds as "0:07", "12:30" or "2:05:09".
QString durationText(long long seconds);

/// The columns that the text takes on a terminal: none for combining marks, two for wide characters.
int displayWidth(const QString &text);
/// The text cut to a width, its last column an ellipsis where something was cut.
QString elided(const QString &text, int width);

enum class Align { Left, Right };
QString padded(const QString &text, int width, Align align = Align::Left);

/// The value, limited to 0 to 100.
int percent(int value);

struct BarStyle {
    QChar full;
    QChar empty;
    /// Blocks where the terminal can show them.
    static BarStyle forTerminal(bool utf8);
};
/// Exactly `width` columns, filled by a value in percent. It is full at 100 percent only.
QString bar(int value, int width, BarStyle style);

class Table {
public:
    struct Column {
        QString title;
        Align align = Align::Left;
        bool elastic = false; ///< shrinks when the table is too wide
    };

    explicit Table(std::vector<Column> columns);
    void add(const QStringList &cells);
    /// @param maxWidth columns to keep to by eliding elastic cells; 0 for any width.
    QString toString(int maxWidth = 0) const;

private:
    std::vector<int> widths(int maxWidth) const;

    std::vector<Column> m_columns;
    std::vector<QStringList> m_rows;
};

} // namespace Velmora::Cli

#endif
