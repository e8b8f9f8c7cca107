#include "WindowManager.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/ListenerList.h"
#include "serial/Serialization.h"

#include <cstdlib>

namespace Velmora {

static char const MODULE[] = "WindowManager";

unsigned int const WindowManager::GARBAGE_COLLECTION_PERIOD = 2500;

namespace {

// The body of every public operation that waits: run the command on the
// manager's thread, throw its failure on the caller's, hand its result over.
template <class Command>
auto await(CommandProcessor& manager, Command&& command, char const* operation)
{
    manager.executeOrThrow(command, MODULE, __LINE__, operation);
    if constexpr (requires { command.takeReturn(); })
        return command.takeReturn();
}

WindowManager::EventCopy copyOf(Event const& event) { return WindowManager::EventCopy(static_cast<Event*>(event.clone())); }

} // namespace

void WindowManager::GarbageCollectionPeriodicCommand::call() { getWindowManager()->_garbageCollection(); }

WindowManager::WindowManager(unsigned int sessionIndex, ApplicationFactory* factory, int argc, char** argv)
    : ApplicationManager(factory, "WindowManager", argc, argv), sessionIndex(sessionIndex),
      garbageCollectionCommand(this)
{
}

WindowManager::~WindowManager() { WindowManager::uninit(); }

void WindowManager::uninit()
{
    unregisterPeriodicCommand(&garbageCollectionCommand);
    ApplicationManager::uninit();
    if (isOwnThread())
        return;
    destroyAllApplications();
}

void WindowManager::init()
{
    ApplicationManager::init();
    registerPeriodicCommand(&garbageCollectionCommand);
}

std::string WindowManager::getExecutableName(LaunchParameters const& parameters)
{
    std::string const& type = parameters.getApplicationType();
    if (type == APPLICATION_TYPE_INVALID) {
        VLOG(DebugLevelError, "type is invalid");
        return std::string();
    }
    if (type == APPLICATION_TYPE_WEBBROWSER || type == APPLICATION_TYPE_WEBPAGE || type == APPLICATION_TYPE_WEBAPP)
        return std::getenv("VELMORA_USE_NEW_WEBKIT") ? "start_webkitGl.sh" : "start_webkit.sh";
    if (type == APPLICATION_TYPE_WEBGLAPP)
        return "start_webkitGl.sh";
    if (type == APPLICATION_TYPE_AIR || type == APPLICATION_TYPE_AIRGL)
        return "start_air3.x.sh";
    if (type == APPLICATION_TYPE_WFDPLAYER)
        return "start_wfd_player.sh";
    if (type == APPLICATION_TYPE_OTHER)
        return "start_other.sh";
    VLOG(DebugLevelError, "%s not supported", type.c_str());
    return std::string();
}

// ---- Public operations: one command each -----------------------------------

VectorObject<std::string> WindowManager::getWindowList()
{
    return await(*this, GetWindowListCommand(this, &WindowManager::_getWindowList), "getWindowList");
}

std::string WindowManager::launch(LaunchParameters const& parameters)
{
    return launch(parameters, "IWindowManager.launch");
}

std::string WindowManager::launch(LaunchParameters const& parameters, std::string const& requester)
{
    return await(*this, LaunchCommand(this, &WindowManager::launchFor, parameters, requester), "launch");
}

std::string WindowManager::launchFor(LaunchParameters const& parameters, std::string const& requester)
{
    launchRequester = requester;
    return _launch(parameters);
}

void WindowManager::queueTerminateBecause(std::string const& uid, std::string const& reason)
{
    queueCommand(new TerminateBecauseCommand(this, &WindowManager::terminateFor, uid, reason), true);
}

void WindowManager::terminateFor(std::string const& uid, std::string const& reason)
{
    terminateReason = reason;
    _terminate(uid);
}

unsigned int WindowManager::terminateLaunchedAs(std::string const& type, std::string const& url,
                                               std::string const& reason)
{
    return await(*this,
                 TerminateLaunchedAsCommand(this, &WindowManager::_terminateLaunchedAs, type, url, reason),
                 "terminateLaunchedAs");
}

bool WindowManager::focusBecause(std::string const& why, std::string const& uid, bool notifyOld)
{
    focusReason = why;
    return _setFocus(uid, notifyOld);
}

IWindowManager::LaunchParameters WindowManager::getLaunchParameters(std::string const& uid)
{
    return await(*this, GetLaunchParametersCommand(this, &WindowManager::_getLaunchParameters, uid),
                 "getLaunchParameters");
}

void WindowManager::dispatchEvent(Event const& event)
{
    queueCommand(new DispatchEventCommand(this, &WindowManager::_dispatchEvent, copyOf(event)), true);
}

bool WindowManager::setFocus(std::string const& uid)
{
    return await(*this, SetFocusCommand(this, &WindowManager::focusNotifyingOld, uid), "setFocus");
}

std::string WindowManager::getFocus() { return await(*this, GetFocusCommand(this, &WindowManager::_getFocus), "getFocus"); }

void WindowManager::setWindowLayout(std::string const& name)
{
    await(*this, SetWindowLayoutCommand(this, &WindowManager::announceLayout, name), "setWindowLayout");
}

std::string WindowManager::getWindowLayout()
{
    return await(*this, GetWindowLayoutCommand(this, &WindowManager::focusAsLayout), "getWindowLayout");
}

void WindowManager::handleFocus(std::string const& uid, bool focus)
{
    await(*this, HandleFocusCommand(this, &WindowManager::_handleFocus, uid, focus), "handleFocus");
}

bool WindowManager::isFocused(std::string const& uid)
{
    return await(*this, IsFocusedCommand(this, &WindowManager::_isFocused, uid), "isFocused");
}

bool WindowManager::handleEvent(std::string const& uid, Event const& event)
{
    return await(*this, HandleEventCommand(this, &WindowManager::_handleEvent, uid, copyOf(event)), "handleEvent");
}

void WindowManager::setVisibility(std::string const& uid, bool visible)
{
    await(*this, SetVisibilityCommand(this, &WindowManager::_setVisibility, uid, visible), "setVisibility");
}

bool WindowManager::getVisibility(std::string const& uid)
{
    return await(*this, GetVisibilityCommand(this, &WindowManager::_getVisibility, uid), "getVisibility");
}

void WindowManager::setOpacity(std::string const& uid, unsigned int opacity)
{
    await(*this, SetOpacityCommand(this, &WindowManager::_setOpacity, uid, opacity), "setOpacity");
}

unsigned int WindowManager::getOpacity(std::string const& uid)
{
    return await(*this, GetOpacityCommand(this, &WindowManager::_getOpacity, uid), "getOpacity");
}

void WindowManager::setZOrder(std::string const& uid, unsigned int zOrder)
{
    await(*this, SetZOrderCommand(this, &WindowManager::_setZOrder, uid, zOrder), "setZOrder");
}

unsigned int WindowManager::getZOrder(std::string const& uid)
{
    // Answered by _getOpacity: the z-order is fixed at creation.
    return await(*this, GetZOrderCommand(this, &WindowManager::_getOpacity, uid), "getZOrder");
}

void WindowManager::queueAnimationFinished(std::string const& uid)
{
    queueCommand(new SurfaceAnimationFinishedCommand(this, &WindowManager::focusAfterAnimation, uid), true);
}

void WindowManager::queueWakeUp(unsigned int reason)
{
    queueCommand(new WakeUpCommand(this, &WindowManager::_wakeUp, reason), true);
}

void WindowManager::queuePowerStateChange(unsigned int state)
{
    queueCommand(new PowerStateChangeCommand(this, &WindowManager::_powerStateChange, state), true);
}

void WindowManager::queuePowerChangeRequest(unsigned int state)
{
    queueCommand(new PowerChangeRequestCommand(this, &WindowManager::_powerChangeRequest, state), true);
}

void WindowManager::queueStartUp() { queueCommand(new StartUpCommand(this, &WindowManager::_startup), true); }

bool WindowManager::focusNotifyingOld(std::string const& uid)
{
    return focusBecause("IWindowManager.setFocus", uid, true);
}

void WindowManager::focusAfterAnimation(std::string const& uid)
{
    focusBecause("the animation of " + uid + " finished", uid, true);
}

void WindowManager::announceLayout(std::string const&) { onLayoutChange(*this, LAYOUT_INVALID, LAYOUT_INVALID); }

std::string WindowManager::focusAsLayout() { return focusedUid; }

// ---- Listeners ---------------------------------------------------------------

void WindowManager::addListener(IListener* listener)
{
    ApplicationManager::addListener(listener);
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::addListener(windowListeners, listener))
        windowListenersChanged = true;
}

void WindowManager::removeListener(IListener* listener)
{
    {
        Mutex::ScopedLock lock(&listenerMutex);
        if (Velmora::removeListener(windowListeners, listener))
            windowListenersChanged = true;
    }
    ApplicationManager::removeListener(listener);
}

void WindowManager::onWindowListChange(IWindowManager& manager, VectorObject<std::string> const& list)
{
    fanOut(listenerMutex, windowListeners, windowListenersChanged,
           [&](IWindowManager::IWindowManagerListener* listener) { listener->onWindowListChange(manager, list); });
}

void WindowManager::onFocusChange(IWindowManager& manager, std::string const& oldFocus, std::string const& newFocus)
{
    fanOut(listenerMutex, windowListeners, windowListenersChanged,
           [&](IWindowManager::IWindowManagerListener* listener) { listener->onFocusChange(manager, oldFocus, newFocus); });
}

void WindowManager::onLayoutChange(IWindowManager& manager, std::string const& oldLayout,
                                   std::string const& newLayout)
{
    fanOut(listenerMutex, windowListeners, windowListenersChanged,
           [&](IWindowManager::IWindowManagerListener* listener) { listener->onLayoutChange(manager, oldLayout, newLayout); });
}

// ---- Operations on the manager's thread --------------------------------------

VectorObject<std::string> WindowManager::_getWindowList()
{
    VectorObject<std::string> list;
    for (auto const& [uid, entry] : applications)
        if (entry.getLastReportedState() != ILifecycleManagement::STATE_UNINITIALIZED)
            list.push_back(uid);
    return list;
}

std::string WindowManager::_getFocus() { return focusedUid; }

void WindowManager::_setWindowLayout(std::string const&) {}

std::string WindowManager::_getWindowLayout() { return LAYOUT_INVALID; }

IWindowManager::LaunchParameters WindowManager::_getLaunchParameters(std::string const& uid)
{
    ApplicationMapEntry* entry = _getApplicationEntry(uid);
    if (!entry)
        throwException(MODULE, __LINE__, "_getLaunchParameters", ReturnInvalidParameter);
    return deserialize<LaunchParameters>(entry->getParameters());
}

void WindowManager::_onApplicationListChange() { onWindowListChange(*this, _getWindowList()); }

std::string WindowManager::processEndState() const { return ILifecycleManagement::STATE_TERMINATED; }

void WindowManager::_garbageCollection()
{
    for (auto it = applications.begin(); it != applications.end(); ++it) {
        ApplicationMapEntry& entry = it->second;
        bool const candidate =
            entry.getLastReportedState() == ILifecycleManagement::STATE_UNINITIALIZED || entry.getDeathMark();
        if (!candidate || entry.getKeepAlive())
            continue;
        std::string const uid = entry.getUid();
        std::string const oldState = entry.getLastReportedState();
        VLOG(DebugLevelError, "_garbageCollection(): %s (%s) is silent past its delay, collected as runaway\n",
             uid.c_str(), oldState.c_str());
        std::string const silence = "silent for over " + std::to_string(entry.getTimeoutDelay()) + " ms";
        journal({.uid = uid, .kind = LifecycleEntry::KIND_RUNAWAY,
                 .reason = entry.getDeathMark() ? "ignored a terminate request or could not be reached"
                                                : "no state report after its launch",
                 .cause = silence});
        stateReason = "collected";
        _onStateChange(uid, oldState, ILifecycleManagement::STATE_RUNAWAY);
        // The table changed: go on from its second entry; the first waits for the next pass.
        it = applications.begin();
        if (it == applications.end())
            return;
    }
}

} // namespace Velmora
