// The command layer of the package catalogue: every query is carried to the
// manager's own thread ("PackageManager") and answered there by the `_`
// operations that MasterPackageManager and StubPackageManager supply.
//
// Threads: the public getters may be called from any thread and block until
// the answer is ready; a non-zero command status is thrown as Exception.
// Notifications fan out on the caller's thread, under listenerMutex released
// around each call. `_` operations run on the manager's thread only.
// Listener pointers are not owned. A subclass calls uninit() in its destructor.
#pragma once

#include "frame/CommandProcessor.h"
#include "interfaces/IPackageManager.h"
#include "frame/Mutex.h"
#include "frame/ReturningCommand.h"

#include <string>
#include <vector>

namespace Velmora {

class PackageManager : public CommandProcessor, public virtual IPackageManager,
                       public virtual IPackageManager::IPackageManagerNotifier {
public:
    class PackageManagerCommand : public CommandProcessor::Command {
    public:
        explicit PackageManagerCommand(PackageManager* manager) : Command(manager) {}
        PackageManager* getPackageManager() const { return static_cast<PackageManager*>(processor); }
    };

    class GetPackageInfoListCommand : public ReturningCommand<PackageManagerCommand, VectorObject<PackageInfo>> {
    public:
        GetPackageInfoListCommand(PackageManager* manager, PackageInfoListRequest const& request);
        void call() override;

    private:
        PackageInfoListRequest request;
    };

    class GetPackageInfoCommand : public ReturningCommand<PackageManagerCommand, PackageInfo> {
    public:
        GetPackageInfoCommand(PackageManager* manager, std::string const& name);
        void call() override;

    private:
        std::string name;
    };

    class GetExtendedPackageInfoListCommand
        : public ReturningCommand<PackageManagerCommand, VectorObject<ExtendedPackageInfo>> {
    public:
        GetExtendedPackageInfoListCommand(PackageManager* manager, PackageInfoListRequest const& request);
        void call() override;

    private:
        PackageInfoListRequest request;
    };

    class GetExtendedPackageInfoCommand : public ReturningCommand<PackageManagerCommand, ExtendedPackageInfo> {
    public:
        GetExtendedPackageInfoCommand(PackageManager* manager, std::string const& name);
        void call() override;

    private:
        std::string name;
    };

    class GetManifestPackageInfoListCommand
        : public ReturningCommand<PackageManagerCommand, VectorObject<ManifestPackageInfo>> {
    public:
        GetManifestPackageInfoListCommand(PackageManager* manager, PackageInfoListRequest const& request);
        void call() override;

    private:
        PackageInfoListRequest request;
    };

    class GetManifestPackageInfoCommand : public ReturningCommand<PackageManagerCommand, ManifestPackageInfo> {
    public:
        GetManifestPackageInfoCommand(PackageManager* manager, std::string const& name);
        void call() override;

    private:
        std::string name;
    };

    PackageManager();

    using IPackageManager::getExtendedPackageInfoList;
    using IPackageManager::getManifestPackageInfoList;
    using IPackageManager::getPackageInfoList;
    VectorObject<PackageInfo> getPackageInfoList(PackageInfoListRequest const& request) override;
    PackageInfo getPackageInfo(std::string const& name) override;
    VectorObject<ExtendedPackageInfo> getExtendedPackageInfoList(PackageInfoListRequest const& request) override;
    ExtendedPackageInfo getExtendedPackageInfo(std::string const& name) override;
    VectorObject<ManifestPackageInfo> getManifestPackageInfoList(PackageInfoListRequest const& request) override;
    ManifestPackageInfo getManifestPackageInfo(std::string const& name) override;

    int onPackageInfoChanged() override;
    int onPackageManifestChanged(std::string const& entity, std::string const& attribute,
                                 std::string const& value) override;
    int onPackageRepositoryChanged() override;

    void addListener(IListener* listener) override;
    void removeListener(IListener* listener) override;

    virtual PackageInfo _getPackageInfo(std::string const& name) = 0;
    virtual VectorObject<PackageInfo> _getPackageInfoList(PackageInfoListRequest const& request) = 0;
    virtual ExtendedPackageInfo _getExtendedPackageInfo(std::string const& name) = 0;
    virtual VectorObject<ExtendedPackageInfo> _getExtendedPackageInfoList(PackageInfoListRequest const& request) = 0;
    virtual ManifestPackageInfo _getManifestPackageInfo(std::string const& name) = 0;
    virtual VectorObject<ManifestPackageInfo> _getManifestPackageInfoList(PackageInfoListRequest const& request) = 0;

private:
    Mutex listenerMutex;
    std::vector<IPackageManager::IPackageManagerListener*> listeners; // guarded by listenerMutex
    bool listenersChanged = false;
};

} // namespace Velmora
