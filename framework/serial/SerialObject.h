// Root of every value that crosses a process border: a typed value that writes
// itself to JSON and is built back from it.
//
// Records are written as JSON objects with one member per field plus "@type",
// the getObjectType() name, which lets createSerialObject<SerialObject> rebuild
// the concrete class (see SerialTypeRegistry). Leaves (StringObject, ...) are
// written as bare JSON values, containers as arrays and objects.
// A serial object is a value: not shared between threads unless copied.
#pragma once

#include <json/writer.h>

#include <string>

namespace Velmora {

class Serializer;

class SerialObject {
public:
    static char const* const TYPE_MEMBER; // "@type"

    virtual std::string const& getObjectType() const = 0;
    // A new heap copy, owned by the caller.
    virtual SerialObject* clone() const = 0;
    // Writes the members into the serializer's current object.
    virtual void serialize(Serializer& serializer) const = 0;
    // The whole object as JSON text.
    virtual std::string serialize() const;
    virtual std::string serialize(Json::Writer& writer) const;
    // Writes the object as member `name` of the current object (an array
    // element for the empty name).
    virtual void serialize(std::string const& name, Serializer& serializer) const;
    virtual ~SerialObject();

    bool operator==(SerialObject const& other) const;

protected:
    SerialObject() = default;
    SerialObject(SerialObject const&) = default;
    SerialObject& operator=(SerialObject const&) { return *this; }
};

} // namespace Velmora
