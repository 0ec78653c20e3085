#pragma once

#include <QObject>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>

namespace Velmora {

/// Work on whole files or large bodies, run on a thread pool for one owner, one piece at a time. The owner
/// keeps this as a member: destroying it stops the work between two buffers and waits for that, so
/// that nothing the work uses, the library's code included, goes before it has ended.
class PoolWork : public QObject {
public:
    using Work = std::function<void(const std::atomic<bool> &stop)>;

    explicit PoolWork(QThreadPool *pool = QThreadPool::globalInstance());
    ~PoolWork() override;

    /// Starts `work`; when it has ended, `done` runs on this object's thread, from a clean stack, and may
    /// destroy this object. Only when nothing is running.
    void start(Work work, std::function<void()> done);
    /// Stops the work and waits for its end; `done` does not run.
    void stopAndWait();

protected:
    void customEvent(QEvent *event) override;

private:
    class Task;

    QThreadPool *m_pool;
    std::unique_ptr<Task> m_task;
    std::function<void()> m_done; ///< never seen by the pool
};

/// Runs `work` once on a thread of `pool`. Whoever owns the pool waits for its end before what the work uses goes.
void startOnPool(QThreadPool *pool, std::function<void()> work);

} // namespace Velmora
