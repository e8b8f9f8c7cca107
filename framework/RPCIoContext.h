// The threads and event loop under the bus transports: an I/O loop run by a
// fixed number of threads. Listeners and connections are bound to one
// context; request handlers that may block run on its threads too, off the
// connection's own sequence, so they never hold up reading.
//
// Threads: construct and destroy on one thread; stop() joins the threads and
// must not be called from one of them. The context owns its threads; the
// loop itself is shared with the connections and listeners bound to it.
#pragma once

#include <memory>

namespace Velmora {

class RPCIoContext {
public:
    struct Impl; // the event loop; defined for the transports only
    explicit RPCIoContext(unsigned int threadCount);
    ~RPCIoContext();
    RPCIoContext(RPCIoContext const&) = delete;
    RPCIoContext& operator=(RPCIoContext const&) = delete;

    // Ends the loop and joins its threads; idempotent.
    void stop();
    // Shared by everything bound to the loop, which keeps it alive.
    std::shared_ptr<Impl> const& impl() { return implementation; }

private:
    std::shared_ptr<Impl> implementation;
};

} // namespace Velmora
