#include "transfer/PieceName.h"

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

bool isSafeFileName(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return false;
    for (const QChar character : name) {
        if (character.isNull() || QStringLiteral("/\\:").contains(character))
            return false;
    }
#ifdef _WIN32
    return isWindowsFileName(name);
#else
    return true; // all of them are good names here
#endif
}

bool isWindowsFileName(const QString &name)
{
    static const QRegularExpression forbidden(
        // A device is meant with any extension, and with blanks in front of it.
        QStringLiteral("\\A(CON|PRN|AUX|NUL|CONIN\\$|CONOUT\\$|(COM|LPT)[0-9\\x{b9}\\x{b2}\\x{b3}]) *(\\.|\\z)"
                       "|[. ]\\z|[<>:\"/\\\\|?*\\x{00}-\\x{1f}]"),
        QRegularExpression::CaseInsensitiveOption);
    return !forbidden.match(name).hasMatch();
}

} // namespace Velmora
