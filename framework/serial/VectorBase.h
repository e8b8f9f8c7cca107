// Base of VectorObject<T>: written as a JSON array.
#pragma once

#include "serial/SerialObject.h"

namespace Velmora {

class Deserializer;

class VectorBase : public SerialObject {
public:
    VectorBase();
    // Requires the deserializer's current value to be an array (or null, which
    // reads as empty); anything else throws Exception(ReturnInvalidParameter).
    explicit VectorBase(Deserializer& deserializer);
    // Enters member `name` (the subclass leaves it) and checks it as above.
    VectorBase(std::string const& name, Deserializer& deserializer);
    VectorBase(VectorBase const& other);
    VectorBase& operator=(VectorBase const& other) = default;

    std::string const& getObjectType() const override;
    using SerialObject::serialize;
    void serialize(std::string const& name, Serializer& serializer) const override;
};

} // namespace Velmora
