// The command layer of the services: the application table of
// ApplicationManager applied to background services. It adds the list of
// service uids, the hand-off of authorization tokens to every service's client
// and the notifications of boot complete, service failure and list change. It
// decides nothing about which service runs when (MasterServiceManager does).
//
// Threads: public operations from any thread wait for the manager's thread;
// the token operations call each client on that thread, one after another.
// onBootComplete/onServiceFailure/onServiceListChange fan out on the caller's
// thread. serviceListeners is guarded by listenerMutex; listeners are not owned.
#pragma once

#include "ApplicationManager.h"
#include "interfaces/IService.h"
#include "interfaces/IServiceManager.h"

#include <vector>

namespace Velmora {

class ServiceManager : public ApplicationManager, public virtual IServiceManager,
                       public virtual IService::IServiceListener,
                       public virtual IServiceManager::IServiceManagerNotifier {
public:
    class ServiceManagerCommand : public CommandProcessor::Command {
    public:
        explicit ServiceManagerCommand(ServiceManager* manager) : Command(manager) {}
        ServiceManager* getServiceManager() const { return static_cast<ServiceManager*>(processor); }
    };

    class GetServiceListCommand : public ReturningCommand<ServiceManagerCommand, VectorObject<std::string>> {
    public:
        explicit GetServiceListCommand(ServiceManager* manager) : ReturningCommand(manager) {}
        void call() override;
    };

    class AuthorizationTokenCreationCommand : public ServiceManagerCommand {
    public:
        AuthorizationTokenCreationCommand(ServiceManager* manager, unsigned int token, Rights const& rights);
        void call() override;

    private:
        unsigned int token;
        Rights rights;
    };

    class AuthorizationTokenDeletionCommand : public ServiceManagerCommand {
    public:
        AuthorizationTokenDeletionCommand(ServiceManager* manager, unsigned int token);
        void call() override;

    private:
        unsigned int token;
    };

    ServiceManager(ApplicationFactory* factory, int argc, char** argv);

    VectorObject<std::string> getServiceList() override;
    void authorizationTokenCreation(unsigned int token, Rights rights) override;
    void authorizationTokenDeletion(unsigned int token) override;

    void onBootComplete() override;
    void onServiceFailure(std::string const& name) override;
    void onServiceListChange(VectorObject<std::string> const& list) override;

    void addListener(IListener* listener) override;
    void removeListener(IListener* listener) override;

protected:
    // Uids of all entries in key order, whatever their state.
    virtual VectorObject<std::string> _getServiceList();
    // Passed to every entry's client; a missing client stops the walk.
    virtual void _authorizationTokenCreation(unsigned int token, Rights rights);
    virtual void _authorizationTokenDeletion(unsigned int token);
    void _onApplicationListChange() override;

    std::vector<IServiceManager::IServiceManagerListener*> serviceListeners;
    bool serviceListenersChanged = false;

private:
    // The client of every entry, in key order; throws for `operation` when one is missing.
    template <class Call>
    void forEachServiceClient(char const* operation, Call&& call);
};

} // namespace Velmora
