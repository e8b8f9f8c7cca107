#include "serial/VectorBase.h"

#include "serial/Deserializer.h"
#include "frame/Exception.h"
#include "serial/Serializer.h"

namespace Velmora {

static char const MODULE[] = "VectorBase";

VectorBase::VectorBase() = default;

namespace {

void requireArray(Json::Value const& value)
{
    if (!value.isArray() && !value.isNull())
        throwException(MODULE, __LINE__, "VectorBase", ReturnInvalidParameter);
}

} // namespace

VectorBase::VectorBase(Deserializer& deserializer) { requireArray(deserializer.current()); }

VectorBase::VectorBase(std::string const& name, Deserializer& deserializer)
{
    requireArray(deserializer.member(name));
    deserializer.enterObject(name);
}

VectorBase::VectorBase(VectorBase const& other) = default;

std::string const& VectorBase::getObjectType() const
{
    static std::string const TYPE_NAME("Vector");
    return TYPE_NAME;
}

void VectorBase::serialize(std::string const& name, Serializer& serializer) const
{
    serializer.beginArray(name);
    serialize(serializer);
    serializer.endArray(name);
}

} // namespace Velmora
