#include "PortMapper.h"

namespace Velmora {

void PortMapper::init(std::vector<ServicePortPreset>) {}

IPortMapper::PortInfo PortMapper::lookupService(std::string)
{
    return IPortMapper::PortInfo();
}

bool PortMapper::registerService(std::string)
{
    return false;
}

bool PortMapper::internalRegisterService(std::string)
{
    return false;
}

unsigned int PortMapper::findNextAvailablePort()
{
    return 0;
}

bool PortMapper::isPortAllocated(unsigned int)
{
    return false;
}

} // namespace Velmora
