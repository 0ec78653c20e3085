#include "base/Portal.h"

namespace Velmora {

QString portalHost(PortalTarget portal)
{
    const QString chosen = QString::fromUtf8(qgetenv("VELMORA_API_URL"));
    if (!chosen.isEmpty())
        return chosen;
    switch (portal) {
    case PortalTarget::Test:
        return QStringLiteral(VELMORA_TEST_HOST);
    case PortalTarget::Development:
        return QStringLiteral(VELMORA_DEV_HOST);
    case PortalTarget::Production:
        return QStringLiteral(VELMORA_PROD_HOST);
    }
    return {};
}

} // namespace Velmora
