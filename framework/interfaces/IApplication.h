// A program as seen by the server: its listener family hears the program's
// keep-alive and state reports.
#pragma once

#include "interfaces/ILifecycleManagement.h"

namespace Velmora {

class IApplication : public virtual ILifecycleManagement {
public:
    class IApplicationListener : public virtual ILifecycleManagement::ILifecycleManagementListener {};
};

} // namespace Velmora
