#include "rpc/RPCWorkerPool.h"

#include "frame/DebugPrint.h"

#include <pthread.h>

namespace Velmora {

static char const MODULE[] = "RPCWorkerPool";

RPCWorkerPool::RPCWorkerPool(unsigned int maxThreads) : maxThreads(maxThreads > 0 ? maxThreads : 1) {}

void RPCWorkerPool::post(std::function<void()> job)
{
    std::lock_guard lock(mutex);
    if (stopping)
        return;
    jobs.push_back(std::move(job));
    if (idle > jobs.size() - 1)
        return wake.notify_one();
    if (threads.size() < maxThreads)
        threads.emplace_back([self = shared_from_this()] { self->work(); });
}

void RPCWorkerPool::work()
{
    pthread_setname_np(pthread_self(), "RPCHandler");
    std::unique_lock lock(mutex);
    for (;;) {
        ++idle;
        wake.wait(lock, [this] { return stopping || !jobs.empty(); });
        --idle;
        if (stopping)
            return;
        std::function<void()> job = std::move(jobs.front());
        jobs.pop_front();
        lock.unlock();
        runLoggingExceptions(MODULE, __LINE__, "work", job);
        job = nullptr; // what it holds goes before the lock is taken again
        lock.lock();
    }
}

void RPCWorkerPool::stop()
{
    std::vector<std::thread> joining;
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard lock(mutex);
        stopping = true;
        joining.swap(threads);
        dropped.swap(jobs);
    }
    wake.notify_all();
    for (auto& thread : joining) {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();
        else
            thread.join();
    }
}

} // namespace Velmora
