// The table of services, and the road by which authorization tokens and their
// rights reach every running service. Rights: interface name -> function name
// -> flag.
#pragma once

#include "interfaces/IApplicationManager.h"
#include "serial/MapObject.h"
#include "serial/VectorObject.h"

#include <string>

namespace Velmora {

class IServiceManager : public virtual IApplicationManager {
public:
    using Rights = MapObject<MapObject<int>>;

    class IServiceManagerListener : public virtual IApplicationManager::IApplicationManagerListener {
    public:
        virtual void onBootComplete() = 0;
        virtual void onServiceFailure(std::string const& name) = 0;
        virtual void onServiceListChange(VectorObject<std::string> const& list) = 0;
    };

    class IServiceManagerNotifier : public virtual IObservable, public virtual IServiceManagerListener {};

    virtual VectorObject<std::string> getServiceList() = 0;
    virtual void authorizationTokenCreation(unsigned int token, Rights rights) = 0;
    virtual void authorizationTokenDeletion(unsigned int token) = 0;
};

} // namespace Velmora
