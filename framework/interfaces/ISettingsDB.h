// A small database of settings. A setting is addressed by an entity and an
// attribute, two free strings, and has a current value and a set of allowed
// values; the values are serial objects of any type.
//
// The records below travel as JSON objects with their "@type". The overloads
// of the interface are implemented here once, by building the record and
// calling the record form.
//
// Ownership: AttributeValuePair owns a copy of its value; AllowedValues and
// EntityAttributeValueTriplet share the rule of VectorObject<SerialObject*>
// and own nothing (the triplet owns its value). Listener pointers are not owned.
#pragma once

#include "frame/IListener.h"
#include "serial/SerialObject.h"
#include "serial/VectorObject.h"

#include <memory>
#include <string>

namespace Velmora {

class Deserializer;

class ISettingsDB {
public:
    class EntityAttributePair : public SerialObject {
    public:
        EntityAttributePair(std::string const& entity, std::string const& attribute);
        explicit EntityAttributePair(Deserializer& deserializer);
        EntityAttributePair(EntityAttributePair const& other) = default;

        std::string const& getObjectType() const override;
        SerialObject* clone() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        std::string const& getEntity() const { return entity; }
        std::string const& getAttribute() const { return attribute; }

    private:
        std::string entity;
        std::string attribute;
    };

    class EntityAttributeValueTriplet : public EntityAttributePair {
    public:
        EntityAttributeValueTriplet(std::string const& entity, std::string const& attribute, SerialObject const& value);
        // The value is read in its dynamic form; a missing or unknown value
        // throws Exception(ReturnInvalidParameter).
        explicit EntityAttributeValueTriplet(Deserializer& deserializer);
        EntityAttributeValueTriplet(EntityAttributeValueTriplet const& other);
        EntityAttributeValueTriplet& operator=(EntityAttributeValueTriplet const& other) = delete;

        std::string const& getObjectType() const override;
        SerialObject* clone() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        SerialObject const& getValue() const { return *value; }

    private:
        std::unique_ptr<SerialObject> value;
    };

    class AttributeValuePair : public SerialObject {
    public:
        AttributeValuePair(std::string const& attribute, SerialObject const& value);
        // Takes over a value read from a store, sparing the copy; `value` is not null.
        AttributeValuePair(std::string attribute, std::unique_ptr<SerialObject> value);
        // As for EntityAttributeValueTriplet.
        explicit AttributeValuePair(Deserializer& deserializer);
        AttributeValuePair(AttributeValuePair const& other);
        AttributeValuePair(AttributeValuePair&& other) noexcept = default;
        AttributeValuePair& operator=(AttributeValuePair const& other);
        AttributeValuePair& operator=(AttributeValuePair&& other) noexcept = default;

        std::string const& getObjectType() const override;
        SerialObject* clone() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        std::string const& getAttribute() const { return attribute; }
        SerialObject const& getValue() const { return *value; }

    private:
        std::string attribute;
        std::unique_ptr<SerialObject> value;
    };

    class AllowedValues : public EntityAttributePair {
    public:
        AllowedValues(EntityAttributePair const& pair, VectorObject<SerialObject*> const& values);
        AllowedValues(std::string const& entity, std::string const& attribute,
                      VectorObject<SerialObject*> const& values);
        // The elements read are owned by whoever takes getValueList().
        explicit AllowedValues(Deserializer& deserializer);
        AllowedValues(AllowedValues const& other) = default;

        std::string const& getObjectType() const override;
        SerialObject* clone() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        VectorObject<SerialObject*> const& getValueList() const { return values; }

    private:
        VectorObject<SerialObject*> values;
    };

    class CurrentValues : public SerialObject {
    public:
        CurrentValues(std::string const& entity, VectorObject<AttributeValuePair> const& pairs);
        explicit CurrentValues(Deserializer& deserializer);
        CurrentValues(CurrentValues const& other) = default;

        std::string const& getObjectType() const override;
        SerialObject* clone() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        std::string const& getEntity() const { return entity; }
        VectorObject<AttributeValuePair> const& getAttributeValuePairList() const { return pairs; }

    private:
        std::string entity;
        VectorObject<AttributeValuePair> pairs;
    };

    // A non-zero answer swallows the event: later listeners don't hear it.
    class ISettingsDBListener : public virtual IListener {
    public:
        virtual int onEntityListChange(VectorObject<std::string> const& list) = 0;
        virtual int onAttributeListChange(std::string const& entity, VectorObject<std::string> const& list) = 0;
        virtual int onAllowedValuesChange(std::string const& entity, VectorObject<AttributeValuePair> const& pairs) = 0;
        virtual int onCurrentValuesChange(std::string const& entity, VectorObject<AttributeValuePair> const& pairs) = 0;
    };

    class ISettingsDBNotifier : public virtual ISettingsDBListener {};

    // False when nothing changed (a listener of another family, one already
    // present, one absent).
    virtual bool addListener(IListener* listener) = 0;
    virtual bool removeListener(IListener* listener) = 0;
    virtual ~ISettingsDB() = default;

    virtual VectorObject<std::string> getEntities() = 0;
    virtual VectorObject<std::string> getAttributes(std::string const& entity) = 0;
    // The elements are new objects owned by the caller.
    virtual VectorObject<SerialObject*> getAllowedValues(EntityAttributePair const& pair) = 0;
    virtual VectorObject<SerialObject*> getAllowedValues(std::string const& entity, std::string const& attribute);
    virtual void setAllowedValues(AllowedValues const& allowed) = 0;
    virtual void setAllowedValues(EntityAttributePair const& pair, VectorObject<SerialObject*> const& values);
    virtual void setAllowedValues(std::string const& entity, std::string const& attribute,
                                  VectorObject<SerialObject*> const& values);
    virtual SerialObject* getCurrentValue(EntityAttributePair const& pair) = 0;
    virtual SerialObject* getCurrentValue(std::string const& entity, std::string const& attribute);
    virtual VectorObject<AttributeValuePair> getCurrentValues(std::string const& entity) = 0;
    virtual void setCurrentValue(std::string const& entity, AttributeValuePair const& pair);
    virtual void setCurrentValue(EntityAttributeValueTriplet const& triplet);
    virtual void setCurrentValue(std::string const& entity, std::string const& attribute, SerialObject const& value);
    virtual void setCurrentValues(CurrentValues const& values) = 0;
    virtual void setCurrentValues(std::string const& entity, VectorObject<AttributeValuePair> const& pairs);
    virtual void reset() = 0;
};

} // namespace Velmora
