// Root of objects built of other objects that need a second construction step.
#pragma once

namespace Velmora {

class ComplexObject {
public:
    virtual void init() = 0;
    virtual ~ComplexObject() = default;
};

} // namespace Velmora
