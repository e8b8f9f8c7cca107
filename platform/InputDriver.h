// The box's input sources as one process-wide object, reached through
// Singleton<InputDriver>::getInstance<MultiInputDriver>(). Key events go to
// the IWindowEvent::IInputEventListener listeners of the session a source
// belongs to.
//
// enableIr() opens the remote-control sources; enableHotplug() and
// disableHotplug() switch the adoption of input devices that appear later;
// enableIrFilter(code) lets only that key through (the box is asleep) until
// disableIrFilter(). Threads: every operation from any thread; listeners are
// called on the driver's reader thread and are not owned.
#pragma once

#include "frame/IListener.h"
#include "interfaces/IWindowEvent.h"
#include "frame/Singleton.h"

namespace Velmora {

class InputDriver : public Singleton<InputDriver> {
public:
    ~InputDriver() override = default;

    virtual void addListener(IListener* listener, unsigned int sessionIndex) = 0;
    // After it returns the listener is called no more (unless it is re-added).
    virtual void removeListener(IListener* listener) = 0;
    virtual void enableIr() = 0;
    virtual void enableHotplug() = 0;
    virtual void disableHotplug() = 0;
    virtual void enableIrFilter(IWindowEvent::KeyEvent::Code code) = 0;
    virtual void disableIrFilter() = 0;
};

} // namespace Velmora
