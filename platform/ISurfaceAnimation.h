// The compositor's notice that the animation of a window's surface has ended,
// delivered by QENClient.
#pragma once

#include "frame/IListener.h"

#include <string>

namespace Velmora {

class ISurfaceAnimation {
public:
    class ISurfaceAnimationListener : public virtual IListener {
    public:
        virtual int onAnimationFinished(std::string const& uid) = 0;
    };

    virtual ~ISurfaceAnimation() = default;
};

} // namespace Velmora
