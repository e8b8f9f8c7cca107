#include "interfaces/ILifecycleManagement.h"

#include "serial/Serialization.h"

namespace Velmora {

char const* const ILifecycleManagement::STATE_UNINITIALIZED = "UNINITIALIZED";
char const* const ILifecycleManagement::STATE_INITIALIZING = "INITIALIZING";
char const* const ILifecycleManagement::STATE_RUNNING = "RUNNING";
char const* const ILifecycleManagement::STATE_SUSPENDED = "SUSPENDED";
char const* const ILifecycleManagement::STATE_TERMINATING = "TERMINATING";
char const* const ILifecycleManagement::STATE_TERMINATED = "TERMINATED";
char const* const ILifecycleManagement::STATE_CRASHED = "CRASHED";
char const* const ILifecycleManagement::STATE_RUNAWAY = "RUNAWAY";

bool ILifecycleManagement::isApplicationTerminated(std::string const& state)
{
    return state == STATE_TERMINATED || state == STATE_CRASHED || state == STATE_RUNAWAY;
}

namespace {
SerialTypeRegistry::Registrar<ILifecycleManagement::RuntimeStatistics> const registrar("RuntimeStatistics");
}

ILifecycleManagement::RuntimeStatistics::RuntimeStatistics() = default;

ILifecycleManagement::RuntimeStatistics::RuntimeStatistics(Deserializer& d)
    : name(deserializeOptional<std::string>("name", d, "")),
      state(deserializeOptional<std::string>("state", d, "")),
      uptimeMs(deserializeOptional<unsigned int>("uptimeMs", d, 0)),
      cpuUserMs(deserializeOptional<unsigned int>("cpuUserMs", d, 0)),
      cpuSystemMs(deserializeOptional<unsigned int>("cpuSystemMs", d, 0)),
      residentKiB(deserializeOptional<unsigned int>("residentKiB", d, 0)),
      virtualKiB(deserializeOptional<unsigned int>("virtualKiB", d, 0)),
      threadCount(deserializeOptional<unsigned int>("threadCount", d, 0))
{
}

std::string const& ILifecycleManagement::RuntimeStatistics::getObjectType() const
{
    static std::string const TYPE_NAME("RuntimeStatistics");
    return TYPE_NAME;
}

SerialObject* ILifecycleManagement::RuntimeStatistics::clone() const { return new RuntimeStatistics(*this); }

void ILifecycleManagement::RuntimeStatistics::serialize(Serializer& s) const
{
    Velmora::serialize("name", name, s);
    Velmora::serialize("state", state, s);
    Velmora::serialize("uptimeMs", uptimeMs, s);
    Velmora::serialize("cpuUserMs", cpuUserMs, s);
    Velmora::serialize("cpuSystemMs", cpuSystemMs, s);
    Velmora::serialize("residentKiB", residentKiB, s);
    Velmora::serialize("virtualKiB", virtualKiB, s);
    Velmora::serialize("threadCount", threadCount, s);
}

} // namespace Velmora
