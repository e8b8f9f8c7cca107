// Something listeners can be added to. Listener pointers are never owned.
#pragma once

#include "frame/IListener.h"

namespace Velmora {

class IObservable {
public:
    virtual void addListener(IListener* listener) = 0;
    virtual void removeListener(IListener* listener) = 0;
    virtual ~IObservable() = default;
};

} // namespace Velmora
