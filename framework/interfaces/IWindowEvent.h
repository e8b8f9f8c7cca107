// Focus and input events of windows, the event records and the listener
// families. KeyEvent is the event the input driver produces; it is written
// with "@type" "KeyEvent" and read back in the dynamic form.
#pragma once

#include "interfaces/Event.h"
#include "frame/IListener.h"

#include <string>

namespace Velmora {

class Deserializer;

class IWindowEvent {
public:
    // An event that comes from the input driver.
    class InputEvent : public Event {};

    class KeyEvent : public InputEvent {
    public:
        // Key codes; the numbers are shared with every process of the box.
        enum Code : unsigned int {
            KEY_NONE = 0,
            KEY_POWER = 1,
            KEY_MASTER_TOGGLE = 30,
            KEY_SYNTHETIC = 33,
            KEY_SYSTEM = 34,
            KEY_POWER_DEMO_DMS = 35,
            KEY_POWER_DEMO = 36,
            KEY_MASTER_TOGGLE_CLIENT = 38,
            KEY_SYSTEM_ALT = 56,
        };
        static char const* const TYPE_NAME; // "KeyEvent"

        KeyEvent() = default;
        KeyEvent(Code const& code, bool pressed) : code(code), pressed(pressed) {}
        explicit KeyEvent(Deserializer& deserializer);

        std::string const& getObjectType() const override;
        SerialObject* clone() const override { return new KeyEvent(*this); }
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;
        bool isFocusEvent() const override { return true; }

        Code getKeyCode() const { return code; }
        bool getPressed() const { return pressed; }

    private:
        Code code = KEY_NONE;
        bool pressed = false;
    };

    class IWindowEventListener : public virtual IListener {
    public:
        virtual void onFocusChange(std::string const& uid, bool const& oldFocus, bool const& newFocus) = 0;
    };

    class IInputEventListener : public virtual IListener {
    public:
        virtual void onInputEvent(InputEvent const& event) = 0;
    };

    virtual ~IWindowEvent() = default;
    virtual void handleFocus(std::string const& uid, bool focus) = 0;
    virtual bool isFocused(std::string const& uid) = 0;
    virtual bool handleEvent(std::string const& uid, Event const& event) = 0;
};

} // namespace Velmora
