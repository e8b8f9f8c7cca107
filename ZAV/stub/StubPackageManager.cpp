#include "StubPackageManager.h"

namespace Velmora {

StubPackageManager::StubPackageManager() = default;

StubPackageManager::~StubPackageManager() { uninit(); }

PackageInfo StubPackageManager::_getPackageInfo(std::string const&) { return PackageInfo(); }

VectorObject<PackageInfo> StubPackageManager::_getPackageInfoList(PackageInfoListRequest const&) { return {}; }

ExtendedPackageInfo StubPackageManager::_getExtendedPackageInfo(std::string const&) { return ExtendedPackageInfo(); }

VectorObject<ExtendedPackageInfo> StubPackageManager::_getExtendedPackageInfoList(PackageInfoListRequest const&)
{
    return {};
}

ManifestPackageInfo StubPackageManager::_getManifestPackageInfo(std::string const&) { return ManifestPackageInfo(); }

VectorObject<ManifestPackageInfo> StubPackageManager::_getManifestPackageInfoList(PackageInfoListRequest const&)
{
    return {};
}

} // namespace Velmora
