#include "serial/MapBase.h"

#include "serial/Deserializer.h"
#include "frame/Exception.h"
#include "serial/Serializer.h"

namespace Velmora {

static char const MODULE[] = "MapBase";

MapBase::MapBase() = default;

MapBase::MapBase(Deserializer& deserializer)
{
    Json::Value const& value = deserializer.current();
    if (!value.isObject() && !value.isNull())
        throwException(MODULE, __LINE__, "MapBase", ReturnInvalidParameter);
}

MapBase::MapBase(MapBase const& other) = default;

std::string const& MapBase::getObjectType() const
{
    static std::string const TYPE_NAME("Map");
    return TYPE_NAME;
}

void MapBase::serialize(std::string const& name, Serializer& serializer) const
{
    serializer.beginObject(name);
    serialize(serializer);
    serializer.endObject(name);
}

} // namespace Velmora
