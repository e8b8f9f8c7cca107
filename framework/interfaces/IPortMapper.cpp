#include "interfaces/IPortMapper.h"

#include "serial/Serialization.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<IPortMapper::PortInfo> const registrar("PortInfo");
}

IPortMapper::PortInfo::PortInfo() = default;

IPortMapper::PortInfo::PortInfo(Deserializer& d)
    : name(deserializeOptional<std::string>("name", d, "")), port(deserializeOptional<unsigned int>("port", d, 0))
{
}

std::string const& IPortMapper::PortInfo::getObjectType() const
{
    static std::string const TYPE_NAME("PortInfo");
    return TYPE_NAME;
}

SerialObject* IPortMapper::PortInfo::clone() const { return new PortInfo(*this); }

void IPortMapper::PortInfo::serialize(Serializer& s) const
{
    Velmora::serialize("name", name, s);
    Velmora::serialize("port", port, s);
}

} // namespace Velmora
