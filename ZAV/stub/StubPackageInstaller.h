// The package installer of a process that doesn't own the hardware: a null
// object. Requests are accepted and dropped; no onRequestEnd follows.
// Threads and ownership as PackageInstaller.
#pragma once

#include "PackageInstaller.h"
#include "frame/Singleton.h"

namespace Velmora {

class StubPackageInstaller : public Singleton<StubPackageInstaller>, public PackageInstaller {
public:
    StubPackageInstaller();
    ~StubPackageInstaller() override;

    void _packageInstall(VectorObject<std::string> const& packages, bool force) override;
    void _packageRemove(VectorObject<std::string> const& packages, bool force) override;
};

} // namespace Velmora
