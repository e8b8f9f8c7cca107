// The client of the power manager (endpoint "HUX"). The window policy
// unregisters a window that has gone, so that the power manager forgets what
// that uid asked of it.
//
// create() goes through a replaceable factory so tests can supply their own
// clients (setFactory); the default factory builds this class.
// Threads: init() once, then calls from any thread. Owned by its creator.
#pragma once

#include "ServiceEndpointClient.h"

#include <functional>
#include <string>

namespace Velmora {

class HUXClient : public ServiceEndpointClient {
public:
    using Factory = std::function<HUXClient*(Client::Type, std::string const& name)>;

    // A new client owned by the caller.
    static HUXClient* create(Client::Type type, std::string const& name);
    // Replaces the factory behind create(); an empty factory restores the default.
    static void setFactory(Factory factory);

    // An empty name means the endpoint "HUX".
    HUXClient(Client::Type type, std::string const& name);

    // Throws Exception when the power manager is unreachable or fails the call.
    virtual void unregisterClient(std::string const& uid);
};

} // namespace Velmora
