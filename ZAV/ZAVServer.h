// The holder of the managers of one server instance. It keeps plain pointers
// (one window manager per session, the others may be null), owns none of
// them, and subscribes itself to every manager but the port mapper. What a
// change becomes is the subclass's business (ZAVRPCServer); this class only
// fixes the set of managers and the subscription.
//
// Threads: construct, init() and destroy on the owner's thread. The listener
// operations run on whichever thread fans a change out, mostly the manager's
// own. The destructor only unsubscribes: every manager keeps running.
#pragma once

#include "frame/ComplexObject.h"
#include "interfaces/IPackageInstaller.h"
#include "interfaces/IPackageManager.h"
#include "interfaces/IServiceManager.h"
#include "interfaces/ISettingsDB.h"
#include "interfaces/IStateManager.h"
#include "interfaces/IWindowManager.h"

#include <vector>

namespace Velmora {

class WindowManager;
class PortMapper;
class ServiceManager;
class StateManager;
class PackageManager;
class PackageInstaller;
class SettingsDB;

class ZAVServer : public ComplexObject, public virtual IWindowManager::IWindowManagerListener,
                  public virtual IServiceManager::IServiceManagerListener,
                  public virtual IStateManager::IStateManagerListener,
                  public virtual IPackageManager::IPackageManagerListener,
                  public virtual IPackageInstaller::IPackageInstallerListener,
                  public virtual ISettingsDB::ISettingsDBListener {
public:
    // Only copies the arguments; subscribes to nothing.
    ZAVServer(std::vector<WindowManager*> const& windowManagers, PortMapper* portMapper,
              ServiceManager* serviceManager, StateManager* stateManager, PackageManager* packageManager,
              PackageInstaller* packageInstaller, SettingsDB* settingsDB);
    // Unsubscribes, in the order of init().
    ~ZAVServer() override;

    // Subscribes to each window manager in vector order, then the service
    // manager, state manager, package manager, package installer and
    // settings database, skipping null pointers.
    void init() override;

protected:
    // Removes this object from every manager, in the order of init(); a
    // manager it was never added to is left as it is. Returns once no manager
    // is inside a call into this object (but the state manager, which never calls).
    void unsubscribe();

    std::vector<WindowManager*> windowManagers;
    PortMapper* portMapper;
    ServiceManager* serviceManager;
    StateManager* stateManager;
    PackageManager* packageManager;
    PackageInstaller* packageInstaller;
    SettingsDB* settingsDB;

private:
    // Calls visit(manager) for every manager but the port mapper, in the
    // order of subscription, skipping null pointers.
    template <class Visit>
    void visitManagers(Visit visit);
};

} // namespace Velmora
