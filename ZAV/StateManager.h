// Placeholder of the component for streaming subscriptions and system state,
// present in every process so that the interface stands: every operation
// answers at once on the caller's thread and changes nothing. The processor's
// thread is started by init() and has no work.
//
// Threads: any thread may call the operations; addListener and removeListener
// take no lock, so the owner keeps them from racing with each other.
// Ownership: listener pointers are not owned.
#pragma once

#include "frame/CommandProcessor.h"
#include "interfaces/IStateManager.h"
#include "frame/Singleton.h"

#include <string>
#include <vector>

namespace Velmora {

class StateManager : public Singleton<StateManager>, public CommandProcessor, public virtual IStateManager,
                     public virtual IStateManager::IStateManagerNotifier {
public:
    StateManager();
    ~StateManager() override;

    // Does nothing.
    void requestStreamingSubscription(std::string const& subscriber, std::string const& stream) override;
    // Does nothing.
    void setStreamingSubscription(std::string const& subscriber, std::string const& stream, bool enabled) override;
    // False, always.
    bool checkStreamingSubscription(std::string const& subscriber, std::string const& stream) override;
    // 0; no listener is called.
    int onStateChange() override;
    bool addListener(IListener* listener) override;
    bool removeListener(IListener* listener) override;

private:
    std::vector<IStateManager::IStateManagerListener*> listeners;
};

} // namespace Velmora
