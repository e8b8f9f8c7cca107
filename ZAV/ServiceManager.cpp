#include "ServiceManager.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/ListenerList.h"

namespace Velmora {

static char const MODULE[] = "ServiceManager";

void ServiceManager::GetServiceListCommand::call() { setReturn(getServiceManager()->_getServiceList()); }

ServiceManager::AuthorizationTokenCreationCommand::AuthorizationTokenCreationCommand(ServiceManager* manager,
                                                                                     unsigned int token,
                                                                                     Rights const& rights)
    : ServiceManagerCommand(manager), token(token), rights(rights)
{
}
void ServiceManager::AuthorizationTokenCreationCommand::call()
{
    getServiceManager()->_authorizationTokenCreation(token, rights);
}

ServiceManager::AuthorizationTokenDeletionCommand::AuthorizationTokenDeletionCommand(ServiceManager* manager,
                                                                                     unsigned int token)
    : ServiceManagerCommand(manager), token(token)
{
}
void ServiceManager::AuthorizationTokenDeletionCommand::call()
{
    getServiceManager()->_authorizationTokenDeletion(token);
}

ServiceManager::ServiceManager(ApplicationFactory* factory, int argc, char** argv)
    : ApplicationManager(factory, "ServiceManager", argc, argv)
{
}

VectorObject<std::string> ServiceManager::getServiceList()
{
    GetServiceListCommand command(this);
    executeOrThrow(command, MODULE, __LINE__, "getServiceList");
    return command.takeReturn();
}

void ServiceManager::authorizationTokenCreation(unsigned int token, Rights rights)
{
    AuthorizationTokenCreationCommand command(this, token, rights);
    executeOrThrow(command, MODULE, __LINE__, "authorizationTokenCreation");
}

void ServiceManager::authorizationTokenDeletion(unsigned int token)
{
    AuthorizationTokenDeletionCommand command(this, token);
    executeOrThrow(command, MODULE, __LINE__, "authorizationTokenDeletion");
}

void ServiceManager::onBootComplete()
{
    fanOut(listenerMutex, serviceListeners, serviceListenersChanged,
           [](IServiceManager::IServiceManagerListener* listener) { listener->onBootComplete(); });
}

void ServiceManager::onServiceFailure(std::string const& name)
{
    fanOut(listenerMutex, serviceListeners, serviceListenersChanged,
           [&](IServiceManager::IServiceManagerListener* listener) { listener->onServiceFailure(name); });
}

void ServiceManager::onServiceListChange(VectorObject<std::string> const& list)
{
    fanOut(listenerMutex, serviceListeners, serviceListenersChanged,
           [&](IServiceManager::IServiceManagerListener* listener) { listener->onServiceListChange(list); });
}

void ServiceManager::addListener(IListener* listener)
{
    ApplicationManager::addListener(listener);
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::addListener(serviceListeners, listener))
        serviceListenersChanged = true;
}

void ServiceManager::removeListener(IListener* listener)
{
    {
        Mutex::ScopedLock lock(&listenerMutex);
        if (Velmora::removeListener(serviceListeners, listener))
            serviceListenersChanged = true;
    }
    ApplicationManager::removeListener(listener);
}

VectorObject<std::string> ServiceManager::_getServiceList()
{
    VectorObject<std::string> list;
    for (auto const& [uid, entry] : applications)
        list.push_back(entry.getUid());
    return list;
}

template <class Call>
void ServiceManager::forEachServiceClient(char const* operation, Call&& call)
{
    for (auto const& [uid, listed] : applications) {
        ApplicationMapEntry* entry = _getApplicationEntry(listed.getUid());
        if (!entry)
            throwException(MODULE, __LINE__, operation, ReturnInvalidParameter);
        APPClient* client = entry->getAPPClient();
        if (!client)
            throwException(MODULE, __LINE__, operation, ReturnInvalidParameter);
        call(*client);
    }
}

void ServiceManager::_authorizationTokenCreation(unsigned int token, Rights rights)
{
    forEachServiceClient("_authorizationTokenCreation",
                         [&](APPClient& client) { client.authorizationTokenCreation(token, rights); });
}

void ServiceManager::_authorizationTokenDeletion(unsigned int token)
{
    forEachServiceClient("_authorizationTokenDeletion",
                         [&](APPClient& client) { client.authorizationTokenDeletion(token); });
}

void ServiceManager::_onApplicationListChange() { onServiceListChange(_getServiceList()); }

} // namespace Velmora
