// The package catalogue of the process that owns the hardware. Queries are
// answered from the Packager and then sorted (by name, or by install time for
// IPackageManager::SORT_BY_DATE) and paged; manifest changes become the public
// onPackageManifestChanged notification.
//
// Threads: `_` operations run on the PackageManager thread; manifest changes
// arrive on the repository monitor's thread and notify from there. The
// Packager is not owned and outlives this object.
#pragma once

#include "frame/ExplicitSingleton.h"
#include "PackageManager.h"
#include "Packager.h"
#include "PackagerListener.h"

namespace Velmora {

class MasterPackageManager : public ExplicitSingleton<MasterPackageManager>, public PackageManager,
                             public PackagerListener {
public:
    explicit MasterPackageManager(Packager& packager);
    ~MasterPackageManager() override;

    PackageInfo _getPackageInfo(std::string const& name) override;
    ExtendedPackageInfo _getExtendedPackageInfo(std::string const& name) override;
    ManifestPackageInfo _getManifestPackageInfo(std::string const& name) override;
    VectorObject<PackageInfo> _getPackageInfoList(PackageInfoListRequest const& request) override;
    VectorObject<ExtendedPackageInfo> _getExtendedPackageInfoList(PackageInfoListRequest const& request) override;
    VectorObject<ManifestPackageInfo> _getManifestPackageInfoList(PackageInfoListRequest const& request) override;

    int onPackagerSettingsChange() override;
    int onPackagerManifestChange(std::string const& entity, std::string const& attribute,
                                 std::string const& value) override;
    int onPackagerManifestCommit() override;

    // Sorts `list` as the request asks, drops the first getStart() entries
    // (unless that would leave nothing) and keeps at most getNbItems().
    template <class Record>
    static void _groomList(PackageInfoListRequest const& request, VectorObject<Record>& list);

private:
    Packager& packager;
};

} // namespace Velmora
