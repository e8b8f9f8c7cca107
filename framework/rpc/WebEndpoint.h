// The TCP transport for web pages and command-line tools: on one port, a
// WebSocket upgrade becomes a two-way connection (one text frame per
// message), and an HTTP POST of one request text is answered with the reply,
// which `payload` makes on a handler thread of the context (it may block).
// `handler` (not owned) and `payload` must outlive the context's threads.
#pragma once

#include "rpc/RPCConnection.h"
#include "rpc/RPCListener.h"

#include <functional>
#include <memory>
#include <string>

namespace Velmora {

class RPCIoContext;

class WebEndpoint {
public:
    using PayloadHandler = std::function<std::string(std::string const&)>;

    // `host` must be a literal address; port 0 takes any free port. Throws
    // Exception(ReturnGenericFailure) when the address cannot be bound.
    static std::shared_ptr<RPCListener> listen(RPCIoContext& context, std::string const& host, unsigned short port,
                                               RPCConnection::IHandler& handler, PayloadHandler payload);
};

} // namespace Velmora
