// The command layer of the windows of one display session: the application
// table of ApplicationManager, whose entries are windows. It owns the public
// operations of IWindowManager, IWindowCompositing and IWindowEvent, one
// command each, the window list, the fan-out to window listeners, the choice
// of launch script and the periodic garbage collection of windows that stay
// silent after their launch or after a request to end. Every policy operation
// is abstract here; MasterWindowManager supplies them.
//
// Oddities that callers rely on: getZOrder answers through _getOpacity,
// getWindowLayout answers with the focused uid, and setWindowLayout ignores
// its name and announces a change from LAYOUT_INVALID to LAYOUT_INVALID.
//
// Threads: init() and uninit() belong to the owner's thread, which calls
// uninit() before deleting the manager. Public operations from any thread; those with an answer wait for
// the manager's thread, onBootComplete-style notices and dispatchEvent are
// queued. focusedUid, the table and every `_` operation belong to the
// manager's thread; sessionIndex is constant. windowListeners and its change
// mark are guarded by ApplicationManager's listenerMutex, which is released
// during each listener call.
#pragma once

#include "ApplicationManager.h"
#include "interfaces/IWindow.h"
#include "interfaces/IWindowManager.h"
#include "frame/ReturningCommand.h"

#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace Velmora {

class WindowManager : public ApplicationManager, public virtual IWindowManager,
                      public virtual IWindow::IWindowListener,
                      public virtual IWindowManager::IWindowManagerNotifier {
public:
    // The garbage collection's period, in ticks.
    static unsigned int const GARBAGE_COLLECTION_PERIOD; // 2500

    class WindowManagerCommand : public CommandProcessor::Command {
    public:
        explicit WindowManagerCommand(WindowManager* manager) : Command(manager) {}
        WindowManager* getWindowManager() const { return static_cast<WindowManager*>(processor); }
    };

    class WindowManagerPeriodicCommand : public CommandProcessor::PeriodicCommand {
    public:
        WindowManagerPeriodicCommand(WindowManager* manager, unsigned int period) : PeriodicCommand(manager, period) {}
        WindowManager* getWindowManager() const { return static_cast<WindowManager*>(processor); }
    };

    class GarbageCollectionPeriodicCommand : public WindowManagerPeriodicCommand {
    public:
        explicit GarbageCollectionPeriodicCommand(WindowManager* manager)
            : WindowManagerPeriodicCommand(manager, GARBAGE_COLLECTION_PERIOD)
        {
        }
        void call() override;
    };

    // How a command keeps an argument (by value; an event as its own clone)
    // and hands it to the operation (scalars by value, records by reference,
    // events by pointer).
    using EventCopy = std::unique_ptr<Event>;
    template <class Kept>
    using Param = std::conditional_t<std::is_same_v<Kept, EventCopy>, Event*,
                                     std::conditional_t<std::is_scalar_v<Kept>, Kept, Kept const&>>;

    // One command class for every operation: it keeps the arguments and runs
    // `operation` with them on the manager's thread, keeping the result
    // unless R is void. Whether the caller waits or queues it is the public
    // operation's choice.
    template <class R, class... Kept>
    class Call : public std::conditional_t<std::is_void_v<R>, WindowManagerCommand,
                                           ReturningCommand<WindowManagerCommand, R>> {
    public:
        using Operation = R (WindowManager::*)(Param<Kept>...);
        Call(WindowManager* manager, Operation operation, Kept... kept)
            : Base(manager), operation(operation), kept(std::move(kept)...)
        {
        }
        void call() override
        {
            WindowManager* manager = this->getWindowManager();
            auto const run = [&](auto&... argument) { return (manager->*operation)(pass(argument)...); };
            if constexpr (std::is_void_v<R>)
                std::apply(run, kept);
            else
                this->setReturn(std::apply(run, kept));
        }

    private:
        using Base = std::conditional_t<std::is_void_v<R>, WindowManagerCommand,
                                        ReturningCommand<WindowManagerCommand, R>>;
        template <class T>
        static T& pass(T& value)
        {
            return value;
        }
        static Event* pass(EventCopy& event) { return event.get(); }

        Operation operation;
        std::tuple<Kept...> kept;
    };

    using StartUpCommand = Call<void>;
    using WakeUpCommand = Call<void, unsigned int>;
    using PowerStateChangeCommand = Call<void, unsigned int>;
    using PowerChangeRequestCommand = Call<void, unsigned int>;
    using GetWindowListCommand = Call<VectorObject<std::string>>;
    using HandleFocusCommand = Call<void, std::string, bool>;
    using IsFocusedCommand = Call<bool, std::string>;
    using HandleEventCommand = Call<bool, std::string, EventCopy>;
    using SetVisibilityCommand = Call<void, std::string, bool>;
    using GetVisibilityCommand = Call<bool, std::string>;
    using SetOpacityCommand = Call<void, std::string, unsigned int>;
    using GetOpacityCommand = Call<unsigned int, std::string>;
    using SetZOrderCommand = Call<void, std::string, unsigned int>;
    using GetZOrderCommand = Call<unsigned int, std::string>;
    using LaunchCommand = Call<std::string, LaunchParameters, std::string>;
    using GetLaunchParametersCommand = Call<LaunchParameters, std::string>;
    using DispatchEventCommand = Call<void, EventCopy>;
    using GetFocusCommand = Call<std::string>;
    using SetFocusCommand = Call<bool, std::string>;
    using SetWindowLayoutCommand = Call<void, std::string>;
    using GetWindowLayoutCommand = Call<std::string>;
    using SurfaceAnimationFinishedCommand = Call<void, std::string>;
    using TerminateBecauseCommand = Call<void, std::string, std::string>;
    using TerminateLaunchedAsCommand = Call<unsigned int, std::string, std::string, std::string>;

    WindowManager(unsigned int sessionIndex, ApplicationFactory* factory, int argc, char** argv);
    ~WindowManager() override;

    // ApplicationManager::init, then the garbage collection starts.
    void init() override;
    // Ends the garbage collection and the thread, then every window (its
    // client, and its process after the grace of the factory). The owner calls
    // it before deleting the manager, so that neither a command nor a
    // window's report meets a manager whose destruction has begun; the
    // destructors call it again, which does nothing more.
    void uninit() override;

    // The launch script for the parameters' applicationType; empty (and a
    // log line) for a type this build can't start locally.
    virtual std::string getExecutableName(LaunchParameters const& parameters);

    unsigned int getSessionIndex() override { return sessionIndex; }
    VectorObject<std::string> getWindowList() override;
    // Launched as requested by "IWindowManager.launch".
    std::string launch(LaunchParameters const& parameters) override;
    // The same, with who asked for it, for the lifecycle journal ("voice", "Wi-Fi Direct", ...).
    std::string launch(LaunchParameters const& parameters, std::string const& requester);
    // terminate, with why for the lifecycle journal ("the service QEN failed"); queued, does not
    // wait: its callers are other managers' threads, which this thread may be waiting on.
    void queueTerminateBecause(std::string const& uid, std::string const& reason);
    // terminate of every window launched with this applicationType and
    // applicationURL, the master window aside, with why for the journal;
    // waits, and answers how many windows were asked to end.
    unsigned int terminateLaunchedAs(std::string const& type, std::string const& url, std::string const& reason);
    LaunchParameters getLaunchParameters(std::string const& uid) override;
    void dispatchEvent(Event const& event) override;
    bool setFocus(std::string const& uid) override;
    std::string getFocus() override;
    void setWindowLayout(std::string const& name) override;
    std::string getWindowLayout() override;

    void handleFocus(std::string const& uid, bool focus) override;
    bool isFocused(std::string const& uid) override;
    bool handleEvent(std::string const& uid, Event const& event) override;

    using IWindowCompositing::setVisibility;
    using IWindowCompositing::getVisibility;
    using IWindowCompositing::setOpacity;
    using IWindowCompositing::getOpacity;
    using IWindowCompositing::setZOrder;
    using IWindowCompositing::getZOrder;
    using IWindowCompositing::setLocation;
    using IWindowCompositing::getLocation;
    using IWindowCompositing::bringToFront;
    using IWindowCompositing::sendToBack;
    using IWindowCompositing::bringForward;
    using IWindowCompositing::sendBackward;
    void setVisibility(std::string const& uid, bool visible) override;
    bool getVisibility(std::string const& uid) override;
    void setOpacity(std::string const& uid, unsigned int opacity) override;
    unsigned int getOpacity(std::string const& uid) override;
    void setZOrder(std::string const& uid, unsigned int zOrder) override;
    unsigned int getZOrder(std::string const& uid) override;
    // Geometry is not the windows' own business here: these do nothing.
    void setLocation(std::string const&, Rect const&) override {}
    Rect getLocation(std::string const&) override { return Rect(0, 0, 0, 0); }
    void bringToFront(std::string const&) override {}
    void sendToBack(std::string const&) override {}
    void bringForward(std::string const&) override {}
    void sendBackward(std::string const&) override {}

    // Fan-out to the window listeners, on the caller's thread.
    void onWindowListChange(IWindowManager& manager, VectorObject<std::string> const& list) override;
    void onFocusChange(IWindowManager& manager, std::string const& oldFocus, std::string const& newFocus) override;
    void onLayoutChange(IWindowManager& manager, std::string const& oldLayout, std::string const& newLayout) override;

    // What windows report of their surfaces is not followed: these do nothing.
    using IWindowCompositing::IWindowCompositingListener::onVisibilityChange;
    using IWindowCompositing::IWindowCompositingListener::onOpacityChange;
    using IWindowCompositing::IWindowCompositingListener::onZOrderChange;
    using IWindowCompositing::IWindowCompositingListener::onLocationChange;
    void onVisibilityChange(std::string const&, bool const&, bool const&) override {}
    void onOpacityChange(std::string const&, unsigned int const&, unsigned int const&) override {}
    void onZOrderChange(std::string const&, unsigned int const&, unsigned int const&) override {}
    void onLocationChange(std::string const&, Rect const&, Rect const&) override {}
    void onFocusChange(std::string const&, bool const&, bool const&) override {}

    void addListener(IListener* listener) override;
    void removeListener(IListener* listener) override;

protected:
    virtual void _startup() = 0;
    virtual void _wakeUp(unsigned int reason) = 0;
    virtual void _powerStateChange(unsigned int state) = 0;
    virtual void _powerChangeRequest(unsigned int state) = 0;
    // Collects, as RUNAWAY, the windows that are silent past their delay
    // while still unreported or marked to die.
    virtual void _garbageCollection();
    virtual void _handleFocus(std::string const& uid, bool focus) = 0;
    virtual bool _isFocused(std::string const& uid) = 0;
    virtual bool _handleEvent(std::string const& uid, Event* event) = 0;
    virtual void _setVisibility(std::string const& uid, bool visible) = 0;
    virtual bool _getVisibility(std::string const& uid) = 0;
    virtual void _setOpacity(std::string const& uid, unsigned int opacity) = 0;
    virtual unsigned int _getOpacity(std::string const& uid) = 0;
    virtual void _setZOrder(std::string const& uid, unsigned int zOrder) = 0;
    virtual unsigned int _getZOrder(std::string const& uid) = 0;
    virtual std::string _launch(LaunchParameters const& parameters) = 0;
    virtual void _dispatchEvent(Event* event) = 0;
    virtual bool _setFocus(std::string const& uid, bool notifyOld) = 0;
    virtual unsigned int _terminateLaunchedAs(std::string const& type, std::string const& url,
                                              std::string const& reason) = 0;
    // Uids of the windows that have reported a state, in key order.
    virtual VectorObject<std::string> _getWindowList();
    virtual std::string _getFocus();
    virtual void _setWindowLayout(std::string const& name);
    virtual std::string _getWindowLayout();
    virtual LaunchParameters _getLaunchParameters(std::string const& uid);
    void _onApplicationListChange() override;
    int journalSession() const override { return static_cast<int>(sessionIndex); }
    // A window whose process ended goes as if it had reported TERMINATED.
    std::string processEndState() const override;
    // _launch, with who asked for it kept in launchRequester for the journal.
    std::string launchFor(LaunchParameters const& parameters, std::string const& requester);
    // _setFocus, with why kept in focusReason for the journal.
    bool focusBecause(std::string const& why, std::string const& uid, bool notifyOld);

    // The notices of the platform, queued to the manager's thread: the
    // start-up of the session, a finished animation (focuses its window),
    // a wake-up and the power transitions. Called by the listener operations.
    void queueStartUp();
    void queueAnimationFinished(std::string const& uid);
    void queueWakeUp(unsigned int reason);
    void queuePowerStateChange(unsigned int state);
    void queuePowerChangeRequest(unsigned int state);

    unsigned int const sessionIndex;
    GarbageCollectionPeriodicCommand garbageCollectionCommand;
    std::string focusedUid;
    std::vector<IWindowManager::IWindowManagerListener*> windowListeners;
    bool windowListenersChanged = false;
    // Who asked for the launch, why the focus moves and why windows are asked
    // to end: read by _launch, _setFocus and _terminate for the journal;
    // manager's thread.
    std::string launchRequester;
    std::string focusReason;
    std::string terminateReason;

private:
    // The operations behind the commands whose call differs from their name.
    void terminateFor(std::string const& uid, std::string const& reason);
    bool focusNotifyingOld(std::string const& uid);
    void focusAfterAnimation(std::string const& uid);
    void announceLayout(std::string const& ignoredName);
    std::string focusAsLayout();
};

} // namespace Velmora
