// The client of the media engine (endpoint "QEN"). The window policy tells it
// when a window has gone, so that the engine gives up what it holds for that
// name (players, decoders, the "RPC" client of remote callers), and asks it
// whether its DMS side is active. Its listeners hear, each by its family:
//   IRenderer::onRendererEvent          {"event": n, "text": s}
//   ISurfaceAnimation::onAnimationFinished {"uid": s}
//   IBluetooth::onHidVoiceRecDone       {"transcript": s}
//   IBluetooth::onAttachDone            {"result": s, "services": [s...]}
//   IWireless::onWiFiDirectConnect      {"ipAddress": s, "miraCast": b, "rtspPort": n}
// A notice without its fields, or with fields of the wrong kind, is logged and dropped.
//
// create() goes through a replaceable factory so tests can supply their own
// clients (setFactory); the default factory builds this class.
// Threads: as ServiceEndpointClient. Owned by its creator.
#pragma once

#include "ServiceEndpointClient.h"

#include <functional>
#include <string>

namespace Velmora {

class QENClient : public ServiceEndpointClient {
public:
    using Factory = std::function<QENClient*(Client::Type, std::string const& name)>;

    // A new client owned by the caller.
    static QENClient* create(Client::Type type, std::string const& name);
    // Replaces the factory behind create(); an empty factory restores the default.
    static void setFactory(Factory factory);

    // An empty name means the endpoint "QEN".
    QENClient(Client::Type type, std::string const& name);
    ~QENClient() override;

    // Each throws Exception when the engine is unreachable or fails the call.
    virtual void releaseClient(std::string const& name);
    virtual bool getDmsStatus();

protected:
    std::vector<std::string> events() const override;
    void deliver(IListener& listener, std::string const& name, Json::Value const& params) override;
};

} // namespace Velmora
