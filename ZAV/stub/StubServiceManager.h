// The service manager of a process that doesn't own the hardware: the whole
// table and all commands of ServiceManager, no policy. It starts no services
// by itself, sees no command line and never raises boot complete or service
// failure. Threads and ownership as ServiceManager.
#pragma once

#include "ServiceManager.h"
#include "frame/Singleton.h"

namespace Velmora {

class StubServiceManager : public Singleton<StubServiceManager>, public ServiceManager {
public:
    explicit StubServiceManager(ApplicationFactory* factory);
    ~StubServiceManager() override;

    void init() override;
    Client::Type getClientType() override;
};

} // namespace Velmora
