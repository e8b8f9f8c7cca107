// The power manager of a box without hardware (endpoint "HUX"). It takes the
// power state the server asks for at once and reports it
// ("IPowerManager::onPowerStateChange"), records each request
// ("setPowerState <n>") and the clients unregistered ("unregisterClient
// <uid>"). State 4, which the power key asks for in deep sleep, is the
// box's start-up: it is reported, and then at once a wake-up by the power
// key (onWakeUp, reason 0), as the box would on waking. Injections:
// Sim.powerStateChange {"state"}, Sim.powerChangeRequest {"state"},
// Sim.wakeUp {"reason"}.
#include "SimService.h"

#include <atomic>

using namespace Velmora;

namespace {

class PowerManagerSim : public SimService {
public:
    PowerManagerSim() : SimService("HUX")
    {
        interfaces["IPowerManager"]["setPowerState"] = static_cast<RPCMethod>(&PowerManagerSim::setPowerState);
        interfaces["IPowerManager"]["getPowerState"] = static_cast<RPCMethod>(&PowerManagerSim::getPowerState);
        interfaces["IPowerManager"]["unregisterClient"] = static_cast<RPCMethod>(&PowerManagerSim::unregisterClient);
        inject("powerStateChange", "IPowerManager::onPowerStateChange");
        inject("powerChangeRequest", "IPowerManager::onPowerChangeRequest");
        inject("wakeUp", "IPowerManager::onWakeUp");
    }

private:
    std::string setPowerState(IRPC::RPCSynchronousMethodObject const& method)
    {
        state = paramsOf(method)["state"].asUInt();
        record("setPowerState " + std::to_string(state.load()));
        Json::Value reported(Json::objectValue);
        reported["state"] = state.load();
        send("IPowerManager::onPowerStateChange", reported);
        if (state == startUp) {
            Json::Value woken(Json::objectValue);
            woken["reason"] = 0;
            send("IPowerManager::onWakeUp", woken);
        }
        return answer(method);
    }
    std::string getPowerState(IRPC::RPCSynchronousMethodObject const& method)
    {
        return answer(method, Json::Value(state.load()));
    }

    std::string unregisterClient(IRPC::RPCSynchronousMethodObject const& method)
    {
        record("unregisterClient " + paramsOf(method)["uid"].asString());
        return answer(method);
    }

    static constexpr unsigned int startUp = 4;
    std::atomic<unsigned int> state{0};
};

} // namespace

int main()
{
    PowerManagerSim sim;
    return sim.run();
}
