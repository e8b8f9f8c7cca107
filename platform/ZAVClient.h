// The connection to another server instance (the slave server of a session),
// by its endpoint name. The window table refers to it for the Android
// applications that the slave runs; such entries share one ZAVClient.
//
// This is the seam the bus fills in: until then a client is not connected and
// every call throws Exception(ReturnGenericFailure).
// Threads: calls from any thread; listeners hear the slave's reports on the
// client's thread. Owned by the manager that created it.
#pragma once

#include "APPClient.h"

#include <string>

namespace Velmora {

class ZAVClient : public APPClient {
public:
    // A new client for the server instance named `name`, owned by the caller.
    static ZAVClient* create(Client::Type type, std::string const& name);

    ZAVClient(Client::Type type, std::string const& name);
};

} // namespace Velmora
