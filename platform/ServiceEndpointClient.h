// The dialling side of one platform service's endpoint ("QEN", "HUX"): the
// common body of the media engine's and the power manager's clients. Every
// operation is a remote call that waits for the answer up to the bus
// deadline; a connection that was lost (the service restarted) is dialled
// again at the next call.
//
// Threads: calls from any thread; the connection is swapped under `mutex`,
// never held during a call. Owned by whoever created the client.
#pragma once

#include "Client.h"
#include "frame/Mutex.h"

#include <json/value.h>

#include <memory>
#include <string>

namespace Velmora {

class RPCClient;

class ServiceEndpointClient {
public:
    ServiceEndpointClient(Client::Type type, std::string endpoint);
    virtual ~ServiceEndpointClient();
    ServiceEndpointClient(ServiceEndpointClient const&) = delete;
    ServiceEndpointClient& operator=(ServiceEndpointClient const&) = delete;

    // Dials the endpoint; throws Exception when nobody answers.
    virtual void init();

    Client::Type getType() const { return type; }
    std::string const& getEndpoint() const { return endpoint; }

protected:
    // Calls `method` with `params` and gives the result; throws Exception
    // (logged with the method) when the service is unreachable, fails the
    // call or misses the deadline.
    Json::Value call(char const* method, Json::Value const& params);

private:
    std::shared_ptr<RPCClient> connection();

    Client::Type type;
    std::string endpoint;
    Mutex mutex;
    std::shared_ptr<RPCClient> client;
};

} // namespace Velmora
