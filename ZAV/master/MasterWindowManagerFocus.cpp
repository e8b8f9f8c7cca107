// Focus, visibility and the master window, as windows report their states.
// Focus and visibility are pushed to the windows themselves; a window that
// fails such a call gets the death mark and the garbage collection removes it.
#include "MasterWindowManager.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "serial/Serialization.h"

namespace Velmora {

static char const MODULE[] = "MasterWindowManager";

bool MasterWindowManager::reachWindow(ApplicationMapEntry& entry, char const* operation,
                                      std::function<void()> const& call)
{
    try {
        call();
        return true;
    } catch (Exception const& e) {
        VLOG(DebugLevelError, "%s(): window %s failed: %s\n", operation, entry.getUid().c_str(), e.what());
    } catch (std::exception const& e) {
        VLOG(DebugLevelError, "%s(): window %s failed: %s\n", operation, entry.getUid().c_str(), e.what());
    }
    entry.setDeathMark(true);
    return false;
}

IWindowEvent& MasterWindowManager::eventsOf(ApplicationMapEntry const& entry)
{
    IWindowEvent* events = entry.getWindowEventInterface();
    if (!events)
        throwException(MODULE, __LINE__, "eventsOf", ReturnInvalidState);
    return *events;
}

IWindowCompositing& MasterWindowManager::compositingOf(ApplicationMapEntry const& entry)
{
    IWindowCompositing* compositing = entry.getWindowCompositingInterface();
    if (!compositing)
        throwException(MODULE, __LINE__, "compositingOf", ReturnInvalidState);
    return *compositing;
}

void MasterWindowManager::_createMaster()
{
    LaunchParameters const options(argc, argv);
    if (options.getApplicationType().empty() || options.getApplicationURL().empty())
        return;
    std::string const url = options.getApplicationURL() + "?sessionIndex=" + std::to_string(sessionIndex);
    LaunchParameters const master(std::string(), options.getApplicationType(), url,
                                  options.getApplicationParameters(), options.getCompositingParameters(), true, false);
    masterUid = launchFor(master, "the master window's start-up");
    VLOG(DebugLevelInfo, "_createMaster(): master window of session %u is %s\n", sessionIndex, masterUid.c_str());
}

bool MasterWindowManager::_setFocus(std::string const& uid, bool notifyOld)
{
    std::string const target = uid; // may be focusedUid itself
    std::string const before = focusedUid; // the journal's "from", blurred or not
    std::string oldFocus;
    if (ApplicationMapEntry* current = notifyOld ? _getApplicationEntry(focusedUid) : nullptr) {
        oldFocus = focusedUid;
        reachWindow(*current, "_setFocus", [&] { eventsOf(*current).handleFocus(current->getUid(), false); });
    }
    bool took = false;
    if (ApplicationMapEntry* entry = _getApplicationEntry(target)) {
        focusedUid = target;
        took = reachWindow(*entry, "_setFocus", [&] { eventsOf(*entry).handleFocus(entry->getUid(), true); });
        if (!took)
            focusedUid.clear();
    } else {
        focusedUid.clear();
    }
    if (before != focusedUid || (!took && !target.empty()))
        journal({.uid = focusedUid.empty() ? before : focusedUid, .kind = LifecycleEntry::KIND_FOCUS,
                 .reason = focusReason.empty() ? "focus requested" : focusReason,
                 .cause = "from \"" + before + "\" to \"" + focusedUid + "\"" +
                          (took || target.empty() ? "" : "; " + target + " unreachable")});
    focusReason.clear();
    onFocusChange(*this, oldFocus, focusedUid);
    return took;
}

void MasterWindowManager::_autoFocus(bool notifyOld)
{
    for (auto const& [uid, entry] : applications) {
        if (uid != masterUid && entry.getLastReportedState() == ILifecycleManagement::STATE_RUNNING &&
            !entry.getDeathMark()) {
            focusBecause("master window hidden (" + toggleCause + "): the first running window", uid, notifyOld);
            return;
        }
    }
    focusBecause("master window hidden (" + toggleCause + "): no running window", std::string(), notifyOld);
}

void MasterWindowManager::showMaster(bool visible)
{
    if (ApplicationMapEntry* master = _getApplicationEntry(masterUid))
        compositingOf(*master).setVisibility(masterUid, visible);
}

void MasterWindowManager::sendSyntheticKey()
{
    IWindowEvent::KeyEvent key(IWindowEvent::KeyEvent::KEY_SYNTHETIC, true);
    _dispatchEvent(&key);
}

void MasterWindowManager::toggleMasterWindowBecause(std::string const& why)
{
    toggleCause = why;
    _toggleMasterWindow();
    toggleCause = "toggled";
}

void MasterWindowManager::_toggleMasterWindow()
{
    if (!_getApplicationEntry(masterUid))
        return;
    if (focusedUid != masterUid || applications.size() == 1) {
        focusBecause("master window shown (" + toggleCause + ")", masterUid, true);
        showMaster(true);
        sendSyntheticKey(); // tells the master window it came up
        return;
    }
    showMaster(false);
    _autoFocus(true);
}

void MasterWindowManager::_onStateChange(std::string const& uid, std::string const& oldState,
                                         std::string const& newState)
{
    // Copies: the references may lie in the entry that this call removes.
    std::string const id = uid;
    std::string const previous = oldState;
    std::string const state = newState;
    bool const terminated = ILifecycleManagement::isApplicationTerminated(state);
    ApplicationMapEntry* entry = _getApplicationEntry(id);
    if (entry && state != entry->getLastReportedState()) {
        if (state == ILifecycleManagement::STATE_RUNNING) {
            if (deserialize<LaunchParameters>(entry->getParameters()).getGiveFocus()) {
                if (id != masterUid)
                    showMaster(false);
                focusBecause("window reported RUNNING and asked for focus", id, true);
            }
            if (ApplicationMapEntry* shown = _getApplicationEntry(id))
                reachWindow(*shown, "_onStateChange", [&] { compositingOf(*shown).setVisibility(id, true); });
        } else if (terminated) {
            if (focusedUid == id)
                focusBecause("the focused window ended (" + state + ")", std::string(), false); // gone: no blur
            if (masterUid == id)
                masterUid.clear();
        }
    }
    ApplicationManager::_onStateChange(id, previous, state);
    if (!terminated)
        return;
    if (!pendingLaunches.empty()) {
        // Popped after the launch: a launch that finds the table full again
        // replaces the queue's content, and the pop then drops the replacement.
        LaunchParameters const waiting = pendingLaunches.front();
        launchFor(waiting, "the put-off launch, after " + id + " ended");
        pendingLaunches.pop();
    } else if (!applications.empty()) {
        toggleMasterWindowBecause(id + " ended");
    }
}

// Windows draw themselves and are told their focus and visibility: the
// compositing operations of the manager change nothing and report nothing.
void MasterWindowManager::_handleFocus(std::string const&, bool) {}
bool MasterWindowManager::_isFocused(std::string const&) { return false; }
bool MasterWindowManager::_handleEvent(std::string const&, Event*) { return false; }
void MasterWindowManager::_setVisibility(std::string const&, bool) {}
bool MasterWindowManager::_getVisibility(std::string const&) { return false; }
void MasterWindowManager::_setOpacity(std::string const&, unsigned int) {}
unsigned int MasterWindowManager::_getOpacity(std::string const&) { return 0; }
void MasterWindowManager::_setZOrder(std::string const&, unsigned int) {}
unsigned int MasterWindowManager::_getZOrder(std::string const&) { return 0; }

} // namespace Velmora
