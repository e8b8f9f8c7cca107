#include "ManagerWatchdog.h"

namespace Velmora {

ManagerWatchdog::ManagerWatchdog(std::vector<CommandProcessor*> const& processors, unsigned int periodMs,
                                 std::function<void()> ping)
    : ping(std::move(ping)), stamped(processors.size(), false), missing(processors.size())
{
    for (std::size_t slot = 0; slot < processors.size(); ++slot) {
        stamps.push_back(std::make_unique<Stamp>(processors[slot], periodMs, *this, slot));
        processors[slot]->registerPeriodicCommand(stamps.back().get());
    }
}

ManagerWatchdog::~ManagerWatchdog()
{
    for (auto& stamp : stamps)
        stamp->remove();
}

void ManagerWatchdog::stamp(std::size_t slot)
{
    {
        std::lock_guard lock(mutex);
        if (stamped[slot])
            return;
        stamped[slot] = true;
        if (--missing > 0)
            return;
        stamped.assign(stamped.size(), false);
        missing = stamped.size();
    }
    ping();
}

} // namespace Velmora
