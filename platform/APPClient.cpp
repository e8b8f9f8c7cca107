#include "APPClient.h"

#include "DebugPrint.h"
#include "Exception.h"
#include "ListenerList.h"

namespace Velmora {

static char const MODULE[] = "APPClient";

namespace {

Mutex factoryMutex("APPClientFactory");
APPClient::Factory& factory()
{
    static APPClient::Factory current;
    return current;
}

} // namespace

APPClient* APPClient::create(Client::Type type, std::string const& uid)
{
    Factory chosen;
    {
        Mutex::ScopedLock lock(&factoryMutex);
        chosen = factory();
    }
    return chosen ? chosen(type, uid) : new APPClient(type, uid);
}

void APPClient::setFactory(Factory replacement)
{
    Mutex::ScopedLock lock(&factoryMutex);
    factory() = std::move(replacement);
}

APPClient::APPClient(Client::Type type, std::string const& uid) : type(type), uid(uid), listenerMutex(MODULE) {}

APPClient::~APPClient()
{
    Mutex::ScopedLock lock(&listenerMutex);
    deliveriesDone.wait(listenerMutex, [this] { return deliveries == 0; });
}

void APPClient::init() {}

std::string const& APPClient::getUid() const { return uid; }

void APPClient::addListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::addListener(listeners, listener))
        listenersChanged = true;
}

void APPClient::removeListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::removeListener(listeners, listener))
        listenersChanged = true;
}

template <class Notify>
void APPClient::deliver(Notify&& notify)
{
    {
        Mutex::ScopedLock lock(&listenerMutex);
        ++deliveries;
    }
    fanOut(listenerMutex, listeners, listenersChanged, notify);
    Mutex::ScopedLock lock(&listenerMutex);
    --deliveries;
    deliveriesDone.notify_all();
}

void APPClient::notifyKeepAlive(std::string const& state)
{
    deliver([&](ILifecycleManagementListener* listener) { listener->onKeepAlive(uid, state); });
}

void APPClient::notifyStateChange(std::string const& oldState, std::string const& newState)
{
    deliver([&](ILifecycleManagementListener* listener) { listener->onStateChange(uid, oldState, newState); });
}

void APPClient::failNotConnected(char const* operation) const
{
    VLOG(DebugLevelError, "%s(): application %s is not connected\n", operation, uid.c_str());
    throwException(MODULE, __LINE__, operation, ReturnGenericFailure);
}

std::string APPClient::getState(std::string const&) { failNotConnected("getState"); }
void APPClient::setState(std::string const&, std::string const&) { failNotConnected("setState"); }
void APPClient::activate(std::string const&) { failNotConnected("activate"); }
void APPClient::suspend(std::string const&) { failNotConnected("suspend"); }
void APPClient::terminate(std::string const&) { failNotConnected("terminate"); }
ILifecycleManagement::RuntimeStatistics APPClient::getRuntimeStatistics(std::string const&)
{
    failNotConnected("getRuntimeStatistics");
}

void APPClient::setVisibility(std::string const&, bool) { failNotConnected("setVisibility"); }
bool APPClient::getVisibility(std::string const&) { failNotConnected("getVisibility"); }
void APPClient::setOpacity(std::string const&, unsigned int) { failNotConnected("setOpacity"); }
unsigned int APPClient::getOpacity(std::string const&) { failNotConnected("getOpacity"); }
void APPClient::setZOrder(std::string const&, unsigned int) { failNotConnected("setZOrder"); }
unsigned int APPClient::getZOrder(std::string const&) { failNotConnected("getZOrder"); }
void APPClient::setLocation(std::string const&, Rect const&) { failNotConnected("setLocation"); }
ISurfaceCompositing::Rect APPClient::getLocation(std::string const&) { failNotConnected("getLocation"); }
void APPClient::bringToFront(std::string const&) { failNotConnected("bringToFront"); }
void APPClient::sendToBack(std::string const&) { failNotConnected("sendToBack"); }
void APPClient::bringForward(std::string const&) { failNotConnected("bringForward"); }
void APPClient::sendBackward(std::string const&) { failNotConnected("sendBackward"); }

void APPClient::handleFocus(std::string const&, bool) { failNotConnected("handleFocus"); }
bool APPClient::isFocused(std::string const&) { failNotConnected("isFocused"); }
bool APPClient::handleEvent(std::string const&, Event const&) { failNotConnected("handleEvent"); }

void APPClient::authorizationTokenCreation(unsigned int, IServiceManager::Rights const&) {}
void APPClient::authorizationTokenDeletion(unsigned int) {}

} // namespace Velmora
