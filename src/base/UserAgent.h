#pragma once

#include <velmora/Version.h>

namespace Velmora {

/// The value of "User-Agent" in whatever is sent.
inline constexpr char userAgent[] = "Velmora/" VELMORA_VERSION;

} // namespace Velmora
