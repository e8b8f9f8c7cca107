#include "interfaces/ISurfaceCompositing.h"

#include "serial/Serialization.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<ISurfaceCompositing::Dimensions> const dimensionsRegistrar("Dimensions");
SerialTypeRegistry::Registrar<ISurfaceCompositing::Point> const pointRegistrar("Point");
SerialTypeRegistry::Registrar<ISurfaceCompositing::Rect> const rectRegistrar("Rect");
} // namespace

ISurfaceCompositing::Dimensions::Dimensions(Deserializer& d)
    : width(deserialize<unsigned int>("width", d)), height(deserialize<unsigned int>("height", d))
{
}

std::string const& ISurfaceCompositing::Dimensions::getObjectType() const
{
    static std::string const TYPE_NAME("Dimensions");
    return TYPE_NAME;
}

void ISurfaceCompositing::Dimensions::serialize(Serializer& s) const
{
    Velmora::serialize("width", width, s);
    Velmora::serialize("height", height, s);
}

ISurfaceCompositing::Point::Point(Deserializer& d) : x(deserialize<int>("x", d)), y(deserialize<int>("y", d)) {}

std::string const& ISurfaceCompositing::Point::getObjectType() const
{
    static std::string const TYPE_NAME("Point");
    return TYPE_NAME;
}

void ISurfaceCompositing::Point::serialize(Serializer& s) const
{
    Velmora::serialize("x", x, s);
    Velmora::serialize("y", y, s);
}

ISurfaceCompositing::Rect::Rect(Deserializer& d)
    : point(deserialize<Point>("point", d)), dimensions(deserialize<Dimensions>("dimensions", d))
{
}

std::string const& ISurfaceCompositing::Rect::getObjectType() const
{
    static std::string const TYPE_NAME("Rect");
    return TYPE_NAME;
}

void ISurfaceCompositing::Rect::serialize(Serializer& s) const
{
    point.serialize("point", s);
    dimensions.serialize("dimensions", s);
}

} // namespace Velmora
