// The IPackageManager handlers: lists take a "listRequest" record, single
// records a "package" name.
#include "ZAVRPCServer.h"

#include "PackageManager.h"
#include "serial/Serialization.h"

#include <memory>

namespace Velmora {

namespace {

template <class List>
std::string answerList(IRPC::RPCSynchronousMethodObject const& request, Deserializer& parameters, List list)
{
    std::unique_ptr<PackageInfoListRequest> const listRequest(
        createSerialObject<PackageInfoListRequest>("listRequest", parameters));
    return IRPC::RPCResultObject(request.getMethod(), list(*listRequest)).serialize();
}

} // namespace

std::string ZAVRPCServer::getPackageInfoList(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        return answerList(request, parameters, [&](auto const& r) { return packageManager->getPackageInfoList(r); });
    });
}

std::string ZAVRPCServer::getExtendedPackageInfoList(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        return answerList(request, parameters,
                          [&](auto const& r) { return packageManager->getExtendedPackageInfoList(r); });
    });
}

std::string ZAVRPCServer::getManifestPackageInfoList(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        return answerList(request, parameters,
                          [&](auto const& r) { return packageManager->getManifestPackageInfoList(r); });
    });
}

std::string ZAVRPCServer::getPackageInfo(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        return result(request, packageManager->getPackageInfo(deserialize<std::string>("package", parameters)));
    });
}

std::string ZAVRPCServer::getExtendedPackageInfo(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        return result(request, packageManager->getExtendedPackageInfo(deserialize<std::string>("package", parameters)));
    });
}

std::string ZAVRPCServer::getManifestPackageInfo(Request const& request)
{
    return guarded(request, [&](Deserializer& parameters) {
        return result(request, packageManager->getManifestPackageInfo(deserialize<std::string>("package", parameters)));
    });
}

} // namespace Velmora
