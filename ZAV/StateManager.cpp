#include "StateManager.h"

#include "frame/ListenerList.h"

namespace Velmora {

StateManager::StateManager() : CommandProcessor("StateManager") {}

StateManager::~StateManager()
{
    uninit();
}

void StateManager::requestStreamingSubscription(std::string const&, std::string const&) {}

void StateManager::setStreamingSubscription(std::string const&, std::string const&, bool) {}

bool StateManager::checkStreamingSubscription(std::string const&, std::string const&)
{
    return false;
}

int StateManager::onStateChange()
{
    return 0;
}

bool StateManager::addListener(IListener* listener)
{
    return Velmora::addListener(listeners, listener);
}

bool StateManager::removeListener(IListener* listener)
{
    return Velmora::removeListener(listeners, listener);
}

} // namespace Velmora
