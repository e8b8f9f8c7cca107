// A window as seen by its manager: an application with a surface and focus.
// Its listener family hears the application's reports, compositing changes
// and focus changes.
#pragma once

#include "interfaces/IApplication.h"
#include "interfaces/IWindowCompositing.h"
#include "interfaces/IWindowEvent.h"

namespace Velmora {

class IWindow : public virtual IApplication, public virtual IWindowCompositing, public virtual IWindowEvent {
public:
    class IWindowListener : public virtual IApplication::IApplicationListener,
                            public virtual IWindowCompositing::IWindowCompositingListener,
                            public virtual IWindowEvent::IWindowEventListener {};
};

} // namespace Velmora
