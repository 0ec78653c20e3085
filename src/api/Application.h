#pragma once

class QCoreApplication;

namespace Velmora {

/// A claim on the application object: the host's own, or one that the library makes for hosts
/// without one and deletes with the last claim. Not before every `PumpScope` has ended, though: a
/// callback may give up the last claim while the event loop that runs it is still on the stack.
class ApplicationClaim {
public:
    ApplicationClaim();
    ~ApplicationClaim();
    ApplicationClaim(const ApplicationClaim &) = delete;
    ApplicationClaim &operator=(const ApplicationClaim &) = delete;

private:
    bool m_made = false;
};

/// Held wherever the library itself runs an event loop or pumps events.
class PumpScope {
public:
    PumpScope();
    ~PumpScope();
    PumpScope(const PumpScope &) = delete;
    PumpScope &operator=(const PumpScope &) = delete;
};

/// Delivers what is due on this thread, deferred deletions included: Qt leaves those to an event
/// loop, and a host that only pumps has none.
void pumpEvents();

} // namespace Velmora
