#include "interfaces/ISurfaceManagement.h"

#include "serial/Serialization.h"

namespace Velmora {

namespace {
SerialTypeRegistry::Registrar<ISurfaceManagement::CreationSettings> const registrar("CreationSettings");
}

ISurfaceManagement::CreationSettings::CreationSettings(unsigned int sessionIndex,
                                                       ISurfaceCompositing::Dimensions const& dimensions,
                                                       bool creationFlag, unsigned int opacity, unsigned int zOrder,
                                                       ISurfaceCompositing::Rect const& location, bool flagOne,
                                                       bool flagTwo, bool overlay)
    : sessionIndex(sessionIndex), dimensions(dimensions), creationFlag(creationFlag), opacity(opacity),
      zOrder(zOrder), location(location), flagOne(flagOne), flagTwo(flagTwo), overlay(overlay)
{
}

ISurfaceManagement::CreationSettings::CreationSettings(Deserializer& d)
    : sessionIndex(deserializeOptional<unsigned int>("sessionIndex", d, 0)),
      dimensions(deserializeOptional("dimensions", d, ISurfaceCompositing::Dimensions())),
      creationFlag(deserializeOptional<bool>("creationFlag", d, false)),
      opacity(deserializeOptional<unsigned int>("opacity", d, 0)),
      zOrder(deserializeOptional<unsigned int>("zOrder", d, 0)),
      location(deserializeOptional("location", d, ISurfaceCompositing::Rect())),
      flagOne(deserializeOptional<bool>("flagOne", d, false)), flagTwo(deserializeOptional<bool>("flagTwo", d, false)),
      overlay(deserializeOptional<bool>("overlay", d, false))
{
}

std::string const& ISurfaceManagement::CreationSettings::getObjectType() const
{
    static std::string const TYPE_NAME("CreationSettings");
    return TYPE_NAME;
}

void ISurfaceManagement::CreationSettings::serialize(Serializer& s) const
{
    Velmora::serialize("sessionIndex", sessionIndex, s);
    dimensions.serialize("dimensions", s);
    Velmora::serialize("creationFlag", creationFlag, s);
    Velmora::serialize("opacity", opacity, s);
    Velmora::serialize("zOrder", zOrder, s);
    location.serialize("location", s);
    Velmora::serialize("flagOne", flagOne, s);
    Velmora::serialize("flagTwo", flagTwo, s);
    Velmora::serialize("overlay", overlay, s);
}

} // namespace Velmora
