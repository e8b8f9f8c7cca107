#include "interfaces/ISettingsDB.h"

#include "frame/Exception.h"
#include "serial/Serialization.h"

namespace Velmora {

static char const MODULE[] = "ISettingsDB";

namespace {

SerialTypeRegistry::Registrar<ISettingsDB::EntityAttributePair> const pairRegistrar("EntityAttributePair");
SerialTypeRegistry::Registrar<ISettingsDB::EntityAttributeValueTriplet> const tripletRegistrar(
    "EntityAttributeValueTriplet");
SerialTypeRegistry::Registrar<ISettingsDB::AttributeValuePair> const valuePairRegistrar("AttributeValuePair");
SerialTypeRegistry::Registrar<ISettingsDB::AllowedValues> const allowedRegistrar("AllowedValues");
SerialTypeRegistry::Registrar<ISettingsDB::CurrentValues> const currentRegistrar("CurrentValues");

// Member "value" in its dynamic form; records can't hold an unknown value.
std::unique_ptr<SerialObject> readValue(Deserializer& deserializer)
{
    std::unique_ptr<SerialObject> value(createSerialObject<SerialObject>("value", deserializer));
    if (!value)
        throwException(MODULE, __LINE__, "readValue", ReturnInvalidParameter);
    return value;
}

} // namespace

ISettingsDB::EntityAttributePair::EntityAttributePair(std::string const& entity, std::string const& attribute)
    : entity(entity), attribute(attribute)
{
}

ISettingsDB::EntityAttributePair::EntityAttributePair(Deserializer& d)
    : entity(deserialize<std::string>("entity", d)), attribute(deserialize<std::string>("attribute", d))
{
}

std::string const& ISettingsDB::EntityAttributePair::getObjectType() const
{
    static std::string const TYPE_NAME("EntityAttributePair");
    return TYPE_NAME;
}

SerialObject* ISettingsDB::EntityAttributePair::clone() const { return new EntityAttributePair(*this); }

void ISettingsDB::EntityAttributePair::serialize(Serializer& s) const
{
    Velmora::serialize("entity", entity, s);
    Velmora::serialize("attribute", attribute, s);
}

ISettingsDB::EntityAttributeValueTriplet::EntityAttributeValueTriplet(std::string const& entity,
                                                                      std::string const& attribute,
                                                                      SerialObject const& value)
    : EntityAttributePair(entity, attribute), value(value.clone())
{
}

ISettingsDB::EntityAttributeValueTriplet::EntityAttributeValueTriplet(Deserializer& d)
    : EntityAttributePair(d), value(readValue(d))
{
}

ISettingsDB::EntityAttributeValueTriplet::EntityAttributeValueTriplet(EntityAttributeValueTriplet const& other)
    : EntityAttributePair(other), value(other.value->clone())
{
}

std::string const& ISettingsDB::EntityAttributeValueTriplet::getObjectType() const
{
    static std::string const TYPE_NAME("EntityAttributeValueTriplet");
    return TYPE_NAME;
}

SerialObject* ISettingsDB::EntityAttributeValueTriplet::clone() const
{
    return new EntityAttributeValueTriplet(*this);
}

void ISettingsDB::EntityAttributeValueTriplet::serialize(Serializer& s) const
{
    EntityAttributePair::serialize(s);
    value->serialize("value", s);
}

ISettingsDB::AttributeValuePair::AttributeValuePair(std::string const& attribute, SerialObject const& value)
    : attribute(attribute), value(value.clone())
{
}

ISettingsDB::AttributeValuePair::AttributeValuePair(std::string attribute, std::unique_ptr<SerialObject> value)
    : attribute(std::move(attribute)), value(std::move(value))
{
}

ISettingsDB::AttributeValuePair::AttributeValuePair(Deserializer& d)
    : attribute(deserialize<std::string>("attribute", d)), value(readValue(d))
{
}

ISettingsDB::AttributeValuePair::AttributeValuePair(AttributeValuePair const& other)
    : SerialObject(other), attribute(other.attribute), value(other.value->clone())
{
}

ISettingsDB::AttributeValuePair& ISettingsDB::AttributeValuePair::operator=(AttributeValuePair const& other)
{
    if (this == &other)
        return *this;
    attribute = other.attribute;
    value.reset(other.value->clone());
    return *this;
}

std::string const& ISettingsDB::AttributeValuePair::getObjectType() const
{
    static std::string const TYPE_NAME("AttributeValuePair");
    return TYPE_NAME;
}

SerialObject* ISettingsDB::AttributeValuePair::clone() const { return new AttributeValuePair(*this); }

void ISettingsDB::AttributeValuePair::serialize(Serializer& s) const
{
    Velmora::serialize("attribute", attribute, s);
    value->serialize("value", s);
}

ISettingsDB::AllowedValues::AllowedValues(EntityAttributePair const& pair, VectorObject<SerialObject*> const& values)
    : EntityAttributePair(pair), values(values)
{
}

ISettingsDB::AllowedValues::AllowedValues(std::string const& entity, std::string const& attribute,
                                          VectorObject<SerialObject*> const& values)
    : EntityAttributePair(entity, attribute), values(values)
{
}

ISettingsDB::AllowedValues::AllowedValues(Deserializer& d)
    : EntityAttributePair(d), values("values", d)
{
}

std::string const& ISettingsDB::AllowedValues::getObjectType() const
{
    static std::string const TYPE_NAME("AllowedValues");
    return TYPE_NAME;
}

SerialObject* ISettingsDB::AllowedValues::clone() const { return new AllowedValues(*this); }

void ISettingsDB::AllowedValues::serialize(Serializer& s) const
{
    EntityAttributePair::serialize(s);
    values.serialize("values", s);
}

ISettingsDB::CurrentValues::CurrentValues(std::string const& entity, VectorObject<AttributeValuePair> const& pairs)
    : entity(entity), pairs(pairs)
{
}

ISettingsDB::CurrentValues::CurrentValues(Deserializer& d)
    : entity(deserialize<std::string>("entity", d)), pairs("pairs", d)
{
}

std::string const& ISettingsDB::CurrentValues::getObjectType() const
{
    static std::string const TYPE_NAME("CurrentValues");
    return TYPE_NAME;
}

SerialObject* ISettingsDB::CurrentValues::clone() const { return new CurrentValues(*this); }

void ISettingsDB::CurrentValues::serialize(Serializer& s) const
{
    Velmora::serialize("entity", entity, s);
    pairs.serialize("pairs", s);
}

VectorObject<SerialObject*> ISettingsDB::getAllowedValues(std::string const& entity, std::string const& attribute)
{
    return getAllowedValues(EntityAttributePair(entity, attribute));
}

void ISettingsDB::setAllowedValues(EntityAttributePair const& pair, VectorObject<SerialObject*> const& values)
{
    setAllowedValues(AllowedValues(pair, values));
}

void ISettingsDB::setAllowedValues(std::string const& entity, std::string const& attribute,
                                   VectorObject<SerialObject*> const& values)
{
    setAllowedValues(AllowedValues(entity, attribute, values));
}

SerialObject* ISettingsDB::getCurrentValue(std::string const& entity, std::string const& attribute)
{
    return getCurrentValue(EntityAttributePair(entity, attribute));
}

void ISettingsDB::setCurrentValue(std::string const& entity, AttributeValuePair const& pair)
{
    VectorObject<AttributeValuePair> list;
    list.push_back(pair);
    setCurrentValues(CurrentValues(entity, list));
}

void ISettingsDB::setCurrentValue(EntityAttributeValueTriplet const& triplet)
{
    setCurrentValue(triplet.getEntity(), AttributeValuePair(triplet.getAttribute(), triplet.getValue()));
}

void ISettingsDB::setCurrentValue(std::string const& entity, std::string const& attribute, SerialObject const& value)
{
    setCurrentValue(entity, AttributeValuePair(attribute, value));
}

void ISettingsDB::setCurrentValues(std::string const& entity, VectorObject<AttributeValuePair> const& pairs)
{
    setCurrentValues(CurrentValues(entity, pairs));
}

} // namespace Velmora
