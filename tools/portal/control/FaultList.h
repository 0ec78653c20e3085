#pragma once

#include "portal/control/Fault.h"

#include <list>
#include <optional>

namespace VelmoraPortal {

/// The faults still to strike, in the order of injection.
class FaultList {
public:
    enum class Moment { Connection, Request, Handshake, Socket };

    void add(Fault fault);
    void clear() { m_faults.clear(); }
    const std::list<Fault> &all() const { return m_faults; }

    /// The first fault that fits this moment and path, counted as used once; `path` as in `faultPath`.
    std::optional<Fault> take(Moment moment, const std::string &path);

private:
    std::list<Fault> m_faults;
};

/// What a fault's path is compared with: the target without query, leading slash and "api/".
std::string faultPath(const std::string &target);

} // namespace VelmoraPortal
