#include "serial/SerialTypeRegistry.h"

#include "serial/BooleanObject.h"
#include "serial/StringObject.h"
#include "serial/UInt32Object.h"
#include "interfaces/Edge.h"

#include <map>

namespace Velmora {

namespace {

std::map<std::string, SerialTypeRegistry::Factory>& factories()
{
    static std::map<std::string, SerialTypeRegistry::Factory> table;
    return table;
}

SerialTypeRegistry::Registrar<Edge<StringObject>> const edgeRegistrar("Edge");

} // namespace

void SerialTypeRegistry::add(std::string const& type, Factory factory) { factories()[type] = factory; }

SerialObject* SerialTypeRegistry::create(Deserializer& deserializer)
{
    Json::Value const& value = deserializer.current();
    if (value.isString())
        return new StringObject(value.asString());
    if (value.isBool())
        return new BooleanObject(value.asBool());
    if (value.isUInt())
        return new UInt32Object(value.asUInt());
    if (!value.isObject())
        return nullptr;
    Json::Value const* type = value.find(SerialObject::TYPE_MEMBER, SerialObject::TYPE_MEMBER + 5);
    if (!type || !type->isString())
        return nullptr;
    auto found = factories().find(type->asString());
    if (found == factories().end())
        return nullptr;
    std::size_t const depth = deserializer.depth();
    try {
        return found->second(deserializer);
    } catch (...) {
        deserializer.returnTo(depth); // the failed constructor may have left the cursor inside
        return nullptr;
    }
}

} // namespace Velmora
