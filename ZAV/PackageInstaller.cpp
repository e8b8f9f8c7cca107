#include "PackageInstaller.h"

#include "frame/ListenerList.h"

namespace Velmora {

PackageInstaller::PackageInstallCommand::PackageInstallCommand(PackageInstaller* installer,
                                                               VectorObject<std::string> const& packages, bool force)
    : PackageInstallerCommand(installer), packages(packages), force(force)
{
}

void PackageInstaller::PackageInstallCommand::call() { getPackageInstaller()->_packageInstall(packages, force); }

PackageInstaller::PackageRemoveCommand::PackageRemoveCommand(PackageInstaller* installer,
                                                             VectorObject<std::string> const& packages, bool force)
    : PackageInstallerCommand(installer), packages(packages), force(force)
{
}

void PackageInstaller::PackageRemoveCommand::call() { getPackageInstaller()->_packageRemove(packages, force); }

PackageInstaller::PackageInstaller() : CommandProcessor("PackageInstaller"), listenerMutex("PackageInstaller") {}

// Queued commands report no status: once queued, a request is accepted.
ReturnCode PackageInstaller::packageInstall(VectorObject<std::string> const& packages, bool force)
{
    queueCommand(new PackageInstallCommand(this, packages, force), true);
    return ReturnSuccess;
}

ReturnCode PackageInstaller::packageRemove(VectorObject<std::string> const& packages, bool force)
{
    queueCommand(new PackageRemoveCommand(this, packages, force), true);
    return ReturnSuccess;
}

int PackageInstaller::onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation,
                                   ReturnCode result)
{
    fanOut(listenerMutex, listeners, listenersChanged, [&](IPackageInstaller::IPackageInstallerListener* listener) {
        listener->onRequestEnd(packages, operation, result);
    });
    return 0;
}

void PackageInstaller::addListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::addListener(listeners, listener))
        listenersChanged = true;
}

void PackageInstaller::removeListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::removeListener(listeners, listener))
        listenersChanged = true;
}

} // namespace Velmora
