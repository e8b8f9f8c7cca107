// The client of the media engine (endpoint "QEN"). The window policy tells it
// when a window has gone, so that the engine gives up what it holds for that
// name (players, decoders, the "RPC" client of remote callers).
//
// create() goes through a replaceable factory so tests can supply their own
// clients (setFactory); the default factory builds this class.
// Threads: init() once, then calls from any thread. Owned by its creator.
#pragma once

#include "ServiceEndpointClient.h"

#include <functional>
#include <string>

namespace Velmora {

class QENClient : public ServiceEndpointClient {
public:
    using Factory = std::function<QENClient*(Client::Type, std::string const& name)>;

    // A new client owned by the caller.
    static QENClient* create(Client::Type type, std::string const& name);
    // Replaces the factory behind create(); an empty factory restores the default.
    static void setFactory(Factory factory);

    // An empty name means the endpoint "QEN".
    QENClient(Client::Type type, std::string const& name);

    // Throws Exception when the engine is unreachable or fails the call.
    virtual void releaseClient(std::string const& name);
};

} // namespace Velmora
