#pragma once

#include <velmora/Records.h>

#include <QString>

namespace Velmora {

/// The host, optionally with a port, that serves REST and sockets. The environment variable VELMORA_API_URL wins when
/// it is not empty; otherwise it is the portal's own host, or empty for a portal that does not exist. Each call reads
/// the variable again, so a change takes effect with the next request.
QString portalHost(PortalTarget portal);

} // namespace Velmora
