// The package catalogue of a process that doesn't own the hardware: a null
// object. Every query answers a default record or an empty list, whatever it
// asks. Threads and ownership as PackageManager.
#pragma once

#include "PackageManager.h"
#include "frame/Singleton.h"

namespace Velmora {

class StubPackageManager : public Singleton<StubPackageManager>, public PackageManager {
public:
    StubPackageManager();
    ~StubPackageManager() override;

    PackageInfo _getPackageInfo(std::string const& name) override;
    VectorObject<PackageInfo> _getPackageInfoList(PackageInfoListRequest const& request) override;
    ExtendedPackageInfo _getExtendedPackageInfo(std::string const& name) override;
    VectorObject<ExtendedPackageInfo> _getExtendedPackageInfoList(PackageInfoListRequest const& request) override;
    ManifestPackageInfo _getManifestPackageInfo(std::string const& name) override;
    VectorObject<ManifestPackageInfo> _getManifestPackageInfoList(PackageInfoListRequest const& request) override;
};

} // namespace Velmora
