// The power manager's notices, delivered by HUXClient on its delivery thread:
// a state the box has entered, a transition the manager asks for (from light
// sleep to a deeper state), and a wake-up with its reason.
//
// States: 0 running, 1 light sleep, 2 and 3 deeper sleep with the infra-red
// filter armed, 4 the state before start-up. Reasons: 1 asks for light sleep,
// 0, 2 and 3 for the running state; others are ignored.
#pragma once

#include "frame/IListener.h"

namespace Velmora {

class IPowerManager {
public:
    static constexpr unsigned int HIGHEST_STATE = 4;

    class IPowerManagerListener : public virtual IListener {
    public:
        virtual int onPowerStateChange(unsigned int const& state) = 0;
        virtual int onPowerChangeRequest(unsigned int const& state) = 0;
        virtual int onWakeUp(unsigned int const& reason) = 0;
    };

    virtual ~IPowerManager() = default;
};

} // namespace Velmora
