#include "Text.h"

#include <QLabel>
#include <QRegularExpression>

bool succeeded(const Velmora::ApiError &error) { return error.errorCode != 0 && error.errorCode < 300; }

QString explain(const Velmora::ApiError &error)
{
    if (error.errorCode == 0)
        return QStringLiteral("No connection to the service. Check the network and the portal, then try again.");
    static const QRegularExpression emptyLines(QStringLiteral("\\s*\n\\s*"));
    const QString message = withoutMarkup(toQt(error.errorMessage)).trimmed().replace(emptyLines, QStringLiteral("\n"));
    if (!message.isEmpty())
        return message;
    return QStringLiteral("%1 (status %2)").arg(toQt(error.errorTitle), QString::number(error.errorCode));
}

QString withoutMarkup(QString text) { return text.remove(QLatin1String("<b>")).remove(QLatin1String("</b>")); }

QColor errorColor(const QPalette &palette)
{
    return palette.color(QPalette::Base).lightness() < 128 ? QColor(255, 128, 128) : QColor(176, 0, 32);
}

void showError(QLabel *label, const QString &error)
{
    QPalette palette = label->palette();
    palette.setColor(label->foregroundRole(), errorColor(palette));
    label->setPalette(palette);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setText(error);
    label->setHidden(error.isEmpty());
}
