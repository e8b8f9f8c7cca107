#include "QENClient.h"

#include "ClientFactory.h"
#include "IBluetooth.h"
#include "IRenderer.h"
#include "ISurfaceAnimation.h"
#include "IWireless.h"
#include "NoticeFields.h"

namespace Velmora {

static char const MODULE[] = "QENClient";

char const* const IBluetooth::SERVICE_A2DP = "A2DP";

namespace {

char const RENDERER[] = "IRenderer::onRendererEvent";
char const ANIMATION[] = "ISurfaceAnimation::onAnimationFinished";
char const VOICE[] = "IBluetooth::onHidVoiceRecDone";
char const ATTACH[] = "IBluetooth::onAttachDone";
char const WIFI_DIRECT[] = "IWireless::onWiFiDirectConnect";

void deliverRenderer(IRenderer::OnRendererEventListener& listener, NoticeFields const& fields)
{
    auto const event = fields.number("event");
    auto const text = fields.text("text");
    if (event && text)
        listener.onRendererEvent(static_cast<IRenderer::NotifyEvent>(*event), *text);
}

void deliverAttach(IBluetooth::IBluetoothListener& listener, NoticeFields const& fields)
{
    auto const result = fields.text("result");
    auto const services = fields.texts("services");
    if (!result || !services)
        return;
    VectorObject<std::string> list;
    for (Json::Value const& service : *services)
        list.push_back(service.asString());
    listener.onAttachDone(*result, IBluetooth::BTDeviceInfo({}, std::move(list)));
}

void deliverPeer(IWireless::IWirelessListener& listener, NoticeFields const& fields)
{
    auto const address = fields.text("ipAddress");
    auto const enabled = fields.flag("miraCast");
    auto const port = fields.number("rtspPort");
    if (address && enabled && port)
        listener.onWiFiDirectConnect(IWireless::WiFiDirectPeerInfo(*address, {*enabled, *port}));
}

} // namespace

QENClient* QENClient::create(Client::Type type, std::string const& name)
{
    return ClientFactory<QENClient>::create(type, name);
}

void QENClient::setFactory(Factory replacement) { ClientFactory<QENClient>::set(std::move(replacement)); }

QENClient::QENClient(Client::Type type, std::string const& name)
    : ServiceEndpointClient(type, name.empty() ? "QEN" : name)
{
}

QENClient::~QENClient() { stopDelivery(); }

void QENClient::releaseClient(std::string const& name)
{
    Json::Value params(Json::objectValue);
    params["name"] = name;
    call("IMediaEngine.releaseClient", params);
}

bool QENClient::getDmsStatus()
{
    Json::Value const status = call("IMediaEngine.getDmsStatus", Json::Value(Json::objectValue));
    return status.isBool() && status.asBool();
}

std::vector<std::string> QENClient::events() const { return {RENDERER, ANIMATION, VOICE, ATTACH, WIFI_DIRECT}; }

void QENClient::deliver(IListener& listener, std::string const& name, Json::Value const& params)
{
    NoticeFields const fields(MODULE, name, params);
    if (name == RENDERER) {
        if (auto* renderer = dynamic_cast<IRenderer::OnRendererEventListener*>(&listener))
            deliverRenderer(*renderer, fields);
    } else if (name == ANIMATION) {
        auto* animation = dynamic_cast<ISurfaceAnimation::ISurfaceAnimationListener*>(&listener);
        if (auto const uid = animation ? fields.text("uid") : std::nullopt)
            animation->onAnimationFinished(*uid);
    } else if (name == VOICE) {
        auto* bluetooth = dynamic_cast<IBluetooth::IBluetoothListener*>(&listener);
        if (auto const transcript = bluetooth ? fields.text("transcript") : std::nullopt)
            bluetooth->onHidVoiceRecDone(*transcript);
    } else if (name == ATTACH) {
        if (auto* bluetooth = dynamic_cast<IBluetooth::IBluetoothListener*>(&listener))
            deliverAttach(*bluetooth, fields);
    } else if (name == WIFI_DIRECT) {
        if (auto* wireless = dynamic_cast<IWireless::IWirelessListener*>(&listener))
            deliverPeer(*wireless, fields);
    } else {
        ServiceEndpointClient::deliver(listener, name, params);
    }
}

} // namespace Velmora
