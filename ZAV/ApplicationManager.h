// The common base of WindowManager and ServiceManager: a command processor
// with a table of running programs. It starts a program through the factory,
// talks to it through its client, follows the states the program reports and
// destroys the entry when the program ends. A process that ends without
// saying so is noticed at once (a ProcessWatcher from init() to uninit()) and
// reported in processEndState(). It holds no policy.
//
// Threads: public operations come from any thread; those that want an answer
// wait for the manager's thread, onKeepAlive/onStateChange and the ends of
// processes are queued, and onError fans out on the caller's thread. The
// table and every `_` operation belong to the manager's thread. Listener
// lists are guarded by listenerMutex. The factory is not owned; clients are
// owned by the entries' manager.
#pragma once

#include "APPClient.h"
#include "ApplicationFactory.h"
#include "frame/CommandProcessor.h"
#include "interfaces/IApplicationManager.h"
#include "frame/Mutex.h"
#include "frame/ReturningCommand.h"
#include "LifecycleObserver.h"
#include "ProcessWatcher.h"
#include "ZAVClient.h"

#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Velmora {

class ApplicationManager : public CommandProcessor, public virtual IApplicationManager,
                           public virtual IApplication::IApplicationListener,
                           public virtual IApplicationManager::IApplicationManagerNotifier {
public:
    // One row of the table. Copied by value into the map; does not own its clients.
    class ApplicationMapEntry {
    public:
        static unsigned int const INITIAL_TIMEOUT_DELAY; // ten seconds in ticks
        static unsigned int const RUNNING_TIMEOUT_DELAY; // six seconds in ticks

        ApplicationMapEntry();
        ApplicationMapEntry(std::string const& uid, std::string const& name, std::string const& parameters,
                            unsigned int timeoutDelay, APPClient* appClient);
        ApplicationMapEntry(std::string const& uid, std::string const& name, std::string const& parameters,
                            unsigned int timeoutDelay, ZAVClient* zavClient);
        virtual ~ApplicationMapEntry();

        std::string const& getUid() const { return uid; }
        std::string const& getName() const { return name; }
        std::string const& getParameters() const { return parameters; }
        APPClient* getAPPClient() const { return appClient; }
        ZAVClient* getZAVClient() const { return zavClient; }
        unsigned int getInitialTick() const { return initialTick; }
        unsigned int getTimeoutDelay() const { return timeoutDelay; }
        std::string const& getLastReportedState() const { return lastReportedState; }
        bool getDeathMark() const { return deathMark; }
        std::string const& getPid() const { return pid; }
        void setPid(std::string const& value) { pid = value; }

        // The client to talk to: the APPClient, else the ZAVClient, else null.
        ILifecycleManagement* getLifecycleManagementInterface() const;
        IWindowCompositing* getWindowCompositingInterface() const;
        IWindowEvent* getWindowEventInterface() const;

        // True while the last sign of life is no older than timeoutDelay. This
        // is bookkeeping for whoever asks: no watchdog in the server reads it,
        // and an entry whose delay has passed is neither ended nor restarted.
        bool getKeepAlive() const;
        void resetKeepAlive();
        // RUNNING shortens the delay for good; no other state changes it.
        void setLastReportedState(std::string const& state);
        // Also restarts the delay, so that the keep-alive reads true again.
        void setDeathMark(bool mark);

    private:
        std::string uid;
        std::string name;
        std::string parameters;
        APPClient* appClient = nullptr;
        ZAVClient* zavClient = nullptr;
        std::string lastReportedState;
        unsigned int timeoutDelay;
        unsigned int initialTick;
        unsigned int keepAliveTick;
        bool deathMark = false;
        std::string pid;
    };

    class ApplicationManagerCommand : public CommandProcessor::Command {
    public:
        explicit ApplicationManagerCommand(ApplicationManager* manager) : Command(manager) {}
        ApplicationManager* getApplicationManager() const { return static_cast<ApplicationManager*>(processor); }
    };

    class GetStateCommand : public ReturningCommand<ApplicationManagerCommand, std::string> {
    public:
        GetStateCommand(ApplicationManager* manager, std::string const& uid);
        void call() override;

    private:
        std::string uid;
    };

    class SetStateCommand : public ApplicationManagerCommand {
    public:
        SetStateCommand(ApplicationManager* manager, std::string const& uid, std::string const& requestedState);
        void call() override;

    private:
        std::string uid;
        std::string requestedState;
    };

    // activate, suspend and terminate: one uid, no result.
    class ActivateCommand : public ApplicationManagerCommand {
    public:
        ActivateCommand(ApplicationManager* manager, std::string const& uid);
        void call() override;

    private:
        std::string uid;
    };

    class SuspendCommand : public ApplicationManagerCommand {
    public:
        SuspendCommand(ApplicationManager* manager, std::string const& uid);
        void call() override;

    private:
        std::string uid;
    };

    class TerminateCommand : public ApplicationManagerCommand {
    public:
        TerminateCommand(ApplicationManager* manager, std::string const& uid);
        void call() override;

    private:
        std::string uid;
    };

    class GetRuntimeStatisticsCommand : public ReturningCommand<ApplicationManagerCommand, RuntimeStatistics> {
    public:
        GetRuntimeStatisticsCommand(ApplicationManager* manager, std::string const& uid);
        void call() override;

    private:
        std::string uid;
    };

    class OnKeepAliveCommand : public ApplicationManagerCommand {
    public:
        OnKeepAliveCommand(ApplicationManager* manager, std::string const& uid, std::string const& state);
        void call() override;

    private:
        std::string uid;
        std::string state;
    };

    class OnStateChangeCommand : public ApplicationManagerCommand {
    public:
        OnStateChangeCommand(ApplicationManager* manager, std::string const& uid, std::string const& oldState,
                             std::string const& newState);
        void call() override;

    private:
        std::string uid;
        std::string oldState;
        std::string newState;
    };

    ApplicationManager(ApplicationFactory* factory, std::string const& name, int argc, char** argv);
    ~ApplicationManager() override;

    // Starts the process watch and the thread, then reads "--velmora:gcInitDelay
    // <seconds>" and "--velmora:applicationHostname <name>" from argv.
    void init() override;
    // Stops the thread, then the process watch.
    void uninit() override;

    std::string getState(std::string const& uid) override;
    void setState(std::string const& uid, std::string const& requestedState) override;
    void activate(std::string const& uid) override;
    void suspend(std::string const& uid) override;
    void terminate(std::string const& uid) override;
    RuntimeStatistics getRuntimeStatistics(std::string const& uid) override;
    void onKeepAlive(std::string const& uid, std::string const& state) override;
    void onStateChange(std::string const& uid, std::string const& oldState, std::string const& newState) override;
    void onError(std::string const& uid, std::string const& errorType) override;
    void addListener(IListener* listener) override;
    void removeListener(IListener* listener) override;
    virtual Client::Type getClientType() = 0;

    unsigned int getInitialTimeoutDelay() const { return initialTimeoutDelay; }
    // The journal that hears of every change, or null; not owned. Any thread:
    // the owner unsets it (or deletes the manager) before deleting the observer.
    void setLifecycleObserver(LifecycleObserver* observer) { lifecycleObserver.store(observer); }
    std::string const& getApplicationHostname() const { return applicationHostname; }

protected:
    // Valid on the manager's thread until the table changes; null when absent.
    virtual ApplicationMapEntry* _getApplicationEntry(std::string const& uid);
    virtual void _onApplicationListChange() = 0;
    // The uid of the new entry, or an empty string when the process didn't start.
    virtual std::string _createApplication(std::string const& name, std::string const& parameters);
    virtual void _destroyApplication(std::string const& uid);
    virtual std::string _getState(std::string const& uid);
    virtual void _setState(std::string const& uid, std::string const& requestedState);
    virtual void _activate(std::string const& uid);
    virtual void _suspend(std::string const& uid);
    virtual void _terminate(std::string const& uid);
    virtual void _terminate(ApplicationMapEntry* entry);
    virtual RuntimeStatistics _getRuntimeStatistics(std::string const& uid);
    virtual void _onKeepAlive(std::string const& uid, std::string const& state);
    virtual void _onStateChange(std::string const& uid, std::string const& oldState, std::string const& newState);
    // The process `pid` of `uid` has ended: when the entry still names it, the
    // exit is journalled and the entry goes into processEndState().
    void _onProcessEnd(std::string const& uid, std::string const& pid);
    // The state of a program whose process ended unreported: STATE_CRASHED.
    virtual std::string processEndState() const;

    // Tells the lifecycle observer of a change, stamped with this manager's session.
    void journal(LifecycleEntry entry);
    virtual int journalSession() const { return -1; }
    // The entry that says why `uid` ends with the manager.
    void journalStopping(std::string const& uid);

    // The entry's lifecycle client, or Exception(ReturnInvalidParameter) logged for `operation`.
    ILifecycleManagement* lifecycleOf(std::string const& uid, char const* operation);

    int argc;
    char** argv;
    ApplicationFactory* applicationFactory;
    unsigned int initialTimeoutDelay;
    std::string applicationHostname;
    std::map<std::string, ApplicationMapEntry> applications;
    Mutex listenerMutex;
    std::vector<IApplicationManager::IApplicationManagerListener*> listeners;
    bool listenersChanged = false;
    // Why the next _createApplication starts its program, and why the next
    // _onStateChange happens when no program reported it; set by the caller,
    // manager's thread.
    std::string startReason;
    std::string stateReason;

    // Ends every program of the table, at the manager's end, on the calling
    // thread; the thread of commands has stopped. The programs are reaped all
    // at once, so that those that don't end by themselves are killed after one
    // termination timeout in all, not one each.
    void destroyAllApplications();

private:
    // The three steps of _destroyApplication. The client goes first, and with
    // it the program's registration; reap waits for the entry's process to end
    // (a run-away is killed at once) and says how it ended: it touches nothing
    // but the entry and the factory, and may run on any thread; forget
    // journals the end and erases the entry.
    void releaseClient(ApplicationMapEntry const& entry);
    std::string reap(ApplicationMapEntry const& entry);
    void forget(std::map<std::string, ApplicationMapEntry>::iterator found, std::string const& cause);
    // Sends the termination that `uid` was asked for before its program had
    // connected, now that the program has reported.
    void deliverOwedTermination(std::string const& uid);
    std::unique_ptr<ProcessWatcher> processWatcher; // from init() to uninit()
    std::atomic<LifecycleObserver*> lifecycleObserver{nullptr};
    // Programs asked to end before they had connected: the request goes to
    // each at its first report, or the program would run on, keeping itself
    // alive with its reports. Manager's thread.
    std::set<std::string> terminationsOwed;
};

} // namespace Velmora
