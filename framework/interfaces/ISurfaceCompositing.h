// Compositing of a surface by numeric id, its geometry records and its
// listener family. IWindowCompositing maps it onto windows named by uid.
#pragma once

#include "frame/IListener.h"
#include "serial/SerialObject.h"

namespace Velmora {

class Deserializer;

class ISurfaceCompositing {
public:
    class Dimensions : public SerialObject {
    public:
        Dimensions() = default;
        Dimensions(unsigned int width, unsigned int height) : width(width), height(height) {}
        explicit Dimensions(Deserializer& deserializer);
        std::string const& getObjectType() const override;
        SerialObject* clone() const override { return new Dimensions(*this); }
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;
        unsigned int width = 0;
        unsigned int height = 0;
    };

    class Point : public SerialObject {
    public:
        Point() = default;
        Point(int x, int y) : x(x), y(y) {}
        explicit Point(Deserializer& deserializer);
        std::string const& getObjectType() const override;
        SerialObject* clone() const override { return new Point(*this); }
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;
        int x = 0;
        int y = 0;
    };

    class Rect : public SerialObject {
    public:
        Rect() = default;
        Rect(int x, int y, unsigned int width, unsigned int height) : point(x, y), dimensions(width, height) {}
        explicit Rect(Deserializer& deserializer);
        std::string const& getObjectType() const override;
        SerialObject* clone() const override { return new Rect(*this); }
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;
        Point point;
        Dimensions dimensions;
    };

    class ISurfaceCompositingListener : public virtual IListener {
    public:
        virtual void onVisibilityChange(std::string const& uid, unsigned int const& id, bool const& oldValue,
                                        bool const& newValue) = 0;
        virtual void onOpacityChange(std::string const& uid, unsigned int const& id, unsigned int const& oldValue,
                                     unsigned int const& newValue) = 0;
        virtual void onZOrderChange(std::string const& uid, unsigned int const& id, unsigned int const& oldValue,
                                    unsigned int const& newValue) = 0;
        virtual void onLocationChange(std::string const& uid, unsigned int const& id, Rect const& oldValue,
                                      Rect const& newValue) = 0;
    };

    virtual ~ISurfaceCompositing() = default;
    virtual void setVisibility(unsigned int const& id, bool visible) = 0;
    virtual bool getVisibility(unsigned int const& id) = 0;
    virtual void setOpacity(unsigned int const& id, unsigned int opacity) = 0;
    virtual unsigned int getOpacity(unsigned int const& id) = 0;
    virtual void setZOrder(unsigned int const& id, unsigned int zOrder) = 0;
    virtual unsigned int getZOrder(unsigned int const& id) = 0;
    virtual void setLocation(unsigned int const& id, Rect const& location) = 0;
    virtual Rect getLocation(unsigned int const& id) = 0;
    virtual void bringToFront(unsigned int const& id) = 0;
    virtual void sendToBack(unsigned int const& id) = 0;
    virtual void bringForward(unsigned int const& id) = 0;
    virtual void sendBackward(unsigned int const& id) = 0;
};

} // namespace Velmora
