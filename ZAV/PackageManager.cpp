#include "PackageManager.h"

#include "frame/DebugPrint.h"
#include "frame/ListenerList.h"

namespace Velmora {

static char const MODULE[] = "PackageManager";

PackageManager::GetPackageInfoListCommand::GetPackageInfoListCommand(PackageManager* manager,
                                                                     PackageInfoListRequest const& request)
    : ReturningCommand(manager), request(request)
{
}

void PackageManager::GetPackageInfoListCommand::call()
{
    setReturn(getPackageManager()->_getPackageInfoList(request));
}

PackageManager::GetPackageInfoCommand::GetPackageInfoCommand(PackageManager* manager, std::string const& name)
    : ReturningCommand(manager), name(name)
{
}

void PackageManager::GetPackageInfoCommand::call() { setReturn(getPackageManager()->_getPackageInfo(name)); }

PackageManager::GetExtendedPackageInfoListCommand::GetExtendedPackageInfoListCommand(
    PackageManager* manager, PackageInfoListRequest const& request)
    : ReturningCommand(manager), request(request)
{
}

void PackageManager::GetExtendedPackageInfoListCommand::call()
{
    setReturn(getPackageManager()->_getExtendedPackageInfoList(request));
}

PackageManager::GetExtendedPackageInfoCommand::GetExtendedPackageInfoCommand(PackageManager* manager,
                                                                             std::string const& name)
    : ReturningCommand(manager), name(name)
{
}

void PackageManager::GetExtendedPackageInfoCommand::call()
{
    setReturn(getPackageManager()->_getExtendedPackageInfo(name));
}

PackageManager::GetManifestPackageInfoListCommand::GetManifestPackageInfoListCommand(
    PackageManager* manager, PackageInfoListRequest const& request)
    : ReturningCommand(manager), request(request)
{
}

void PackageManager::GetManifestPackageInfoListCommand::call()
{
    setReturn(getPackageManager()->_getManifestPackageInfoList(request));
}

PackageManager::GetManifestPackageInfoCommand::GetManifestPackageInfoCommand(PackageManager* manager,
                                                                             std::string const& name)
    : ReturningCommand(manager), name(name)
{
}

void PackageManager::GetManifestPackageInfoCommand::call()
{
    setReturn(getPackageManager()->_getManifestPackageInfo(name));
}

PackageManager::PackageManager() : CommandProcessor("PackageManager"), listenerMutex("PackageManager") {}

// One body for the six getters: run the command here, throw on failure.
template <class Command, class Argument>
static auto runGetter(PackageManager* manager, Argument const& argument, char const* operation)
{
    Command command(manager, argument);
    manager->executeOrThrow(command, MODULE, __LINE__, operation);
    return command.takeReturn();
}

VectorObject<PackageInfo> PackageManager::getPackageInfoList(PackageInfoListRequest const& request)
{
    return runGetter<GetPackageInfoListCommand>(this, request, "getPackageInfoList");
}

PackageInfo PackageManager::getPackageInfo(std::string const& name)
{
    return runGetter<GetPackageInfoCommand>(this, name, "getPackageInfo");
}

VectorObject<ExtendedPackageInfo> PackageManager::getExtendedPackageInfoList(PackageInfoListRequest const& request)
{
    return runGetter<GetExtendedPackageInfoListCommand>(this, request, "getExtendedPackageInfoList");
}

ExtendedPackageInfo PackageManager::getExtendedPackageInfo(std::string const& name)
{
    return runGetter<GetExtendedPackageInfoCommand>(this, name, "getExtendedPackageInfo");
}

VectorObject<ManifestPackageInfo> PackageManager::getManifestPackageInfoList(PackageInfoListRequest const& request)
{
    return runGetter<GetManifestPackageInfoListCommand>(this, request, "getManifestPackageInfoList");
}

ManifestPackageInfo PackageManager::getManifestPackageInfo(std::string const& name)
{
    return runGetter<GetManifestPackageInfoCommand>(this, name, "getManifestPackageInfo");
}

int PackageManager::onPackageInfoChanged()
{
    fanOut(listenerMutex, listeners, listenersChanged,
           [](IPackageManager::IPackageManagerListener* listener) { listener->onPackageInfoChanged(); });
    return 0;
}

int PackageManager::onPackageManifestChanged(std::string const& entity, std::string const& attribute,
                                             std::string const& value)
{
    fanOut(listenerMutex, listeners, listenersChanged, [&](IPackageManager::IPackageManagerListener* listener) {
        listener->onPackageManifestChanged(entity, attribute, value);
    });
    return 0;
}

int PackageManager::onPackageRepositoryChanged()
{
    fanOut(listenerMutex, listeners, listenersChanged,
           [](IPackageManager::IPackageManagerListener* listener) { listener->onPackageRepositoryChanged(); });
    return 0;
}

void PackageManager::addListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::addListener(listeners, listener))
        listenersChanged = true;
}

void PackageManager::removeListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::removeListener(listeners, listener))
        listenersChanged = true;
}

} // namespace Velmora
