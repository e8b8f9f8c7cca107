// The IApplicationManager handlers: a uid names a window of some session or a service.
#include "ZAVRPCServer.h"

#include "ApplicationManager.h"
#include "serial/Serialization.h"

namespace Velmora {

namespace {
char const INVALID_INTERFACE[] = "invalid interface";
}

std::string ZAVRPCServer::getState(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        std::string const uid = deserialize<std::string>("uid", parameters);
        ApplicationManager* const manager = getApplicationManager(uid);
        return manager ? result(request, manager->getState(uid)) : error(request, INVALID_INTERFACE);
    });
}

std::string ZAVRPCServer::setState(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        std::string const uid = deserialize<std::string>("uid", parameters);
        std::string const requestedState = deserialize<std::string>("requestedState", parameters);
        ApplicationManager* const manager = getApplicationManager(uid);
        if (!manager)
            return error(request, INVALID_INTERFACE);
        manager->setState(uid, requestedState);
        return done(request);
    });
}

std::string ZAVRPCServer::activate(Request const& request) { return error(request, "not implemented"); }

std::string ZAVRPCServer::suspend(Request const& request) { return error(request, "not implemented"); }

std::string ZAVRPCServer::terminate(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        std::string const uid = deserialize<std::string>("uid", parameters);
        ApplicationManager* const manager = getApplicationManager(uid);
        if (!manager)
            return error(request, INVALID_INTERFACE);
        manager->terminate(uid);
        return done(request);
    });
}

std::string ZAVRPCServer::getRuntimeStatistics(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        std::string const uid = deserialize<std::string>("uid", parameters);
        ApplicationManager* const manager = getApplicationManager(uid);
        return manager ? result(request, manager->getRuntimeStatistics(uid)) : error(request, INVALID_INTERFACE);
    });
}

} // namespace Velmora
