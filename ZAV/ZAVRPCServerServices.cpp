// The IServiceManager handlers.
#include "ZAVRPCServer.h"

#include "ServiceManager.h"
#include "serial/Serialization.h"

namespace Velmora {

std::string ZAVRPCServer::getServiceList(Request const& request)
{
    return guarded(request, [&](Deserializer&) { return result(request, serviceManager->getServiceList()); });
}

std::string ZAVRPCServer::authorizationTokenCreation(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        Deserializer rightsText(deserialize<std::string>("authAttrInternal", parameters));
        IServiceManager::Rights const rights(rightsText);
        unsigned int const token = deserialize<unsigned int>("token", parameters);
        if (!serviceManager)
            return error(request, "invalid proxy");
        serviceManager->authorizationTokenCreation(token, rights);
        return done(request);
    });
}

std::string ZAVRPCServer::authorizationTokenDeletion(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        unsigned int const token = deserialize<unsigned int>("token", parameters);
        if (!serviceManager)
            return error(request, "invalid proxy");
        serviceManager->authorizationTokenDeletion(token);
        return done(request);
    });
}

} // namespace Velmora
