#include "rpc/RPCAsio.h"

#include "frame/DebugPrint.h"

#include <pthread.h>

namespace Velmora {

static char const MODULE[] = "RPCIoContext";

RPCIoContext::RPCIoContext(unsigned int ioThreads, unsigned int handlerThreads)
    : implementation(std::make_shared<Impl>(handlerThreads))
{
    for (unsigned int i = 0; i < ioThreads; ++i)
        implementation->threads.emplace_back([loop = implementation] {
            // Named, so that ps, perf and gdb do not show the creating thread's name.
            pthread_setname_np(pthread_self(), "RPCIo");
            // A handler that throws must not cost the loop a thread.
            while (!loop->io.stopped())
                runLoggingExceptions(MODULE, __LINE__, "run", [&loop] { loop->io.run(); });
        });
}

RPCIoContext::~RPCIoContext() { stop(); }

void RPCIoContext::stopHandlers() { implementation->workers->stop(); }

bool RPCIoContext::isLoopThread() const
{
    for (auto const& thread : implementation->threads)
        if (thread.get_id() == std::this_thread::get_id())
            return true;
    return false;
}

void RPCIoContext::stop()
{
    if (stopped)
        return;
    stopped = true;
    implementation->workers->stop();
    implementation->work.reset();
    implementation->io.stop();
    bool onOwnThread = false;
    for (auto& thread : implementation->threads) {
        if (thread.get_id() == std::this_thread::get_id()) {
            onOwnThread = true;
            thread.detach();
        } else if (thread.joinable()) {
            thread.join();
        }
    }
    implementation->threads.clear();
    // Frees the handlers still queued, and the connections they hold; a
    // thread of the loop leaves that to the loop's destruction.
    if (!onOwnThread)
        implementation->io.shutdown();
}

} // namespace Velmora
