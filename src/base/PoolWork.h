#pragma once

#include <QObject>
#include <QThreadPool>

#include <atomic>
#include <functional>
#include <memory>

namespace Velmora {

/// Runs work on whole files or large bodies on a thread pool, for one owner and one task at a time. The owner keeps
/// this object as a member. Its destructor cancels the work between two buffers and waits for its end. So whatever the
/// work uses, the library's code included, outlives it.
class PoolWork : public QObject {
public:
    using Work = std::function<void(const std::atomic<bool> &stop)>;

    explicit PoolWork(QThreadPool *pool = QThreadPool::globalInstance());
    ~PoolWork() override;

    /// Starts `work`. When it has finished, `done` runs on this object's thread, from a clean stack, and may destroy
    /// this object. Allowed only while nothing runs.
    void start(Work work, std::function<void()> done);
    /// Cancels the work and waits for its end; `done` does not run.
    void stopAndWait();

protected:
    void customEvent(QEvent *event) override;

private:
    class Task;

    QThreadPool *m_pool;
    std::unique_ptr<Task> m_task;
    std::function<void()> m_done; ///< not touched by the pool thread
};

/// Runs `work` once on a thread of `pool`. Whoever owns the pool waits for its end before what the work uses goes.
void startOnPool(QThreadPool *pool, std::function<void()> work);

/// A value that is released on a thread of `pool`, whoever lets go of it last: ten thousand records take a while. It
/// keeps the pool alive.
template <class Value> std::shared_ptr<Value> releasedOn(const std::shared_ptr<QThreadPool> &pool)
{
    return {new Value(), [pool](Value *value) { startOnPool(pool.get(), [value] { delete value; }); }};
}

} // namespace Velmora
