#include "MasterPackageManager.h"

#include <algorithm>
#include <cctype>

namespace Velmora {

namespace {

std::string lowerCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

template <class Record>
bool comparePackageInfoAlphabetically(Record const& a, Record const& b)
{
    return lowerCase(a.getName()) < lowerCase(b.getName());
}

template <class Record>
bool comparePackageInfoChronologically(Record const& a, Record const& b)
{
    return a.getInstallTime() < b.getInstallTime();
}

// A manifest record has no install time: the date order leaves the list as it
// comes, which is no order at all.
template <>
bool comparePackageInfoChronologically<ManifestPackageInfo>(ManifestPackageInfo const&, ManifestPackageInfo const&)
{
    return false;
}

template <class Record>
void sortInfo(PackageInfoListRequest const& request, VectorObject<Record>& list)
{
    bool (*compare)(Record const&, Record const&) = comparePackageInfoAlphabetically<Record>;
    if (request.getSortOrder() == IPackageManager::SORT_BY_DATE)
        compare = comparePackageInfoChronologically<Record>;
    std::sort(list.begin(), list.end(), compare);
}

} // namespace

template <class Record>
void MasterPackageManager::_groomList(PackageInfoListRequest const& request, VectorObject<Record>& list)
{
    sortInfo(request, list);
    if (request.getStart() < list.size())
        list.erase(list.begin(), list.begin() + request.getStart());
    auto const limit = static_cast<unsigned int>(request.getNbItems());
    if (request.getNbItems() != 0 && limit < list.size())
        list.resize(limit);
}

template void MasterPackageManager::_groomList(PackageInfoListRequest const&, VectorObject<PackageInfo>&);
template void MasterPackageManager::_groomList(PackageInfoListRequest const&, VectorObject<ExtendedPackageInfo>&);
template void MasterPackageManager::_groomList(PackageInfoListRequest const&, VectorObject<ManifestPackageInfo>&);

MasterPackageManager::MasterPackageManager(Packager& packager) : packager(packager)
{
    packager.addListener(this);
}

MasterPackageManager::~MasterPackageManager()
{
    packager.removeListener(this);
    uninit();
}

PackageInfo MasterPackageManager::_getPackageInfo(std::string const& name) { return packager.getPackageInfo(name); }

ExtendedPackageInfo MasterPackageManager::_getExtendedPackageInfo(std::string const& name)
{
    return packager.getExtendedPackageInfo(name);
}

ManifestPackageInfo MasterPackageManager::_getManifestPackageInfo(std::string const& name)
{
    return packager.getManifestPackageInfo(name);
}

VectorObject<PackageInfo> MasterPackageManager::_getPackageInfoList(PackageInfoListRequest const& request)
{
    VectorObject<PackageInfo> list;
    packager.getPackageInfoList(request, list);
    _groomList(request, list);
    return list;
}

VectorObject<ExtendedPackageInfo> MasterPackageManager::_getExtendedPackageInfoList(
    PackageInfoListRequest const& request)
{
    VectorObject<ExtendedPackageInfo> list;
    packager.getExtendedPackageInfoList(request, list);
    _groomList(request, list);
    return list;
}

VectorObject<ManifestPackageInfo> MasterPackageManager::_getManifestPackageInfoList(
    PackageInfoListRequest const& request)
{
    VectorObject<ManifestPackageInfo> list;
    packager.getManifestPackageInfoList(request, list);
    _groomList(request, list);
    return list;
}

int MasterPackageManager::onPackagerSettingsChange() { return 0; }

int MasterPackageManager::onPackagerManifestChange(std::string const& entity, std::string const& attribute,
                                                   std::string const& value)
{
    onPackageManifestChanged(entity, attribute, value);
    return 0;
}

int MasterPackageManager::onPackagerManifestCommit() { return 0; }

} // namespace Velmora
