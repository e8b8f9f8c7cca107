// The package installer of the process that owns the hardware: runs one RPM
// transaction per request, finding each package's file through the manifest,
// and reports the end of every request with onRequestEnd (0 or 7). With the
// "SilentUpdate" setting on, whatever the manifest gains is installed (forced)
// without anyone asking.
//
// Threads: `_` operations run on the PackageInstaller thread and hold the RPM
// database lock for the whole transaction. Manifest changes and commits
// arrive on the repository monitor's thread; pendingPackages belongs to that
// thread. The Packager is not owned and outlives this object.
#pragma once

#include "frame/ExplicitSingleton.h"
#include "PackageInstaller.h"
#include "Packager.h"
#include "PackagerListener.h"

#include <rpm/rpmcli.h>

namespace Velmora {

class MasterPackageInstaller : public ExplicitSingleton<MasterPackageInstaller>, public PackageInstaller,
                               public PackagerListener {
public:
    explicit MasterPackageInstaller(Packager& packager);
    ~MasterPackageInstaller() override;

    void _packageInstall(VectorObject<std::string> const& packages, bool force) override;
    void _packageRemove(VectorObject<std::string> const& packages, bool force) override;

    int onPackagerSettingsChange() override;
    int onPackagerManifestChange(std::string const& entity, std::string const& attribute,
                                 std::string const& value) override;
    int onPackagerManifestCommit() override;

    // The argument record of one RPM request, as the library reads it.
    static rpmInstallArguments_s installArguments(bool force);
    static rpmInstallArguments_s removeArguments(bool force);

private:
    // The macro-expanded repository path of `name`; empty when the manifest
    // doesn't offer it.
    std::string _getPackagePath(std::string const& name) const;
    static void logFailure(char const* what, VectorObject<std::string> const& packages);

    Packager& packager;
    VectorObject<std::string> pendingPackages;
};

} // namespace Velmora
