// The Unix stream socket transport: one JSON text per line. listen() serves a
// socket path, connect() dials one; both bind their connections to `context`
// and to `handler` (not owned; must outlive the context's threads).
#pragma once

#include "rpc/RPCConnection.h"
#include "rpc/RPCListener.h"

#include <memory>
#include <string>

namespace Velmora {

class RPCIoContext;

class UnixEndpoint {
public:
    // A socket file left by a dead process is replaced; one with a live
    // listener throws Exception(ReturnInvalidState), as does a path that
    // exists and is not a socket.
    static std::shared_ptr<RPCListener> listen(RPCIoContext& context, std::string const& path,
                                               RPCConnection::IHandler& handler);
    // Throws Exception(ReturnGenericFailure) when nobody listens on `path`.
    static std::shared_ptr<RPCConnection> connect(RPCIoContext& context, std::string const& path,
                                                  RPCConnection::IHandler& handler);
};

} // namespace Velmora
