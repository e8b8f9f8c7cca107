#include "WEBClient.h"

#include "ClientFactory.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/Mutex.h"
#include "rpc/RPCClient.h"

namespace Velmora {

static char const MODULE[] = "WEBClient";

WEBClient* WEBClient::create(Client::Type type, std::string const& name)
{
    return ClientFactory<WEBClient>::create(type, name);
}

void WEBClient::setFactory(Factory replacement) { ClientFactory<WEBClient>::set(std::move(replacement)); }

WEBClient::WEBClient(Client::Type type, std::string const& name) : type(type), endpoint(name.empty() ? "WEB" : name)
{
}

WEBClient::~WEBClient() = default;

void WEBClient::init()
{
    auto dialled = std::make_unique<RPCClient>(1);
    dialled->connect(endpoint);
    client = std::move(dialled);
}

void WEBClient::addService(std::string const& name) { send("IWebService.addService", name); }

void WEBClient::removeService(std::string const& name) { send("IWebService.removeService", name); }

void WEBClient::send(char const* method, std::string const& name)
{
    if (!client)
        throwException(MODULE, __LINE__, method, ReturnInvalidState);
    Json::Value params;
    params["name"] = name;
    client->callOrThrow(method, params);
}

} // namespace Velmora
