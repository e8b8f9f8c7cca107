// The IPackageInstaller handlers: a request is accepted at once, and its end
// reaches subscribers as "IPackageInstaller::onRequestEnd".
#include "ZAVRPCServer.h"

#include "PackageInstaller.h"
#include "serial/Serialization.h"

namespace Velmora {

namespace {

using Request = IRPC::RPCSynchronousMethodObject;

template <class Call>
std::string accept(Request const& request, Deserializer& parameters, Call call)
{
    VectorObject<std::string> const packages("packages", parameters);
    call(packages, deserialize<bool>("force", parameters));
    return IRPC::RPCReturnObject(request.getMethod()).serialize();
}

} // namespace

std::string ZAVRPCServer::packageInstall(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        return accept(request, parameters, [&](auto const& packages, bool force) {
            packageInstaller->packageInstall(packages, force);
        });
    });
}

std::string ZAVRPCServer::packageRemove(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        return accept(request, parameters, [&](auto const& packages, bool force) {
            packageInstaller->packageRemove(packages, force);
        });
    });
}

} // namespace Velmora
