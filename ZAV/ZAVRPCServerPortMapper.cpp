// The IPortMapper handlers. A missing mapper is "invalid uid" for
// registerService and "invalid proxy" for lookupService: clients tell the
// two calls apart by these texts.
#include "ZAVRPCServer.h"

#include "PortMapper.h"
#include "serial/BooleanObject.h"
#include "serial/Serialization.h"

namespace Velmora {

std::string ZAVRPCServer::registerService(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        std::string const uid = deserialize<std::string>("uid", parameters);
        return portMapper ? result(request, BooleanObject(portMapper->registerService(uid)))
                          : error(request, "invalid uid");
    });
}

std::string ZAVRPCServer::lookupService(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        std::string const uid = deserialize<std::string>("uid", parameters);
        return portMapper ? result(request, portMapper->lookupService(uid)) : error(request, "invalid proxy");
    });
}

} // namespace Velmora
