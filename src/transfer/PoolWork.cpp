#include "transfer/PoolWork.h"

#include "model/Later.h"

#include <QRunnable>
#include <QThreadPool>

#include <condition_variable>
#include <mutex>

namespace Velmora {

namespace {

// Outlives the task on whichever side still holds it: the pool thread may be in its last lines when
// the owner stops waiting.
struct Shared {
    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false;
    std::atomic<bool> stop{false};
};

} // namespace

class PoolWork::Task : public QRunnable {
public:
    Task(QObject *context, Work work)
        : m_context(context)
        , m_work(std::move(work))
    {
        setAutoDelete(false);
    }

    void whenDone(std::function<void()> done) { m_done = std::move(done); }

    void run() override
    {
        const std::shared_ptr<Shared> shared = m_shared;
        m_work(shared->stop);
        const std::lock_guard lock(shared->mutex);
        later(m_context, m_done); // the context waits for `ended`, so it is still there
        shared->ended = true;
        shared->changed.notify_all();
    }

    void requestStop() { m_shared->stop = true; }

    void waitForEnd()
    {
        if (QThreadPool::globalInstance()->tryTake(this))
            return; // not started
        std::unique_lock lock(m_shared->mutex);
        m_shared->changed.wait(lock, [this] { return m_shared->ended; });
    }

private:
    std::shared_ptr<Shared> m_shared = std::make_shared<Shared>();
    QObject *m_context;
    Work m_work;
    std::function<void()> m_done;
};

PoolWork::PoolWork() = default;

PoolWork::~PoolWork() { stopAndWait(); }

void PoolWork::start(QObject *context, Work work, std::function<void()> done)
{
    m_task = std::make_unique<Task>(context, std::move(work));
    m_task->whenDone([this, task = m_task.get(), done = std::move(done)] {
        if (m_task.get() != task) // stopped after it had ended
            return;
        stopAndWait(); // it has posted this, so it is in its last lines
        done();
    });
    QThreadPool::globalInstance()->start(m_task.get(), 0);
}

void PoolWork::stopAndWait()
{
    if (!m_task)
        return;
    m_task->requestStop();
    m_task->waitForEnd();
    m_task.reset();
}

} // namespace Velmora
