// The IWindowManager handlers. A uid selects the window manager whose list
// holds it, "proxy" a session. getOpacity and getZOrder answer a truth value
// as 0 or 1, and getZOrder asks for the opacity: clients rely on both.
#include "ZAVRPCServer.h"

#include "WindowManager.h"
#include "frame/Exception.h"
#include "serial/BooleanObject.h"
#include "serial/Serialization.h"
#include "serial/UInt32Object.h"

#include <memory>

namespace Velmora {

namespace {

// The member "event" as an input event of its own "@type"; anything else is an invalid parameter.
std::unique_ptr<IWindowEvent::InputEvent> readEvent(Deserializer& parameters)
{
    std::unique_ptr<SerialObject> object(createSerialObject<SerialObject>("event", parameters));
    auto* const event = dynamic_cast<IWindowEvent::InputEvent*>(object.get());
    if (!event)
        throw Exception(ReturnInvalidParameter);
    object.release();
    return std::unique_ptr<IWindowEvent::InputEvent>(event);
}

UInt32Object truthValue(unsigned int value) { return UInt32Object(value != 0 ? 1 : 0); }

} // namespace

std::string ZAVRPCServer::handleFocus(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer& parameters) {
        manager.handleFocus(uid, deserialize<bool>("obtained", parameters));
        return done(request);
    });
}

std::string ZAVRPCServer::isFocused(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer&) {
        return result(request, BooleanObject(manager.isFocused(uid)));
    });
}

std::string ZAVRPCServer::handleEvent(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer& parameters) {
        auto const event = readEvent(parameters);
        return result(request, BooleanObject(manager.handleEvent(uid, *event)));
    });
}

std::string ZAVRPCServer::setVisibility(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer& parameters) {
        manager.setVisibility(uid, deserialize<bool>("visibility", parameters));
        return done(request);
    });
}

std::string ZAVRPCServer::getVisibility(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer&) {
        return result(request, BooleanObject(manager.getVisibility(uid)));
    });
}

std::string ZAVRPCServer::setOpacity(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer& parameters) {
        manager.setOpacity(uid, deserialize<unsigned int>("opacity", parameters));
        return done(request);
    });
}

std::string ZAVRPCServer::getOpacity(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer&) {
        return result(request, truthValue(manager.getOpacity(uid)));
    });
}

std::string ZAVRPCServer::setZOrder(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer& parameters) {
        manager.setZOrder(uid, deserialize<bool>("zorder", parameters) ? 1 : 0);
        return done(request);
    });
}

std::string ZAVRPCServer::getZOrder(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer&) {
        return result(request, truthValue(manager.getOpacity(uid)));
    });
}

std::string ZAVRPCServer::getWindowList(Request const& request)
{
    return withSession(request,
                       [&](WindowManager& manager, Deserializer&) { return result(request, manager.getWindowList()); });
}

std::string ZAVRPCServer::launch(Request const& request)
{
    return withSession(request, [&](WindowManager& manager, Deserializer&) {
        auto const parameters = deserialize<IWindowManager::LaunchParameters>(request.getParameters());
        return result(request, manager.launch(parameters));
    });
}

std::string ZAVRPCServer::getLaunchParameters(Request const& request)
{
    return withWindow(request, [&](WindowManager& manager, std::string const& uid, Deserializer&) {
        return result(request, manager.getLaunchParameters(uid));
    });
}

std::string ZAVRPCServer::dispatchEvent(Request const& request)
{
    return withSession(request, [&](WindowManager& manager, Deserializer& parameters) {
        manager.dispatchEvent(*readEvent(parameters));
        return done(request);
    });
}

std::string ZAVRPCServer::notify(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        handleRPCNotification(deserialize<std::string>("event", parameters), request.getParameters());
        return IRPC::RPCResultObject(request.getMethod(), true).serialize();
    });
}

} // namespace Velmora
