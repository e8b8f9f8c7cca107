// A serial object that wraps one bare value (string, unsigned number, boolean)
// and is written as that bare JSON value. StringObject, UInt32Object and
// BooleanObject are its instances; they pass a bare value where a SerialObject
// is wanted, above all as the result of a remote method.
#pragma once

#include "serial/Serialization.h"

#include <string>

namespace Velmora {

template <class T, char const* Name>
class LeafObject : public SerialObject {
public:
    LeafObject() : value() {}
    LeafObject(T const& value) : value(value) {}
    explicit LeafObject(Deserializer& deserializer) : value(deserialize<T>(std::string(), deserializer)) {}

    std::string const& getObjectType() const override
    {
        static std::string const TYPE_NAME(Name);
        return TYPE_NAME;
    }
    SerialObject* clone() const override { return new LeafObject(*this); }
    void serialize(Serializer& serializer) const override { serializer.replaceCurrent(Json::Value(value)); }
    using SerialObject::serialize;

    T const& getValue() const { return value; }
    bool operator==(LeafObject const& other) const { return value == other.value; }
    bool operator<(LeafObject const& other) const { return value < other.value; }
    void setValue(T const& newValue) { value = newValue; }

private:
    T value;
};

inline constexpr char STRING_OBJECT_NAME[] = "String";
inline constexpr char UINT32_OBJECT_NAME[] = "UInt32";
inline constexpr char BOOLEAN_OBJECT_NAME[] = "Boolean";

} // namespace Velmora
