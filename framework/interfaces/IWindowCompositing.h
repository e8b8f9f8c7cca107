// Compositing of windows named by uid. The numeric-id operations inherited from
// ISurfaceCompositing forward to the uid forms with an empty uid: the id is
// dropped on purpose. The listener family does the same in the other direction.
#pragma once

#include "frame/IObservable.h"
#include "interfaces/ISurfaceCompositing.h"

#include <string>

namespace Velmora {

class IWindowCompositing : public virtual ISurfaceCompositing {
public:
    class IWindowCompositingListener : public virtual ISurfaceCompositing::ISurfaceCompositingListener {
    public:
        void onVisibilityChange(std::string const& uid, unsigned int const&, bool const& oldValue,
                                bool const& newValue) override
        {
            onVisibilityChange(uid, oldValue, newValue);
        }
        void onOpacityChange(std::string const& uid, unsigned int const&, unsigned int const& oldValue,
                             unsigned int const& newValue) override
        {
            onOpacityChange(uid, oldValue, newValue);
        }
        void onZOrderChange(std::string const& uid, unsigned int const&, unsigned int const& oldValue,
                            unsigned int const& newValue) override
        {
            onZOrderChange(uid, oldValue, newValue);
        }
        void onLocationChange(std::string const& uid, unsigned int const&, Rect const& oldValue,
                              Rect const& newValue) override
        {
            onLocationChange(uid, oldValue, newValue);
        }
        virtual void onVisibilityChange(std::string const& uid, bool const& oldValue, bool const& newValue) = 0;
        virtual void onOpacityChange(std::string const& uid, unsigned int const& oldValue,
                                     unsigned int const& newValue) = 0;
        virtual void onZOrderChange(std::string const& uid, unsigned int const& oldValue,
                                    unsigned int const& newValue) = 0;
        virtual void onLocationChange(std::string const& uid, Rect const& oldValue, Rect const& newValue) = 0;
    };

    class IWindowCompositingNotifier : public virtual IObservable, public virtual IWindowCompositingListener {};

    void setVisibility(unsigned int const&, bool visible) override { setVisibility(std::string(), visible); }
    bool getVisibility(unsigned int const&) override { return getVisibility(std::string()); }
    void setOpacity(unsigned int const&, unsigned int opacity) override { setOpacity(std::string(), opacity); }
    unsigned int getOpacity(unsigned int const&) override { return getOpacity(std::string()); }
    void setZOrder(unsigned int const&, unsigned int zOrder) override { setZOrder(std::string(), zOrder); }
    unsigned int getZOrder(unsigned int const&) override { return getZOrder(std::string()); }
    void setLocation(unsigned int const&, Rect const& location) override { setLocation(std::string(), location); }
    Rect getLocation(unsigned int const&) override { return getLocation(std::string()); }
    void bringToFront(unsigned int const&) override { bringToFront(std::string()); }
    void sendToBack(unsigned int const&) override { sendToBack(std::string()); }
    void bringForward(unsigned int const&) override { bringForward(std::string()); }
    void sendBackward(unsigned int const&) override { sendBackward(std::string()); }

    virtual void setVisibility(std::string const& uid, bool visible) = 0;
    virtual bool getVisibility(std::string const& uid) = 0;
    virtual void setOpacity(std::string const& uid, unsigned int opacity) = 0;
    virtual unsigned int getOpacity(std::string const& uid) = 0;
    virtual void setZOrder(std::string const& uid, unsigned int zOrder) = 0;
    virtual unsigned int getZOrder(std::string const& uid) = 0;
    virtual void setLocation(std::string const& uid, Rect const& location) = 0;
    virtual Rect getLocation(std::string const& uid) = 0;
    virtual void bringToFront(std::string const& uid) = 0;
    virtual void sendToBack(std::string const& uid) = 0;
    virtual void bringForward(std::string const& uid) = 0;
    virtual void sendBackward(std::string const& uid) = 0;
};

} // namespace Velmora
