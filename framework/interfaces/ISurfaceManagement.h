// Creation of surfaces: the settings a window is created with. The launch
// policy fills them in for every window; the compositor interprets the flags.
#pragma once

#include "interfaces/ISurfaceCompositing.h"

namespace Velmora {

class ISurfaceManagement {
public:
    // Written as JSON with the members below; every member is optional when read.
    class CreationSettings : public SerialObject {
    public:
        CreationSettings() = default;
        CreationSettings(unsigned int sessionIndex, ISurfaceCompositing::Dimensions const& dimensions,
                         bool creationFlag, unsigned int opacity, unsigned int zOrder,
                         ISurfaceCompositing::Rect const& location, bool flagOne, bool flagTwo, bool overlay);
        explicit CreationSettings(Deserializer& deserializer);

        std::string const& getObjectType() const override;
        SerialObject* clone() const override { return new CreationSettings(*this); }
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;

        unsigned int sessionIndex = 0;
        ISurfaceCompositing::Dimensions dimensions;
        bool creationFlag = false;
        unsigned int opacity = 0;
        unsigned int zOrder = 0;
        ISurfaceCompositing::Rect location;
        bool flagOne = false;
        bool flagTwo = false;
        bool overlay = false;
    };

    virtual ~ISurfaceManagement() = default;
};

} // namespace Velmora
