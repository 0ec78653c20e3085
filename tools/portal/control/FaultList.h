#pragma once

#include "portal/control/FaultTable.h"

#include <list>
#include <optional>

namespace VelmoraPortal {

/// The injected faults that are not used up, in order.
class FaultList {
public:
    void add(Fault fault);
    void clear() { m_faults.clear(); }
    const std::list<Fault> &all() const { return m_faults; }

    /// The first fault that matches this moment and path; this is one of its `times`. `path` as in `faultPath`.
    std::optional<Fault> take(FaultMoment moment, const std::string &path);

private:
    std::list<Fault> m_faults;
};

/// The target without query, leading slash and "api/"; a fault's path is compared with it.
std::string faultPath(const std::string &target);

} // namespace VelmoraPortal
