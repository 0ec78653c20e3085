#include "transfer/PieceName.h"

#include <velmora/Records.h>

#include <QRegularExpression>

namespace Velmora {

namespace {

const QRegularExpression &suffix()
{
    static const QRegularExpression expression(QStringLiteral("\\._([0-9]{5})_[0-9]{5}\\z"));
    return expression;
}

} // namespace

int pieceNumber(const QString &name)
{
    const QRegularExpressionMatch match = suffix().match(name);
    return match.hasMatch() ? match.captured(1).toInt() : -1;
}

QString withoutPieceSuffix(const QString &name) { return QString(name).remove(suffix()); }

QString baseName(const QString &name) { return name.mid(name.lastIndexOf(QLatin1Char('/')) + 1); }

bool isSafeFileName(const QString &name) { return !name.contains(QLatin1Char('/')) && isSafePath(name.toStdString()); }

} // namespace Velmora
