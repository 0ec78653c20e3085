// What the library says, in words and colors for the user. Its texts are UTF-8, as Qt's conversions are.
#ifndef DESKTOP_TEXT_H
#define DESKTOP_TEXT_H

#include <velmora/Records.h>

#include <QColor>
#include <QString>

class QLabel;
class QPalette;

inline QString toQt(const std::string &text) { return QString::fromStdString(text); }

bool succeeded(const Velmora::ApiError &error);
/// Why something failed; several reasons stand one on a line.
QString explain(const Velmora::ApiError &error);
QString withoutMarkup(QString text);

/// A red that can be read on the palette's background, be the theme light or dark.
QColor errorColor(const QPalette &palette);
/// Hidden when there is no error.
void showError(QLabel *label, const QString &error);

#endif
