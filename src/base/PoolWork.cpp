#include "base/PoolWork.h"

#include <QCoreApplication>
#include <QEvent>
#include <QRunnable>

#include <condition_variable>
#include <mutex>

namespace Velmora {

namespace {

// Shared by both threads: the pool thread may still be in its last lines when the owner stops waiting.
struct Shared {
    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false;
    std::atomic<bool> stop{false};
};

// Locked briefly on both threads, so that the pool thread sees everything that the owner wrote into the task.
std::mutex handOver;

class OneTask : public QRunnable {
public:
    explicit OneTask(std::function<void()> work)
    {
        const std::lock_guard lock(handOver);
        m_work = std::move(work);
    }

    void run() override
    {
        std::function<void()> work;
        {
            const std::lock_guard lock(handOver);
            work = std::move(m_work);
        }
        work();
    }

private:
    std::function<void()> m_work;
};

} // namespace

class PoolWork::Task : public QRunnable {
public:
    Task(QThreadPool *pool, QObject *owner, Work work)
        : m_pool(pool)
    {
        setAutoDelete(false);
        const std::lock_guard lock(handOver);
        m_owner = owner;
        m_work = std::move(work);
    }

    void run() override
    {
        std::shared_ptr<Shared> shared;
        {
            const std::lock_guard lock(handOver);
            shared = m_shared;
        }
        m_work(shared->stop);
        const std::lock_guard lock(shared->mutex);
        QCoreApplication::postEvent(m_owner,
                                    new QEvent(QEvent::User)); // the owner waits for `ended`, so it still exists
        shared->ended = true;
        shared->changed.notify_all();
    }

    void stopAndWait()
    {
        m_shared->stop = true;
        if (m_pool->tryTake(this))
            return; // not started
        std::unique_lock lock(m_shared->mutex);
        m_shared->changed.wait(lock, [this] { return m_shared->ended; });
    }

private:
    std::shared_ptr<Shared> m_shared = std::make_shared<Shared>();
    QThreadPool *m_pool;
    QObject *m_owner = nullptr;
    Work m_work;
};

PoolWork::PoolWork(QThreadPool *pool)
    : m_pool(pool)
{
}

PoolWork::~PoolWork() { stopAndWait(); }

void PoolWork::start(Work work, std::function<void()> done)
{
    m_done = std::move(done);
    m_task = std::make_unique<Task>(m_pool, this, std::move(work));
    m_pool->start(m_task.get(), 0);
}

void PoolWork::stopAndWait()
{
    if (!m_task)
        return;
    m_task->stopAndWait();
    m_task.reset();
    QCoreApplication::removePostedEvents(this, QEvent::User); // the work may have finished by itself
}

void startOnPool(QThreadPool *pool, std::function<void()> work) { pool->start(new OneTask(std::move(work))); }

void PoolWork::customEvent(QEvent *)
{
    stopAndWait(); // the work posted this event, so it is about to finish
    const std::function<void()> done = std::move(m_done);
    done();
}

} // namespace Velmora
