// The TCP transport for web pages and command-line tools: on one port, a
// WebSocket upgrade becomes a two-way connection (one text frame per
// message), and an HTTP POST of one request text is answered with the reply,
// which `payload` makes on a handler thread of the context (it may block).
// `handler` (not owned) and `payload` must outlive the context's threads.
//
// Who may call: the port is reachable from any page a browser on the box
// opens, so a WebSocket upgrade or POST that carries an Origin header is let
// in only from the box's own pages (file://, which browsers send as "null",
// and the loopback hosts 127.0.0.1, localhost and [::1] on any port) or from
// an origin in $VELMORA_ALLOWED_ORIGINS (comma-separated, exact), read by
// listen(). Any other origin, a page from the network or a rebound DNS name,
// is refused with 403 and a log line. A request without Origin cannot come
// from a page and is let in.
#pragma once

#include "rpc/RPCConnection.h"
#include "rpc/RPCListener.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Velmora {

class RPCIoContext;

class WebEndpoint {
public:
    using PayloadHandler = std::function<std::string(std::string const&)>;

    // `host` must be a literal address; port 0 takes any free port. Throws
    // Exception(ReturnGenericFailure) when the address cannot be bound.
    static std::shared_ptr<RPCListener> listen(RPCIoContext& context, std::string const& host, unsigned short port,
                                               RPCConnection::IHandler& handler, PayloadHandler payload);

    // Whether a request with this Origin header may call; `allowed` holds the
    // extra origins. An absent header is the empty string.
    static bool isOriginAllowed(std::string const& origin, std::vector<std::string> const& allowed);
};

} // namespace Velmora
