#pragma once

#include "portal/control/Fault.h"

namespace VelmoraPortal {

/// A request to the storage as the service sees it.
HttpRequest altered(const Fault &fault, HttpRequest head);

/// Bytes of an upload's body after which the fault answers; negative: the whole body.
long long uploadLimit(const Fault &fault);

/// The service's answer with the fault in it; an empty answer when the service did not process the request.
Answer faulty(const Fault &fault, Answer answer);

} // namespace VelmoraPortal
