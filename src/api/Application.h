#pragma once

class QCoreApplication;

namespace Velmora {

/// A claim on Qt's application object: the application's own, or one that the library makes where there is none. The
/// library deletes its own with the last claim, but not before every `PumpScope` has ended: a callback may give up the
/// last claim while the event loop that runs the callback is still on the stack. Where the library made it on a thread
/// that has ended, it stays. A claim also gives its thread an event dispatcher, without which nothing would be
/// delivered there.
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

/// Delivers what is due on this thread, deferred deletions included. Qt leaves those to an event loop, which an
/// application that only pumps does not have. If nothing is due, it waits for an event, asleep, for at most so long.
/// @return whether an event was handled
bool pumpEvents(int maxWaitMilliseconds = 0);

} // namespace Velmora
