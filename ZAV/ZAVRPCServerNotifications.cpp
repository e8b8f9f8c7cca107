// The listener operations: the changes that subscribers hear of, and the
// rest, which stay silent on purpose. None names the session it came from.
#include "ZAVRPCServer.h"

#include "serial/Serialization.h"
#include "serial/Serializer.h"

namespace Velmora {

void ZAVRPCServer::notifyObject(std::string const& name,
                                std::initializer_list<std::pair<char const*, std::string>> members)
{
    Serializer serializer;
    serializer.beginObject(std::string());
    for (auto const& [key, value] : members)
        Velmora::serialize(key, value, serializer);
    serializer.endObject(std::string());
    handleRPCNotification(name, serializer.generate());
}

void ZAVRPCServer::onError(std::string const& uid, std::string const& errorType)
{
    notifyObject("IApplicationManager::onError", {{"uid", uid}, {"errorType", errorType}});
}

void ZAVRPCServer::onKeepAlive(std::string const& uid, std::string const& state)
{
    notifyObject("IApplicationManager::onKeepAlive", {{"uid", uid}, {"state", state}});
}

void ZAVRPCServer::onStateChange(std::string const& uid, std::string const& oldState, std::string const& newState)
{
    notifyObject("IApplicationManager::onStateChange", {{"uid", uid}, {"oldState", oldState}, {"newState", newState}});
}

void ZAVRPCServer::onBootComplete() {}

void ZAVRPCServer::onServiceFailure(std::string const&) {}

void ZAVRPCServer::onServiceListChange(VectorObject<std::string> const& list)
{
    RPCServer::handleRPCNotification(IRPC::RPCNotificationObject("IServiceManager::onServiceListChange", list.serialize()));
}

void ZAVRPCServer::onVisibilityChange(std::string const&, bool const&, bool const&) {}

void ZAVRPCServer::onOpacityChange(std::string const&, unsigned int const&, unsigned int const&) {}

void ZAVRPCServer::onZOrderChange(std::string const&, unsigned int const&, unsigned int const&) {}

void ZAVRPCServer::onLocationChange(std::string const&, ISurfaceCompositing::Rect const&, ISurfaceCompositing::Rect const&) {}

void ZAVRPCServer::onWindowListChange(IWindowManager&, VectorObject<std::string> const& list)
{
    handleRPCNotification("IWindowManager::onWindowListChange", list.serialize());
}

void ZAVRPCServer::onFocusChange(IWindowManager&, std::string const& oldFocus, std::string const& newFocus)
{
    notifyObject("IWindowManager::onFocusChange", {{"oldFocus", oldFocus}, {"newFocus", newFocus}});
}

void ZAVRPCServer::onLayoutChange(IWindowManager&, std::string const&, std::string const&) {}

int ZAVRPCServer::onEntityListChange(VectorObject<std::string> const&) { return 0; }

int ZAVRPCServer::onAttributeListChange(std::string const&, VectorObject<std::string> const&) { return 0; }

int ZAVRPCServer::onAllowedValuesChange(std::string const&, VectorObject<ISettingsDB::AttributeValuePair> const&)
{
    return 0;
}

int ZAVRPCServer::onCurrentValuesChange(std::string const&, VectorObject<ISettingsDB::AttributeValuePair> const&)
{
    return 0;
}

int ZAVRPCServer::onPackageInfoChanged() { return 0; }

int ZAVRPCServer::onPackageManifestChanged(std::string const&, std::string const&, std::string const&) { return 0; }

int ZAVRPCServer::onPackageRepositoryChanged() { return 0; }

int ZAVRPCServer::onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation,
                               ReturnCode result)
{
    Serializer serializer;
    serializer.beginObject(std::string());
    packages.serialize("packages", serializer);
    Velmora::serialize("action", operation, serializer);
    Velmora::serialize("result", static_cast<int>(result), serializer);
    serializer.endObject(std::string());
    handleRPCNotification("IPackageInstaller::onRequestEnd", serializer.generate());
    return 0;
}

int ZAVRPCServer::onStateChange() { return 0; }

} // namespace Velmora
