// Start-up of the session, the dispatch of events to windows and the power
// notices.
#include "MasterWindowManager.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

namespace Velmora {

static char const MODULE[] = "MasterWindowManager";

void MasterWindowManager::onBootComplete() { queueStartUp(); }

void MasterWindowManager::onServiceFailure(std::string const& name)
{
    VLOG(DebugLevelNotice, "onServiceFailure(): %s\n", name.c_str());
}

void MasterWindowManager::onServiceListChange(VectorObject<std::string> const&) {}

template <class Client>
Client* MasterWindowManager::connectClient(char const* what)
{
    Client* client = Client::create(getClientType(), std::string());
    try {
        client->init();
    } catch (Exception const& e) {
        // Kept all the same: each call dials again.
        VLOG(DebugLevelError, "_startup(): the %s is not reachable: %s\n", what, e.what());
    }
    return client;
}

void MasterWindowManager::_startup()
{
    if (!mediaClient)
        mediaClient = connectClient<QENClient>("media engine");
    if (!powerClient)
        powerClient = connectClient<HUXClient>("power manager");
    scanStartupOptions();
    _createMaster();
}

void MasterWindowManager::_dispatchEvent(Event* event)
{
    if (event->isFocusEvent()) {
        if (ApplicationMapEntry* focused = _getApplicationEntry(focusedUid))
            reachWindow(*focused, "_dispatchEvent", [&] { eventsOf(*focused).handleEvent(focusedUid, *event); });
        return;
    }
    for (auto& window : applications) {
        ApplicationMapEntry& entry = window.second;
        reachWindow(entry, "_dispatchEvent", [&] { eventsOf(entry).handleEvent(entry.getUid(), *event); });
    }
}

void MasterWindowManager::_wakeUp(unsigned int reason)
{
    VLOG(DebugLevelNotice, "_wakeUp(): reason %u\n", reason);
}

void MasterWindowManager::_powerStateChange(unsigned int state)
{
    VLOG(DebugLevelNotice, "_powerStateChange(): %u\n", state);
    powerState = state;
}

void MasterWindowManager::_powerChangeRequest(unsigned int state)
{
    VLOG(DebugLevelNotice, "_powerChangeRequest(): %u\n", state);
}

} // namespace Velmora
