#include "serial/SerialObject.h"

#include "serial/Serializer.h"

namespace Velmora {

char const* const SerialObject::TYPE_MEMBER = "@type";

SerialObject::~SerialObject() = default;

std::string SerialObject::serialize() const
{
    Serializer serializer;
    serialize(std::string(), serializer);
    return serializer.generate();
}

std::string SerialObject::serialize(Json::Writer& writer) const
{
    Serializer serializer;
    serialize(std::string(), serializer);
    return writer.write(serializer.getRoot());
}

void SerialObject::serialize(std::string const& name, Serializer& serializer) const
{
    serializer.beginObject(name);
    serializer.setValue(TYPE_MEMBER, getObjectType());
    serialize(serializer);
    serializer.endObject(name);
}

bool SerialObject::operator==(SerialObject const& other) const
{
    if (this == &other)
        return true;
    return getObjectType() == other.getObjectType() && serialize() == other.serialize();
}

} // namespace Velmora
