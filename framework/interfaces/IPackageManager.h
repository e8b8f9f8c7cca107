// The package catalogue as its clients see it: what the RPM database holds
// (PackageInfo, ExtendedPackageInfo) and what the local repository offers
// (ManifestPackageInfo). Lists are filtered by group, sorted and paged by a
// PackageInfoListRequest; the overloads build that request. A missing package
// gives a default record, never an exception.
//
// Listeners hear catalogue changes on the thread that raised them; listener
// pointers are not owned.
#pragma once

#include "interfaces/ExtendedPackageInfo.h"
#include "frame/IObservable.h"
#include "interfaces/ManifestPackageInfo.h"
#include "interfaces/PackageInfo.h"
#include "interfaces/PackageInfoListRequest.h"

#include <string>

namespace Velmora {

class IPackageManager {
public:
    // The sortOrder that lists packages oldest install first.
    static char const* const SORT_BY_DATE;

    virtual ~IPackageManager() = default;

    virtual VectorObject<PackageInfo> getPackageInfoList(PackageInfoListRequest const& request) = 0;
    virtual VectorObject<PackageInfo> getPackageInfoList(VectorObject<std::string> const& groups);
    virtual VectorObject<PackageInfo> getPackageInfoList(VectorObject<std::string> const& groups, unsigned int start,
                                                         int nbItems, std::string const& sortOrder);
    virtual VectorObject<ExtendedPackageInfo> getExtendedPackageInfoList(PackageInfoListRequest const& request) = 0;
    virtual VectorObject<ExtendedPackageInfo> getExtendedPackageInfoList(VectorObject<std::string> const& groups);
    virtual VectorObject<ExtendedPackageInfo> getExtendedPackageInfoList(VectorObject<std::string> const& groups,
                                                                         unsigned int start, int nbItems,
                                                                         std::string const& sortOrder);
    virtual VectorObject<ManifestPackageInfo> getManifestPackageInfoList(PackageInfoListRequest const& request) = 0;
    virtual VectorObject<ManifestPackageInfo> getManifestPackageInfoList(VectorObject<std::string> const& groups);
    virtual VectorObject<ManifestPackageInfo> getManifestPackageInfoList(VectorObject<std::string> const& groups,
                                                                         unsigned int start, int nbItems,
                                                                         std::string const& sortOrder);
    virtual PackageInfo getPackageInfo(std::string const& name) = 0;
    virtual ExtendedPackageInfo getExtendedPackageInfo(std::string const& name) = 0;
    virtual ManifestPackageInfo getManifestPackageInfo(std::string const& name) = 0;

    class IPackageManagerListener : public virtual IListener {
    public:
        virtual int onPackageInfoChanged() = 0;
        virtual int onPackageManifestChanged(std::string const& entity, std::string const& attribute,
                                             std::string const& value) = 0;
        virtual int onPackageRepositoryChanged() = 0;
    };

    class IPackageManagerNotifier : public virtual IObservable, public virtual IPackageManagerListener {};
};

} // namespace Velmora
