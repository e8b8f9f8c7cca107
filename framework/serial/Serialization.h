// The free functions of the serial model:
//   serialize(name, value, serializer)   adds one bare member (or array element)
//   deserialize<T>(name, deserializer)   reads member `name` as a T, by value
//   deserialize<T>(json)                 builds a T from a whole text
//   createSerialObject<T>(...)           a new T, owned by the caller
// Bare values exist for bool, int, unsigned int and std::string; every other T
// is a class with a constructor from Deserializer&. A missing member or a value
// of the wrong JSON type throws Exception(ReturnInvalidParameter).
#pragma once

#include "serial/Deserializer.h"
#include "serial/SerialObject.h"
#include "serial/SerialTypeRegistry.h"
#include "serial/Serializer.h"

#include <string>
#include <type_traits>

namespace Velmora {

void serialize(std::string const& name, int const& value, Serializer& serializer);
void serialize(std::string const& name, unsigned int const& value, Serializer& serializer);
void serialize(std::string const& name, bool const& value, Serializer& serializer);
void serialize(std::string const& name, std::string const& value, Serializer& serializer);

template <class T>
T deserialize(std::string const& name, Deserializer& deserializer)
{
    deserializer.enterObject(name);
    T value(deserializer);
    deserializer.leaveObject(name);
    return value;
}

template <>
bool deserialize<bool>(std::string const& name, Deserializer& deserializer);
template <>
int deserialize<int>(std::string const& name, Deserializer& deserializer);
template <>
unsigned int deserialize<unsigned int>(std::string const& name, Deserializer& deserializer);
template <>
std::string deserialize<std::string>(std::string const& name, Deserializer& deserializer);

// A bare value of the wrong JSON type throws Exception(ReturnInvalidParameter).
bool valueAsBool(Json::Value const& value);
int valueAsInt(Json::Value const& value);
unsigned int valueAsUInt(Json::Value const& value);
std::string valueAsString(Json::Value const& value);

// Reads member `name` when present, `fallback` otherwise; a wrong type still throws.
template <class T>
T deserializeOptional(std::string const& name, Deserializer& deserializer, T const& fallback)
{
    Json::Value const* value = deserializer.find(name);
    if (!value)
        return fallback;
    if constexpr (std::is_same_v<T, bool>)
        return valueAsBool(*value);
    else if constexpr (std::is_same_v<T, int>)
        return valueAsInt(*value);
    else if constexpr (std::is_same_v<T, unsigned int>)
        return valueAsUInt(*value);
    else if constexpr (std::is_same_v<T, std::string>)
        return valueAsString(*value);
    else
        return deserialize<T>(name, deserializer);
}

template <class T>
T deserialize(std::string const& json)
{
    Deserializer deserializer(json);
    return T(deserializer);
}

// Plain form: member `name` read as a T.
template <class T>
T* createSerialObject(std::string const& name, Deserializer& deserializer)
{
    deserializer.enterObject(name);
    T* object = new T(deserializer);
    deserializer.leaveObject(name);
    return object;
}

// Dynamic form: the concrete class comes from the value itself; null when the
// value is no serial object of a known type.
template <>
SerialObject* createSerialObject<SerialObject>(std::string const& name, Deserializer& deserializer);

// A new object of the type that the text names, or null.
SerialObject* createSerialObject(std::string const& json);

// Writes one container element: bare values by the free functions, serial
// objects (held by value or by pointer) by their own serialize(name, ...); a
// null pointer is written as null.
template <class T>
void serializeElement(std::string const& name, T const& value, Serializer& serializer)
{
    if constexpr (std::is_pointer_v<T>) {
        if (value)
            value->serialize(name, serializer);
        else
            serializer.setValue(name, Json::Value());
    } else if constexpr (std::is_base_of_v<SerialObject, T>)
        value.serialize(name, serializer);
    else
        serialize(name, value, serializer);
}

// Reads one container element; a SerialObject* element is built in its dynamic
// form and owned by the caller.
template <class T>
T deserializeElement(std::string const& name, Deserializer& deserializer)
{
    if constexpr (std::is_same_v<T, SerialObject*>)
        return createSerialObject<SerialObject>(name, deserializer);
    else
        return deserialize<T>(name, deserializer);
}

} // namespace Velmora
