#include "HUXClient.h"

#include "ClientFactory.h"

namespace Velmora {

HUXClient* HUXClient::create(Client::Type type, std::string const& name)
{
    return ClientFactory<HUXClient>::create(type, name);
}

void HUXClient::setFactory(Factory replacement) { ClientFactory<HUXClient>::set(std::move(replacement)); }

HUXClient::HUXClient(Client::Type type, std::string const& name)
    : ServiceEndpointClient(type, name.empty() ? "HUX" : name)
{
}

void HUXClient::unregisterClient(std::string const& uid)
{
    Json::Value params(Json::objectValue);
    params["uid"] = uid;
    call("IPowerManager.unregisterClient", params);
}

} // namespace Velmora
