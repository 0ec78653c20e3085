#include "model/Json.h"

namespace Velmora {

QString withoutFixedSwitches(const QString &consoleParameters)
{
    return QString(consoleParameters).remove(QStringLiteral("-noterm -s")).trimmed();
}

} // namespace Velmora
