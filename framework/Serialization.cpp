#include "Serialization.h"

#include "Exception.h"

namespace Velmora {

static char const MODULE[] = "Serialization";

void serialize(std::string const& name, int const& value, Serializer& serializer)
{
    serializer.setValue(name, Json::Value(value));
}

void serialize(std::string const& name, unsigned int const& value, Serializer& serializer)
{
    serializer.setValue(name, Json::Value(value));
}

void serialize(std::string const& name, bool const& value, Serializer& serializer)
{
    serializer.setValue(name, Json::Value(value));
}

void serialize(std::string const& name, std::string const& value, Serializer& serializer)
{
    serializer.setValue(name, Json::Value(value));
}

template <>
bool deserialize<bool>(std::string const& name, Deserializer& deserializer)
{
    Json::Value const& value = deserializer.member(name);
    if (!value.isBool())
        throwException(MODULE, __LINE__, "deserialize", ReturnInvalidParameter);
    return value.asBool();
}

template <>
int deserialize<int>(std::string const& name, Deserializer& deserializer)
{
    Json::Value const& value = deserializer.member(name);
    if (!value.isInt())
        throwException(MODULE, __LINE__, "deserialize", ReturnInvalidParameter);
    return value.asInt();
}

template <>
unsigned int deserialize<unsigned int>(std::string const& name, Deserializer& deserializer)
{
    Json::Value const& value = deserializer.member(name);
    if (!value.isUInt())
        throwException(MODULE, __LINE__, "deserialize", ReturnInvalidParameter);
    return value.asUInt();
}

template <>
std::string deserialize<std::string>(std::string const& name, Deserializer& deserializer)
{
    Json::Value const& value = deserializer.member(name);
    if (!value.isString())
        throwException(MODULE, __LINE__, "deserialize", ReturnInvalidParameter);
    return value.asString();
}

template <>
SerialObject* createSerialObject<SerialObject>(std::string const& name, Deserializer& deserializer)
{
    if (!deserializer.hasMember(name))
        return nullptr;
    deserializer.enterObject(name);
    SerialObject* object = SerialTypeRegistry::create(deserializer);
    deserializer.leaveObject(name);
    return object;
}

SerialObject* createSerialObject(std::string const& json)
{
    Deserializer deserializer(json);
    if (!deserializer.isValid())
        return nullptr;
    return SerialTypeRegistry::create(deserializer);
}

} // namespace Velmora
