// A background service: a program whose listener family is the application's.
#pragma once

#include "interfaces/IApplication.h"

namespace Velmora {

class IService : public virtual IApplication {
public:
    class IServiceListener : public virtual IApplication::IApplicationListener {};
};

} // namespace Velmora
