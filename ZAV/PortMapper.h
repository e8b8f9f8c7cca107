// The registry from a service name to a network port behind "IPortMapper".
// Only its frame stands: every operation has its final signature and a fixed
// answer (no port is ever assigned), so clients can already call it. Whether
// the host creates one decides whether the interface is offered.
//
// Threads: any; no operation touches a field, so none takes the mutex.
#pragma once

#include "frame/Mutex.h"
#include "frame/Singleton.h"
#include "interfaces/IPortMapper.h"

#include <map>
#include <string>
#include <vector>

namespace Velmora {

class PortMapper : public Singleton<PortMapper> {
public:
    // A port that a service is to get whatever the order of registration.
    struct ServicePortPreset {
        std::string name;
        unsigned int port = 0;
    };

    // The preset list is ignored.
    void init(std::vector<ServicePortPreset> presets);
    // A default PortInfo, for any name.
    IPortMapper::PortInfo lookupService(std::string name);
    // False, for any name.
    bool registerService(std::string name);
    // False, for any name.
    bool internalRegisterService(std::string name);
    // 0.
    unsigned int findNextAvailablePort();
    // False, for any port.
    bool isPortAllocated(unsigned int port);

private:
    // The registry's state stands ready for assignment, which nothing does yet.
    std::map<std::string, IPortMapper::PortInfo> services;
    [[maybe_unused]] unsigned int nextPort = 5681;
    Mutex mutex{"PortMapper"};
};

} // namespace Velmora
