#include "StubPackageInstaller.h"

namespace Velmora {

StubPackageInstaller::StubPackageInstaller() = default;

StubPackageInstaller::~StubPackageInstaller() { uninit(); }

void StubPackageInstaller::_packageInstall(VectorObject<std::string> const&, bool) {}

void StubPackageInstaller::_packageRemove(VectorObject<std::string> const&, bool) {}

} // namespace Velmora
