#include "HUXClient.h"

#include "ClientFactory.h"
#include "IPowerManager.h"
#include "NoticeFields.h"

namespace Velmora {

static char const MODULE[] = "HUXClient";

HUXClient* HUXClient::create(Client::Type type, std::string const& name)
{
    return ClientFactory<HUXClient>::create(type, name);
}

void HUXClient::setFactory(Factory replacement) { ClientFactory<HUXClient>::set(std::move(replacement)); }

HUXClient::HUXClient(Client::Type type, std::string const& name)
    : ServiceEndpointClient(type, name.empty() ? "HUX" : name)
{
}

HUXClient::~HUXClient() { stopDelivery(); }

void HUXClient::unregisterClient(std::string const& uid)
{
    Json::Value params(Json::objectValue);
    params["uid"] = uid;
    call("IPowerManager.unregisterClient", params);
}

void HUXClient::setPowerState(unsigned int state)
{
    Json::Value params(Json::objectValue);
    params["state"] = state;
    call("IPowerManager.setPowerState", params);
}

std::vector<std::string> HUXClient::events() const
{
    return {"IPowerManager::onPowerStateChange", "IPowerManager::onPowerChangeRequest", "IPowerManager::onWakeUp"};
}

void HUXClient::deliver(IListener& listener, std::string const& name, Json::Value const& params)
{
    auto* power = dynamic_cast<IPowerManager::IPowerManagerListener*>(&listener);
    if (!power)
        return;
    NoticeFields const fields(MODULE, name, params);
    if (name == "IPowerManager::onWakeUp") {
        if (auto const reason = fields.number("reason"))
            power->onWakeUp(*reason);
        return;
    }
    bool const change = name == "IPowerManager::onPowerStateChange";
    if (!change && name != "IPowerManager::onPowerChangeRequest")
        return ServiceEndpointClient::deliver(listener, name, params);
    auto const state = fields.number("state", IPowerManager::HIGHEST_STATE);
    if (!state)
        return;
    if (change)
        power->onPowerStateChange(*state);
    else
        power->onPowerChangeRequest(*state);
}

} // namespace Velmora
