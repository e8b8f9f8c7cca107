// A std::map<std::string, T> that is a serial object, written as a JSON object
// in key order. Reading stops at the shorter of the element count and the key
// list, silently.
#pragma once

#include "serial/MapBase.h"
#include "serial/Serialization.h"

#include <map>
#include <string>

namespace Velmora {

template <class T>
class MapObject : public MapBase, public std::map<std::string, T> {
public:
    MapObject() = default;
    explicit MapObject(Deserializer& deserializer) : MapBase(deserializer) { initMap(deserializer); }
    MapObject(MapObject const& other) = default;
    MapObject(std::initializer_list<typename std::map<std::string, T>::value_type> values)
        : std::map<std::string, T>(values)
    {
    }

    MapObject& operator=(MapObject const& other)
    {
        MapBase::operator=(other);
        std::map<std::string, T>::operator=(other);
        return *this;
    }

    SerialObject* clone() const override { return new MapObject(*this); }

    using MapBase::serialize;
    void serialize(Serializer& serializer) const override
    {
        for (auto const& [key, value] : *this)
            serializeElement(key, value, serializer);
    }

protected:
    void initMap(Deserializer& deserializer)
    {
        std::vector<std::string> names = deserializer.getMemberNames();
        unsigned int nameCount = names.size();
        unsigned int count = deserializer.getSize();
        for (unsigned int i = 0; i < count && i < nameCount; ++i)
            (*this)[names[i]] = deserializeElement<T>(names[i], deserializer);
    }
};

} // namespace Velmora
