// Maps getObjectType() names to constructors, so that a record written by
// serialize() is read back with its concrete class. JSON strings, booleans and
// unsigned numbers read back as StringObject, BooleanObject and UInt32Object.
// Registration happens during static initialisation (Registrar objects beside
// the class's definition); lookups may come from any thread afterwards.
#pragma once

#include <string>

namespace Velmora {

class Deserializer;
class SerialObject;

class SerialTypeRegistry {
public:
    using Factory = SerialObject* (*)(Deserializer&);

    static void add(std::string const& type, Factory factory);
    // A new object for the deserializer's current value, owned by the caller,
    // or null when the value names no known type or does not fit it.
    static SerialObject* create(Deserializer& deserializer);

    template <class T>
    struct Registrar {
        explicit Registrar(std::string const& type)
        {
            add(type, [](Deserializer& d) -> SerialObject* { return new T(d); });
        }
    };
};

} // namespace Velmora
