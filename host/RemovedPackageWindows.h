// Ends the windows of a package that is removed: a program whose files are
// gone must not run on. After a remove request that succeeded, every window
// of every session that was launched as a removed package's application (the
// applicationType and applicationURL of its customPackageInfo, as the home
// screen launches it) is asked to end like any terminated window: the program
// may leave cleanly, the window manager collects it as a runaway when it does
// not, and focus and the master window follow as at any window's end. The
// journal's "terminate" entry says "its package NAME was removed".
//
// Decisions where the behaviour is ours to choose:
// - A remove that fails or is refused ends nothing; an install ends nothing.
// - A window is its package's when both its type and its URL are the ones the
//   package declares. A package that declares no type or no URL (a service)
//   has no windows; a window whose launch no removed package declares (a URL
//   launched by hand) stays.
// - The master window stays even when its own package is removed: the box
//   keeps its home screen until the next start.
// - A request names a package as RPM reads it: NAME, NAME-VERSION or
//   NAME-VERSION-RELEASE.
// - The launches are read before the removal, from a copy of the catalogue
//   taken at construction and again at the end of every request (requests run
//   one at a time). A package installed behind the server's back, with the
//   rpm tool, is known from the next request's end on.
// - A launch put off at the window limit is not withdrawn.
//
// Threads: built and destroyed by the owner, after the package manager and
// the window managers run and before either stops; it listens to the
// installer from construction to destruction (the destructor waits for a
// call in flight). onRequestEnd runs on the installer's thread and waits
// for the package manager's and each window manager's thread; catalogue
// belongs to that thread once construction is done. Nothing is owned.
#pragma once

#include "PackageInstaller.h"
#include "PackageManager.h"
#include "WindowManager.h"

#include <string>
#include <vector>

namespace Velmora {

class RemovedPackageWindows : public virtual IPackageInstaller::IPackageInstallerListener {
public:
    RemovedPackageWindows(PackageInstaller& installer, PackageManager& packages, std::vector<WindowManager*> windows);
    ~RemovedPackageWindows() override;
    RemovedPackageWindows(RemovedPackageWindows const&) = delete;
    RemovedPackageWindows& operator=(RemovedPackageWindows const&) = delete;

    int onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation,
                     ReturnCode result) override;

private:
    // The installed packages that declare a launch; kept as it was when a read fails.
    void readCatalogue();
    void endWindowsOf(ExtendedPackageInfo const& package);

    PackageInstaller& installer;
    PackageManager& packages;
    std::vector<WindowManager*> const windows;
    VectorObject<ExtendedPackageInfo> catalogue;
};

} // namespace Velmora
