#include "portal/control/FaultList.h"

#include "portal/http/Text.h"

namespace VelmoraPortal {

void FaultList::add(Fault fault)
{
    if (fault.path.empty() && (rowOf(fault.kind).moments & OnSocket) != 0)
        fault.path = "socket";
    m_faults.push_back(std::move(fault));
}

std::optional<Fault> FaultList::take(FaultMoment moment, const std::string &path)
{
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        const bool matches = moment == OnConnection || it->path == "*" ||
                             (!it->path.empty() && path.compare(0, it->path.size(), it->path) == 0);
        if (!matches || (rowOf(it->kind).moments & moment) == 0)
            continue;
        Fault fault = *it;
        if (it->times > 0 && --it->times == 0)
            m_faults.erase(it);
        return fault;
    }
    return {};
}

std::string faultPath(const std::string &target)
{
    std::string path = pathOf(target);
    path.erase(0, path.find_first_not_of('/'));
    if (path.compare(0, 4, "api/") == 0)
        path.erase(0, 4);
    return path;
}

} // namespace VelmoraPortal
