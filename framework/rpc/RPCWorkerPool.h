// The threads that run request handlers which may block, apart from the
// threads that read the sockets: a handler waiting for a peer never holds up
// the reading of that peer's answer. A job starts at once on an idle worker,
// else on a new one up to the limit, else when a worker comes free.
//
// Threads: post() from any thread. stop() from any thread, also from a job:
// it drops the jobs not yet started, and joins the workers (a job that stops
// the pool itself is left to finish on its own; the pool outlives it).
// Lifetime: held by shared_ptr; the workers keep it alive.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Velmora {

class RPCWorkerPool : public std::enable_shared_from_this<RPCWorkerPool> {
public:
    explicit RPCWorkerPool(unsigned int maxThreads);
    RPCWorkerPool(RPCWorkerPool const&) = delete;
    RPCWorkerPool& operator=(RPCWorkerPool const&) = delete;

    void post(std::function<void()> job);
    // Idempotent; a job posted afterwards is dropped.
    void stop();

private:
    void work();

    unsigned int const maxThreads;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> jobs;
    std::vector<std::thread> threads;
    unsigned int idle = 0;
    bool stopping = false;
};

} // namespace Velmora
