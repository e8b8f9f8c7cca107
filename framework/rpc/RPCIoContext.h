// The threads under the bus transports: an I/O loop run by a fixed number of
// threads, which read and write every socket bound to the context and run the
// handlers that never block, and a pool of handler threads for the requests
// whose handlers may block (HTTP POST requests included). A blocked handler
// therefore never stops the reading of any socket.
//
// Threads: construct on one thread; stop() and the destructor from any thread,
// also from one of the context's own: that thread is left to finish its job
// and the loop it holds stays alive until then.
#pragma once

#include <memory>

namespace Velmora {

class RPCIoContext {
public:
    struct Impl; // the event loop and the handler pool; defined for the transports only
    RPCIoContext(unsigned int ioThreads, unsigned int handlerThreads);
    ~RPCIoContext();
    RPCIoContext(RPCIoContext const&) = delete;
    RPCIoContext& operator=(RPCIoContext const&) = delete;

    // Ends the loop and the handler pool and joins their threads; idempotent.
    void stop();
    // Ends the handler pool only: the handlers still running finish first, and
    // the loop goes on writing what they sent.
    void stopHandlers();
    // True on one of the loop's own threads, which must never wait for the loop.
    bool isLoopThread() const;
    // Shared by everything bound to the loop, which keeps it alive.
    std::shared_ptr<Impl> const& impl() { return implementation; }

private:
    std::shared_ptr<Impl> implementation;
    bool stopped = false;
};

} // namespace Velmora
