#include "Text.h"

#include <QLabel>
#include <QRegularExpression>

QString explain(const Velmora::ApiError &error, const Velmora::CloudAPI &api)
{
    if (error.errorCode == 0)
        return QStringLiteral("No connection to the service: %1").arg(toQt(api.lastNetworkError()));
    static const QRegularExpression emptyLines(QStringLiteral("\\s*\n\\s*"));
    const QString message =
        toQt(Velmora::plainText(error.errorMessage)).trimmed().replace(emptyLines, QStringLiteral("\n"));
    if (!message.isEmpty())
        return message;
    return QStringLiteral("%1 (status %2)").arg(toQt(error.errorTitle), QString::number(error.errorCode));
}

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
