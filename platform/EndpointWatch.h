// Waits for the socket of one bus endpoint to appear in the runtime
// directory. A listener's socket is put in place only once it accepts, so an
// appearance means that a dial can succeed now (unless the endpoint went
// again at once). The watch starts in the constructor: an appearance between
// a failed dial and the wait is not missed.
// Threads: one owner thread; the stop descriptor may be signalled from any.
#pragma once

#include "FileDescriptor.h"

#include <string>

namespace Velmora {

class EndpointWatch {
public:
    explicit EndpointWatch(std::string const& endpoint);

    // False when the runtime directory cannot be watched.
    bool valid() const { return watch.valid(); }

    enum class Result { Appeared, Stopped, TimedOut, Failed };
    // Sleeps until the endpoint's socket appears, `stopFd` (if not -1) becomes
    // readable, or `timeoutMs` passes (-1 waits for ever).
    Result await(int timeoutMs, int stopFd = -1);

private:
    // Drains the queued events; true when one names the endpoint's socket.
    bool drainNamesSocket();

    std::string const socketName;
    FileDescriptor watch;
};

} // namespace Velmora
