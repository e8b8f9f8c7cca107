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

void HUXClient::sendUid(char const* method, std::string const& uid)
{
    Json::Value params(Json::objectValue);
    params["uid"] = uid;
    call(method, params);
}

void HUXClient::registerClient(std::string const& uid) { sendUid("IPowerManager.registerClient", uid); }

void HUXClient::unregisterClient(std::string const& uid) { sendUid("IPowerManager.unregisterClient", uid); }

void HUXClient::setPowerState(unsigned int state)
{
    Json::Value params(Json::objectValue);
    params["state"] = state;
    call("IPowerManager.setPowerState", params);
}

unsigned int HUXClient::getPowerState()
{
    Json::Value const state = call("IPowerManager.getPowerState", Json::Value(Json::objectValue));
    return state.isUInt() ? state.asUInt() : 0;
}

} // namespace Velmora
