// The abstract input event: a serial object that says whether it goes to the
// focused window only (true) or to every window (false).
#pragma once

#include "serial/SerialObject.h"

namespace Velmora {

class Event : public SerialObject {
public:
    virtual bool isFocusEvent() const = 0;
};

} // namespace Velmora
