// The power manager of a box without hardware (endpoint "HUX"). It keeps the
// power state the server asks for and records the clients unregistered
// ("unregisterClient <uid>"); power-key
// transitions and wake-ups are injected with Sim.emit
// ("IPowerManager::onPowerStateChange", ...).
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
    }

private:
    std::string setPowerState(IRPC::RPCSynchronousMethodObject const& method)
    {
        state = paramsOf(method)["state"].asUInt();
        record("setPowerState " + std::to_string(state.load()));
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

    std::atomic<unsigned int> state{0};
};

} // namespace

int main()
{
    PowerManagerSim sim;
    return sim.run();
}
