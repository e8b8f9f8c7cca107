#include "serial/Serialization.h"

#include "frame/Exception.h"

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

namespace {

void requireType(bool matches)
{
    if (!matches)
        throwException(MODULE, __LINE__, "deserialize", ReturnInvalidParameter);
}

} // namespace

bool valueAsBool(Json::Value const& value)
{
    requireType(value.isBool());
    return value.asBool();
}

int valueAsInt(Json::Value const& value)
{
    requireType(value.isInt());
    return value.asInt();
}

unsigned int valueAsUInt(Json::Value const& value)
{
    requireType(value.isUInt());
    return value.asUInt();
}

std::string valueAsString(Json::Value const& value)
{
    requireType(value.isString());
    return value.asString();
}

template <>
bool deserialize<bool>(std::string const& name, Deserializer& deserializer)
{
    return valueAsBool(deserializer.member(name));
}

template <>
int deserialize<int>(std::string const& name, Deserializer& deserializer)
{
    return valueAsInt(deserializer.member(name));
}

template <>
unsigned int deserialize<unsigned int>(std::string const& name, Deserializer& deserializer)
{
    return valueAsUInt(deserializer.member(name));
}

template <>
std::string deserialize<std::string>(std::string const& name, Deserializer& deserializer)
{
    return valueAsString(deserializer.member(name));
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
