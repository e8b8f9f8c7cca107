#include "RemovedPackageWindows.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <algorithm>

namespace Velmora {

static char const MODULE[] = "RemovedPackageWindows";

namespace {

// True when a request's `label` names `package`, as RPM reads a label.
bool names(std::string const& label, ExtendedPackageInfo const& package)
{
    std::string const withVersion = package.getName() + "-" + package.getVersion();
    return label == package.getName() || label == withVersion || label == withVersion + "-" + package.getRelease();
}

} // namespace

RemovedPackageWindows::RemovedPackageWindows(PackageInstaller& installer, PackageManager& packages,
                                             std::vector<WindowManager*> windows)
    : installer(installer), packages(packages), windows(std::move(windows))
{
    readCatalogue();
    installer.addListener(this);
}

RemovedPackageWindows::~RemovedPackageWindows() { installer.removeListener(this); }

int RemovedPackageWindows::onRequestEnd(VectorObject<std::string> const& requested, std::string const& operation,
                                        ReturnCode result)
{
    if (operation == "remove" && result == ReturnSuccess)
        for (ExtendedPackageInfo const& package : catalogue)
            if (std::any_of(requested.begin(), requested.end(),
                            [&](std::string const& label) { return names(label, package); }))
                endWindowsOf(package);
    readCatalogue();
    return 0;
}

void RemovedPackageWindows::readCatalogue()
{
    try {
        PackageInfoListRequest const everything{VectorObject<std::string>()};
        VectorObject<ExtendedPackageInfo> installed = packages.getExtendedPackageInfoList(everything);
        std::erase_if(installed, [](ExtendedPackageInfo const& package) {
            CustomPackageInfo const& launch = package.getCustomPackageInfo();
            return launch.getApplicationType().empty() || launch.getApplicationURL().empty();
        });
        catalogue = std::move(installed);
    } catch (Exception const& e) {
        VLOG(DebugLevelError, "the installed packages can't be read (%s): a removal ends the windows known before\n",
             e.what());
    }
}

void RemovedPackageWindows::endWindowsOf(ExtendedPackageInfo const& package)
{
    CustomPackageInfo const& launch = package.getCustomPackageInfo();
    std::string const reason = "its package " + package.getName() + " was removed";
    for (WindowManager* session : windows) {
        unsigned int asked = 0;
        runLoggingExceptions(MODULE, __LINE__, "endWindowsOf", [&] {
            asked = session->terminateLaunchedAs(launch.getApplicationType(), launch.getApplicationURL(), reason);
        });
        if (asked > 0)
            VLOG(DebugLevelNotice, "session %u: %u window(s) of %s %s asked to end: %s\n", session->getSessionIndex(),
                 asked, launch.getApplicationType().c_str(), launch.getApplicationURL().c_str(), reason.c_str());
    }
}

} // namespace Velmora
