// The media engine's renderer notices, delivered by QENClient: a renderer
// first announces the URI it wants shown, then asks for a window of an
// application type to show it in.
#pragma once

#include "frame/IListener.h"

#include <string>

namespace Velmora {

class IRenderer {
public:
    enum NotifyEvent : unsigned int {
        NOTIFY_URI = 0,    // the text is the URI to show
        NOTIFY_LAUNCH = 1, // the text is the application type to show it with
    };

    class OnRendererEventListener : public virtual IListener {
    public:
        virtual int onRendererEvent(NotifyEvent event, std::string const& text) = 0;
    };

    virtual ~IRenderer() = default;
};

} // namespace Velmora
