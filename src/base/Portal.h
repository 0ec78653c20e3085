#pragma once

#include <velmora/Records.h>

#include <QString>

namespace Velmora {

/// The host (optionally with a port) that serves REST and sockets: the environment variable
/// VELMORA_API_URL when set and not empty, otherwise the portal's own host; empty for a portal that
/// does not exist. Read afresh at every call, so that a change takes effect at the next request.
QString portalHost(PortalTarget portal);

} // namespace Velmora
