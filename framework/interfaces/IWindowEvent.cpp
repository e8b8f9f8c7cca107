#include "interfaces/IWindowEvent.h"

#include "serial/Serialization.h"

namespace Velmora {

char const* const IWindowEvent::KeyEvent::TYPE_NAME = "KeyEvent";

namespace {
SerialTypeRegistry::Registrar<IWindowEvent::KeyEvent> const registrar(IWindowEvent::KeyEvent::TYPE_NAME);
}

IWindowEvent::KeyEvent::KeyEvent(Deserializer& d)
    : code(static_cast<Code>(deserialize<unsigned int>("code", d))), pressed(deserialize<bool>("pressed", d))
{
}

std::string const& IWindowEvent::KeyEvent::getObjectType() const
{
    static std::string const name(TYPE_NAME);
    return name;
}

void IWindowEvent::KeyEvent::serialize(Serializer& s) const
{
    Velmora::serialize("code", static_cast<unsigned int>(code), s);
    Velmora::serialize("pressed", pressed, s);
}

} // namespace Velmora
