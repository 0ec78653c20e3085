#include "api/Application.h"

#include "base/Later.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QMutex>
#include <QMutexLocker>
#include <QThread>
#include <QTimer>

namespace Velmora {

namespace {

struct Shared {
    QMutex mutex;
    QCoreApplication *made = nullptr;
    int claims = 0; // on the application that the library made
    int pumps = 0;  // on that application's thread
    int argc = 0;   // Qt keeps the reference
};

Shared &shared()
{
    static Shared instance;
    return instance;
}

// Takes the application out when nobody needs it any more; the caller deletes it, unlocked.
QCoreApplication *takeUnused(Shared &state)
{
    QCoreApplication *made = state.made;
    if (!made || state.claims > 0 || state.pumps > 0)
        return nullptr;
    // Only its own thread can delete it, and not below a loop of the application. Else it stays, for the next claim to
    // find.
    if (made->thread() != QThread::currentThread() || made->thread()->loopLevel() > 0)
        return nullptr;
    state.made = nullptr;
    return made;
}

bool onMadeThread(const Shared &state) { return state.made && state.made->thread() == QThread::currentThread(); }

} // namespace

ApplicationClaim::ApplicationClaim()
{
    Shared &state = shared();
    const QMutexLocker lock(&state.mutex);
    if (!QCoreApplication::instance())
        state.made = new QCoreApplication(state.argc, nullptr);
    m_made = state.made && state.made == QCoreApplication::instance();
    if (m_made)
        ++state.claims;
    const QEventLoop dispatching; // gives this thread an event dispatcher that stays, if it has none
}

ApplicationClaim::~ApplicationClaim()
{
    if (!m_made)
        return;
    Shared &state = shared();
    QMutexLocker lock(&state.mutex);
    --state.claims;
    QCoreApplication *unused = takeUnused(state);
    lock.unlock();
    delete unused;
}

PumpScope::PumpScope()
{
    Shared &state = shared();
    const QMutexLocker lock(&state.mutex);
    if (onMadeThread(state))
        ++state.pumps;
}

PumpScope::~PumpScope()
{
    Shared &state = shared();
    QMutexLocker lock(&state.mutex);
    if (!onMadeThread(state))
        return;
    --state.pumps;
    QCoreApplication *unused = takeUnused(state);
    lock.unlock();
    delete unused;
}

bool pumpEvents(int maxWaitMilliseconds)
{
    static thread_local int depth = 0;
    const PumpScope scope;
    struct Depth {
        Depth() { ++depth; }
        ~Depth() { --depth; }
    } const nested;
    QEventLoop loop;
    bool over = maxWaitMilliseconds <= 0;
    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, [&over] { over = true; });
    if (!over)
        deadline.start(maxWaitMilliseconds);
    const unsigned int before = stepsOnThisThread();
    loop.processEvents();
    // A wait also ends with events that are nobody's business; systems differ in what they report of them.
    while (stepsOnThisThread() == before && !over)
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    // Only from the outermost level: what a slot further up the stack has marked for deletion must
    // outlive that slot.
    if (depth == 1 && QThread::currentThread()->loopLevel() == 0)
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return stepsOnThisThread() != before;
}

} // namespace Velmora
