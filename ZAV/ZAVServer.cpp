#include "ZAVServer.h"

#include "PackageInstaller.h"
#include "PackageManager.h"
#include "ServiceManager.h"
#include "SettingsDB.h"
#include "StateManager.h"
#include "WindowManager.h"

namespace Velmora {

ZAVServer::ZAVServer(std::vector<WindowManager*> const& windowManagers, PortMapper* portMapper,
                     ServiceManager* serviceManager, StateManager* stateManager, PackageManager* packageManager,
                     PackageInstaller* packageInstaller, SettingsDB* settingsDB)
    : windowManagers(windowManagers), portMapper(portMapper), serviceManager(serviceManager),
      stateManager(stateManager), packageManager(packageManager), packageInstaller(packageInstaller),
      settingsDB(settingsDB)
{
}

ZAVServer::~ZAVServer() { unsubscribe(); }

template <class Visit>
void ZAVServer::visitManagers(Visit visit)
{
    for (WindowManager* manager : windowManagers)
        if (manager)
            visit(*manager);
    if (serviceManager)
        visit(*serviceManager);
    if (stateManager)
        visit(*stateManager);
    if (packageManager)
        visit(*packageManager);
    if (packageInstaller)
        visit(*packageInstaller);
    if (settingsDB)
        visit(*settingsDB);
}

void ZAVServer::init()
{
    IListener* const self = static_cast<IWindowManager::IWindowManagerListener*>(this);
    visitManagers([self](auto& manager) { manager.addListener(self); });
}

void ZAVServer::unsubscribe()
{
    IListener* const self = static_cast<IWindowManager::IWindowManagerListener*>(this);
    visitManagers([self](auto& manager) { manager.removeListener(self); });
}

} // namespace Velmora
