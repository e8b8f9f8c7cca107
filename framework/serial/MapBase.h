// Base of MapObject<T>: written as a JSON object whose keys are the map's keys.
#pragma once

#include "serial/SerialObject.h"

namespace Velmora {

class Deserializer;

class MapBase : public SerialObject {
public:
    MapBase();
    // Requires the deserializer's current value to be an object (or null, which
    // reads as empty); anything else throws Exception(ReturnInvalidParameter).
    explicit MapBase(Deserializer& deserializer);
    MapBase(MapBase const& other);
    MapBase& operator=(MapBase const& other) = default;

    std::string const& getObjectType() const override;
    using SerialObject::serialize;
    void serialize(std::string const& name, Serializer& serializer) const override;
};

} // namespace Velmora
