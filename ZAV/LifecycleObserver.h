// What a manager tells the lifecycle journal: one call per change, with the
// reason that only the manager knows. Implementations must not block and
// must not call back into the manager: record() runs on the manager's thread.
#pragma once

#include "LifecycleEntry.h"

namespace Velmora {

class LifecycleObserver {
public:
    virtual ~LifecycleObserver() = default;
    virtual void record(LifecycleEntry entry) = 0;
};

} // namespace Velmora
