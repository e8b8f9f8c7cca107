// The command layer of package installation: install and remove requests are
// queued to the installer's own thread ("PackageInstaller") and run there one
// at a time, in queueing order, by the `_` operations of MasterPackageInstaller
// or StubPackageInstaller. The end of each request comes as onRequestEnd.
//
// Threads: packageInstall/packageRemove may be called from any thread and
// return once the request is queued. onRequestEnd fans out on the caller's
// thread, under listenerMutex released around each call. Listener pointers are
// not owned. A subclass calls uninit() in its destructor.
#pragma once

#include "frame/CommandProcessor.h"
#include "interfaces/IPackageInstaller.h"
#include "frame/Mutex.h"

#include <string>
#include <vector>

namespace Velmora {

class PackageInstaller : public CommandProcessor, public virtual IPackageInstaller,
                         public virtual IPackageInstaller::IPackageInstallerNotifier {
public:
    class PackageInstallerCommand : public CommandProcessor::Command {
    public:
        explicit PackageInstallerCommand(PackageInstaller* installer) : Command(installer) {}
        PackageInstaller* getPackageInstaller() const { return static_cast<PackageInstaller*>(processor); }
    };

    class PackageInstallCommand : public PackageInstallerCommand {
    public:
        PackageInstallCommand(PackageInstaller* installer, VectorObject<std::string> const& packages, bool force);
        void call() override;

    private:
        VectorObject<std::string> packages;
        bool force;
    };

    class PackageRemoveCommand : public PackageInstallerCommand {
    public:
        PackageRemoveCommand(PackageInstaller* installer, VectorObject<std::string> const& packages, bool force);
        void call() override;

    private:
        VectorObject<std::string> packages;
        bool force;
    };

    PackageInstaller();

    ReturnCode packageInstall(VectorObject<std::string> const& packages, bool force) override;
    ReturnCode packageRemove(VectorObject<std::string> const& packages, bool force) override;
    int onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation,
                     ReturnCode result) override;
    void addListener(IListener* listener) override;
    void removeListener(IListener* listener) override;

    virtual void _packageInstall(VectorObject<std::string> const& packages, bool force) = 0;
    virtual void _packageRemove(VectorObject<std::string> const& packages, bool force) = 0;

private:
    Mutex listenerMutex;
    std::vector<IPackageInstaller::IPackageInstallerListener*> listeners; // guarded by listenerMutex
    bool listenersChanged = false;
};

} // namespace Velmora
