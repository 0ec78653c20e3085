#include "portal/control/FaultList.h"

#include "portal/http/Text.h"

namespace VelmoraPortal {
namespace {

bool fits(FaultKind kind, FaultList::Moment moment)
{
    using Moment = FaultList::Moment;
    switch (kind) {
    case FaultKind::ResetBefore:
        return moment == Moment::Connection;
    case FaultKind::SocketDrop:
    case FaultKind::SocketSilence:
    case FaultKind::SocketClose:
    case FaultKind::SocketRaw:
        return moment == Moment::Socket;
    case FaultKind::Status:
    case FaultKind::Delay:
    case FaultKind::HangUp:
    case FaultKind::Silence:
        return moment == Moment::Request || moment == Moment::Handshake;
    case FaultKind::CutHead:
    case FaultKind::CutBody:
    case FaultKind::ResetAfter:
    case FaultKind::SlowRead:
    case FaultKind::SlowWrite:
    case FaultKind::CutUpload:
    case FaultKind::Gzip:
    case FaultKind::NoLength:
    case FaultKind::Raw:
    case FaultKind::Drip:
        return moment == Moment::Request;
    }
    return false;
}

} // namespace

void FaultList::add(Fault fault)
{
    if (fault.path.empty() && fits(fault.kind, Moment::Socket))
        fault.path = "socket";
    m_faults.push_back(std::move(fault));
}

std::optional<Fault> FaultList::take(Moment moment, const std::string &path)
{
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        const bool matches = moment == Moment::Connection || it->path == "*" ||
                             (!it->path.empty() && path.compare(0, it->path.size(), it->path) == 0);
        if (!matches || !fits(it->kind, moment))
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
