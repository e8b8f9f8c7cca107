// Streaming subscriptions and system state. In this system the interface stands
// without behaviour: subscriptions are neither stored nor checked and no state
// change is raised.
#pragma once

#include "frame/IListener.h"

#include <string>

namespace Velmora {

class IStateManager {
public:
    class IStateManagerListener : public virtual IListener {
    public:
        virtual int onStateChange() = 0;
    };

    class IStateManagerNotifier : public virtual IStateManagerListener {};

    virtual ~IStateManager() = default;
    virtual void requestStreamingSubscription(std::string const& subscriber, std::string const& stream) = 0;
    virtual void setStreamingSubscription(std::string const& subscriber, std::string const& stream, bool enabled) = 0;
    virtual bool checkStreamingSubscription(std::string const& subscriber, std::string const& stream) = 0;
    // False when nothing changed (a listener of another family, one already
    // present, one absent).
    virtual bool addListener(IListener* listener) = 0;
    virtual bool removeListener(IListener* listener) = 0;
};

} // namespace Velmora
