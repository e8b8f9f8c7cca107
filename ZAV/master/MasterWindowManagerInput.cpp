// Start-up of the session, the dispatch of events to windows with the key
// tables, the power key and the power notices.
#include "MasterWindowManager.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/FunctionCommand.h"
#include "MultiInputDriver.h"

#include <cstdlib>

namespace Velmora {

static char const MODULE[] = "MasterWindowManager";

using KeyEvent = IWindowEvent::KeyEvent;

namespace {

// Whether VELMORA_DEMO exists, whatever its value: read once per process, at
// the first key of any session.
bool isDemoMode()
{
    static bool const demoMode = std::getenv("VELMORA_DEMO") != nullptr;
    return demoMode;
}

} // namespace

void MasterWindowManager::onBootComplete() { queueStartUp(); }

void MasterWindowManager::onServiceFailure(std::string const& name)
{
    VLOG(DebugLevelInfo, "Service %s failed, killing running application\n", name.c_str());
    queueTerminateBecause(SINGLETON_UID, "the service " + name + " failed");
}

void MasterWindowManager::onServiceListChange(VectorObject<std::string> const&) {}

void MasterWindowManager::onInputEvent(InputEvent const& event) { dispatchEvent(event); }

int MasterWindowManager::onPowerStateChange(unsigned int const& state)
{
    VLOG(DebugLevelInfo, "%s: state changed to: %d\n", "onPowerStateChange", static_cast<int>(state));
    queuePowerStateChange(state);
    return 0;
}

int MasterWindowManager::onPowerChangeRequest(unsigned int const& state)
{
    VLOG(DebugLevelInfo, "%s: state change request to: %d\n", "onPowerChangeRequest", static_cast<int>(state));
    queuePowerChangeRequest(state);
    return 0;
}

int MasterWindowManager::onWakeUp(unsigned int const& reason)
{
    VLOG(DebugLevelInfo, "%s: reason is: %u\n", "onWakeUp", reason);
    queueWakeUp(reason);
    return 0;
}

void MasterWindowManager::uninit()
{
    // Waits for what the thread has begun: a start-up still under way fills in
    // the driver and the clients read below.
    try {
        FunctionCommand::run(*this, [] {});
    } catch (Exception const&) {
        // Not running: nothing fills them in meanwhile.
    }
    if (inputDriver)
        inputDriver->removeListener(this);
    if (powerClient)
        powerClient->removeListener(this);
    if (mediaClient)
        mediaClient->removeListener(this);
    WindowManager::uninit();
    // The thread has ended: no command uses the driver any more.
    if (inputDriver) {
        delete inputDriver; // gives the singleton's reference back
        inputDriver = nullptr;
    }
}

template <class Client>
Client* MasterWindowManager::connectClient()
{
    Client* client = Client::create(getClientType(), std::string());
    client->addListener(this);
    return client;
}

void MasterWindowManager::_startup()
{
    if (!inputDriver) {
        inputDriver = Singleton<InputDriver>::getInstance<MultiInputDriver>();
        inputDriver->addListener(this, sessionIndex);
    }
    if (!powerClient)
        powerClient = connectClient<HUXClient>();
    if (!mediaClient)
        mediaClient = connectClient<QENClient>();
    for (ServiceEndpointClient* client : {static_cast<ServiceEndpointClient*>(powerClient),
                                          static_cast<ServiceEndpointClient*>(mediaClient)}) {
        try {
            client->init();
        } catch (Exception const& e) {
            // Kept all the same: each call dials again, and so does a repeated start-up.
            VLOG(DebugLevelError, "_startup(): service %s is not reachable: %s\n", client->getEndpoint().c_str(),
                 e.what());
        }
    }
    scanStartupOptions();
    _createMaster();
}

bool MasterWindowManager::consumedInDemoMode(KeyEvent const& key)
{
    bool const act = key.getPressed();
    switch (key.getKeyCode()) {
    case KeyEvent::KEY_POWER:
        if (!powerDemo && act)
            _handlePowerKey(KeyEvent::KEY_POWER);
        return true;
    case KeyEvent::KEY_MASTER_TOGGLE:
    case KeyEvent::KEY_MASTER_TOGGLE_CLIENT: {
        bool const mine = clientMode == (key.getKeyCode() == KeyEvent::KEY_MASTER_TOGGLE_CLIENT);
        if (mine && act)
            toggleMasterWindowBecause("the Home key");
        return mine;
    }
    case KeyEvent::KEY_POWER_DEMO_DMS:
    case KeyEvent::KEY_POWER_DEMO: {
        bool const mine = (key.getKeyCode() == KeyEvent::KEY_POWER_DEMO_DMS) == dmsEnabled;
        if (powerDemo && mine && act)
            _handlePowerKey(key.getKeyCode());
        return powerDemo;
    }
    default:
        return false;
    }
}

bool MasterWindowManager::consumedByKeyTables(KeyEvent const& key)
{
    if (isDemoMode())
        return consumedInDemoMode(key);
    KeyEvent::Code const code = key.getKeyCode();
    if (code != KeyEvent::KEY_SYSTEM && code != KeyEvent::KEY_SYSTEM_ALT && code != KeyEvent::KEY_POWER)
        return false;
    if (ApplicationMapEntry* master = _getApplicationEntry(masterUid))
        deliverEvent(*master, key);
    return true;
}

void MasterWindowManager::_dispatchEvent(Event* event)
{
    if (event->getObjectType() == KeyEvent::TYPE_NAME) {
        auto const* key = dynamic_cast<KeyEvent const*>(event);
        if (key && consumedByKeyTables(*key))
            return;
    }
    routeEvent(event);
    if (slaveClient && slaveAppSupport == APPLICATION_TYPE_ANDROID)
        slaveClient->dispatchEvent(*event);
}

void MasterWindowManager::routeEvent(Event* event)
{
    if (event->isFocusEvent()) {
        if (ApplicationMapEntry* focused = _getApplicationEntry(focusedUid))
            deliverEvent(*focused, *event);
        return;
    }
    for (auto& window : applications)
        deliverEvent(window.second, *event);
}

void MasterWindowManager::deliverEvent(ApplicationMapEntry& entry, Event const& event)
{
    reachWindow(entry, "_dispatchEvent", [&] {
        if (APPClient* client = entry.getAPPClient())
            return client->postEvent(entry.getUid(), event);
        eventsOf(entry).handleEvent(entry.getUid(), event);
    });
}

void MasterWindowManager::_handlePowerKey(KeyEvent::Code code)
{
    if (!inputDriver || !powerClient || !mediaClient) {
        // Only a remote dispatchEvent comes this early: the clients come with the start-up.
        VLOG(DebugLevelError, "_handlePowerKey(): the session has not started up; key %d ignored\n",
             static_cast<int>(code));
        return;
    }
    unsigned int target = 4;
    bool filtered = false;
    if (powerState == 0) {
        if (dmsEnabled && mediaClient->getDmsStatus()) {
            target = 1;
        } else {
            target = dmsEnabled ? 2 : 3;
            inputDriver->enableIrFilter(code);
            filtered = true;
        }
    } else if (powerState == 1) {
        target = 0;
    }
    if (target != 0) {
        try {
            for (auto const& window : applications)
                mediaClient->releaseClient(window.first);
        } catch (...) {
            VLOG(DebugLevelError, "_handlePowerKey(): the media engine did not release every window\n");
        }
    }
    journal({.kind = LifecycleEntry::KIND_POWER, .reason = "the Power key (code " + std::to_string(code) + ")",
             .cause = "asks the power manager for " + std::to_string(powerState) + " -> " + std::to_string(target)});
    try {
        powerClient->setPowerState(target);
    } catch (...) {
        // The box stays awake: it must not stay deaf to every key but one.
        if (filtered)
            inputDriver->disableIrFilter();
        throw;
    }
}

void MasterWindowManager::_powerStateChange(unsigned int state)
{
    journal({.kind = LifecycleEntry::KIND_POWER, .reason = "the power manager reported",
             .cause = std::to_string(powerState) + " -> " + std::to_string(state)});
    powerState = state;
}

void MasterWindowManager::_powerChangeRequest(unsigned int)
{
    if (powerState != 1)
        return;
    KeyEvent::Code code = KeyEvent::KEY_POWER;
    if (powerDemo)
        code = dmsEnabled ? KeyEvent::KEY_POWER_DEMO_DMS : KeyEvent::KEY_POWER_DEMO;
    inputDriver->enableIrFilter(code);
    powerClient->setPowerState(2);
}

void MasterWindowManager::_wakeUp(unsigned int reason)
{
    if (powerState == 0 || reason >= 4)
        return;
    powerClient->setPowerState(reason == 1 ? 1 : 0);
    inputDriver->disableIrFilter();
}

} // namespace Velmora
