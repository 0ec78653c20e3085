#pragma once

#include <QObject>

#include <atomic>
#include <functional>
#include <memory>

namespace Velmora {

/// Work on whole files, run on the global thread pool for one owner, one piece at a time. The owner
/// keeps this as a member: destroying it stops the work between two buffers and waits for that, so
/// that nothing the work uses, the library's code included, goes before it has ended.
class PoolWork {
public:
    using Work = std::function<void(const std::atomic<bool> &stop)>;

    PoolWork();
    ~PoolWork();
    PoolWork(const PoolWork &) = delete;
    PoolWork &operator=(const PoolWork &) = delete;

    /// Starts `work`; when it has ended, `done` runs on the thread of `context`, which must outlive
    /// this object and may be destroyed by `done`. Only when nothing is running.
    void start(QObject *context, Work work, std::function<void()> done);
    /// Stops the work and waits for its end; `done` does not run.
    void stopAndWait();

private:
    class Task;

    std::unique_ptr<Task> m_task;
};

} // namespace Velmora
