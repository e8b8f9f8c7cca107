// The registry from a service name to a network port, as the bus offers it.
// PortInfo is the record a lookup answers with; a default one (empty name,
// port 0) means that no port is known. Records are values: any thread may
// use its own copy.
#pragma once

#include "serial/SerialObject.h"

#include <cstdint>
#include <string>

namespace Velmora {

class Deserializer;

class IPortMapper {
public:
    class PortInfo : public SerialObject {
    public:
        PortInfo();
        explicit PortInfo(Deserializer& deserializer);
        std::string const& getObjectType() const override;
        SerialObject* clone() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        std::string name;  // service name
        uint32_t port = 0; // its port, 0 when none
    };
};

} // namespace Velmora
