#include "interfaces/IPackageManager.h"

namespace Velmora {

char const* const IPackageManager::SORT_BY_DATE = "SORT_BY_DATE";

VectorObject<PackageInfo> IPackageManager::getPackageInfoList(VectorObject<std::string> const& groups)
{
    return getPackageInfoList(PackageInfoListRequest(groups));
}

VectorObject<PackageInfo> IPackageManager::getPackageInfoList(VectorObject<std::string> const& groups,
                                                              unsigned int start, int nbItems,
                                                              std::string const& sortOrder)
{
    return getPackageInfoList(PackageInfoListRequest(groups, start, nbItems, sortOrder));
}

VectorObject<ExtendedPackageInfo> IPackageManager::getExtendedPackageInfoList(VectorObject<std::string> const& groups)
{
    return getExtendedPackageInfoList(PackageInfoListRequest(groups));
}

VectorObject<ExtendedPackageInfo> IPackageManager::getExtendedPackageInfoList(VectorObject<std::string> const& groups,
                                                                              unsigned int start, int nbItems,
                                                                              std::string const& sortOrder)
{
    return getExtendedPackageInfoList(PackageInfoListRequest(groups, start, nbItems, sortOrder));
}

VectorObject<ManifestPackageInfo> IPackageManager::getManifestPackageInfoList(VectorObject<std::string> const& groups)
{
    return getManifestPackageInfoList(PackageInfoListRequest(groups));
}

VectorObject<ManifestPackageInfo> IPackageManager::getManifestPackageInfoList(VectorObject<std::string> const& groups,
                                                                              unsigned int start, int nbItems,
                                                                              std::string const& sortOrder)
{
    return getManifestPackageInfoList(PackageInfoListRequest(groups, start, nbItems, sortOrder));
}

} // namespace Velmora
