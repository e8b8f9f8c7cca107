#include "ServiceEndpointClient.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "rpc/RPCClient.h"

namespace Velmora {

static char const MODULE[] = "ServiceEndpointClient";

ServiceEndpointClient::ServiceEndpointClient(Client::Type type, std::string endpoint)
    : type(type), endpoint(std::move(endpoint)), mutex(MODULE)
{
}

ServiceEndpointClient::~ServiceEndpointClient() = default;

void ServiceEndpointClient::init()
{
    if (!connection())
        throwException(MODULE, __LINE__, "init", ReturnGenericFailure);
}

std::shared_ptr<RPCClient> ServiceEndpointClient::connection()
{
    Mutex::ScopedLock lock(&mutex);
    if (client && client->isConnected())
        return client;
    client.reset();
    auto dialled = std::make_shared<RPCClient>(1);
    try {
        dialled->connect(endpoint);
    } catch (Exception const&) {
        VLOG(DebugLevelError, "connection(): service %s is not reachable\n", endpoint.c_str());
        return nullptr;
    }
    client = dialled;
    return client;
}

Json::Value ServiceEndpointClient::call(char const* method, Json::Value const& params)
{
    std::shared_ptr<RPCClient> const peer = connection();
    if (!peer)
        throwException(MODULE, __LINE__, method, ReturnGenericFailure);
    RPCConnection::Reply reply = peer->call(method, params);
    if (!reply.ok) {
        VLOG(DebugLevelError, "%s(): service %s answered: %s\n", method, endpoint.c_str(), reply.message.c_str());
        throwException(MODULE, __LINE__, method, ReturnGenericFailure);
    }
    return std::move(reply.result);
}

} // namespace Velmora
