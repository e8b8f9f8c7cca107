// The client of the power manager (endpoint "HUX"). The window policy asks it
// for power states and unregisters a window that has gone, so that the power
// manager forgets what that uid asked of it. Its IPowerManagerListener
// listeners hear the notices "IPowerManager::onPowerStateChange" {"state"},
// "IPowerManager::onPowerChangeRequest" {"state"} and "IPowerManager::onWakeUp"
// {"reason"}; a state above IPowerManager::HIGHEST_STATE, or a value that is
// not an unsigned number, is logged and dropped.
//
// create() goes through a replaceable factory so tests can supply their own
// clients (setFactory); the default factory builds this class.
// Threads: as ServiceEndpointClient. Owned by its creator.
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
    ~HUXClient() override;

    // Each throws Exception when the power manager is unreachable or fails the call.
    virtual void unregisterClient(std::string const& uid);
    virtual void setPowerState(unsigned int state);

protected:
    std::vector<std::string> events() const override;
    void deliver(IListener& listener, std::string const& name, Json::Value const& params) override;
};

} // namespace Velmora
