// The library's texts and errors as the user sees them. Its texts are UTF-8, which Qt's conversions expect.
#ifndef DESKTOP_TEXT_H
#define DESKTOP_TEXT_H

#include <velmora/CloudAPI.h>

#include <QColor>
#include <QString>

class QLabel;
class QPalette;

inline QString toQt(const std::string &text) { return QString::fromStdString(text); }

/// Why something failed, one reason per line. Call it inside the callback that received the error.
QString explain(const Velmora::ApiError &error, const Velmora::CloudAPI &api);

/// A red that is readable on the palette's background, in a light and in a dark theme.
QColor errorColor(const QPalette &palette);
/// Hidden when there is no error.
void showError(QLabel *label, const QString &error);

#endif
