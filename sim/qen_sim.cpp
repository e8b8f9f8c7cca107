// The media engine of a box without hardware (endpoint "QEN"). It answers
// the DMS status (VELMORA_SIM_DMS=1: true) and records released clients
// ("releaseClient <name>"). Injections, each with the notice's parameters:
//   Sim.renderer  {"event", "text"}            IRenderer::onRendererEvent
//   Sim.animationFinished {"uid"}             ISurfaceAnimation::onAnimationFinished
//   Sim.speak     {"transcript"}               IBluetooth::onHidVoiceRecDone
//   Sim.attach    {"result", "services"}       IBluetooth::onAttachDone
//   Sim.connectPeer {"ipAddress", "miraCast", "rtspPort"}  IWireless::onWiFiDirectConnect
#include "SimService.h"

#include <cstdlib>
#include <cstring>

using namespace Velmora;

namespace {

class MediaEngineSim : public SimService {
public:
    MediaEngineSim() : SimService("QEN")
    {
        interfaces["IMediaEngine"]["getDmsStatus"] = static_cast<RPCMethod>(&MediaEngineSim::getDmsStatus);
        interfaces["IMediaEngine"]["releaseClient"] = static_cast<RPCMethod>(&MediaEngineSim::releaseClient);
        inject("renderer", "IRenderer::onRendererEvent");
        inject("animationFinished", "ISurfaceAnimation::onAnimationFinished");
        inject("speak", "IBluetooth::onHidVoiceRecDone");
        inject("attach", "IBluetooth::onAttachDone");
        inject("connectPeer", "IWireless::onWiFiDirectConnect");
    }

private:
    std::string getDmsStatus(IRPC::RPCSynchronousMethodObject const& method)
    {
        char const* dms = std::getenv("VELMORA_SIM_DMS");
        return answer(method, Json::Value(dms && std::strcmp(dms, "1") == 0));
    }
    std::string releaseClient(IRPC::RPCSynchronousMethodObject const& method)
    {
        record("releaseClient " + paramsOf(method)["name"].asString());
        return answer(method);
    }
};

} // namespace

int main()
{
    MediaEngineSim sim;
    return sim.run();
}
