#include "MasterPackageManager.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <vector>

namespace Velmora {

namespace {

std::string lowerCase(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
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

// The positions of `list` in the order the request asks for. Sorting
// positions rather than records keeps records from being copied on every
// exchange, and each name is lower-cased once rather than per comparison.
template <class Record>
std::vector<std::size_t> sortedOrder(PackageInfoListRequest const& request, VectorObject<Record> const& list)
{
    std::vector<std::size_t> order(list.size());
    std::iota(order.begin(), order.end(), 0);
    if (request.getSortOrder() == IPackageManager::SORT_BY_DATE) {
        std::sort(order.begin(), order.end(), [&list](std::size_t a, std::size_t b) {
            return comparePackageInfoChronologically(list[a], list[b]);
        });
        return order;
    }
    std::vector<std::string> keys;
    keys.reserve(list.size());
    for (Record const& record : list)
        keys.push_back(lowerCase(record.getName()));
    std::sort(order.begin(), order.end(), [&keys](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    return order;
}

} // namespace

// Paging works on the positions, so that only the records of the page are moved.
template <class Record>
void MasterPackageManager::_groomList(PackageInfoListRequest const& request, VectorObject<Record>& list)
{
    std::vector<std::size_t> order = sortedOrder(request, list);
    if (request.getStart() < order.size())
        order.erase(order.begin(), order.begin() + request.getStart());
    auto const limit = static_cast<unsigned int>(request.getNbItems());
    if (request.getNbItems() != 0 && limit < order.size())
        order.resize(limit);
    std::vector<Record> groomed;
    groomed.reserve(order.size());
    for (std::size_t position : order)
        groomed.push_back(std::move(list[position]));
    static_cast<std::vector<Record>&>(list).swap(groomed);
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
