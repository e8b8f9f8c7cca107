#include "ApplicationManager.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/FunctionCommand.h"
#include "frame/ListenerList.h"
#include "frame/OSTime.h"
#include "serial/Serialization.h"

#include <cstdlib>
#include <cstring>
#include <future>
#include <system_error>
#include <utility>

namespace Velmora {

static char const MODULE[] = "ApplicationManager";

// ---- ApplicationMapEntry ---------------------------------------------------

unsigned int const ApplicationManager::ApplicationMapEntry::INITIAL_TIMEOUT_DELAY = OS_GetTickRate() * 10;
unsigned int const ApplicationManager::ApplicationMapEntry::RUNNING_TIMEOUT_DELAY = OS_GetTickRate() * 6;

ApplicationManager::ApplicationMapEntry::ApplicationMapEntry()
    : timeoutDelay(INITIAL_TIMEOUT_DELAY), initialTick(OS_GetTicks()), keepAliveTick(initialTick)
{
}

ApplicationManager::ApplicationMapEntry::ApplicationMapEntry(std::string const& uid, std::string const& name,
                                                             std::string const& parameters,
                                                             unsigned int timeoutDelay, APPClient* appClient)
    : uid(uid), name(name), parameters(parameters), appClient(appClient),
      lastReportedState(ILifecycleManagement::STATE_UNINITIALIZED), timeoutDelay(timeoutDelay),
      initialTick(OS_GetTicks()), keepAliveTick(initialTick)
{
}

ApplicationManager::ApplicationMapEntry::ApplicationMapEntry(std::string const& uid, std::string const& name,
                                                             std::string const& parameters,
                                                             unsigned int timeoutDelay, ZAVClient* zavClient)
    : uid(uid), name(name), parameters(parameters), zavClient(zavClient),
      lastReportedState(ILifecycleManagement::STATE_UNINITIALIZED), timeoutDelay(timeoutDelay),
      initialTick(OS_GetTicks()), keepAliveTick(initialTick)
{
}

ApplicationManager::ApplicationMapEntry::~ApplicationMapEntry() = default;

ILifecycleManagement* ApplicationManager::ApplicationMapEntry::getLifecycleManagementInterface() const
{
    if (appClient)
        return appClient;
    return zavClient;
}

IWindowCompositing* ApplicationManager::ApplicationMapEntry::getWindowCompositingInterface() const
{
    if (appClient)
        return appClient;
    return zavClient;
}

IWindowEvent* ApplicationManager::ApplicationMapEntry::getWindowEventInterface() const
{
    if (appClient)
        return appClient;
    return zavClient;
}

bool ApplicationManager::ApplicationMapEntry::getKeepAlive() const
{
    return timeoutDelay >= OS_GetTicks() - keepAliveTick;
}

void ApplicationManager::ApplicationMapEntry::resetKeepAlive() { keepAliveTick = OS_GetTicks(); }

void ApplicationManager::ApplicationMapEntry::setLastReportedState(std::string const& state)
{
    lastReportedState = state;
    if (state == ILifecycleManagement::STATE_RUNNING)
        timeoutDelay = RUNNING_TIMEOUT_DELAY;
}

void ApplicationManager::ApplicationMapEntry::setDeathMark(bool mark)
{
    deathMark = mark;
    resetKeepAlive();
}

// ---- Commands --------------------------------------------------------------

ApplicationManager::GetStateCommand::GetStateCommand(ApplicationManager* manager, std::string const& uid)
    : ReturningCommand(manager), uid(uid)
{
}
void ApplicationManager::GetStateCommand::call() { setReturn(getApplicationManager()->_getState(uid)); }

ApplicationManager::SetStateCommand::SetStateCommand(ApplicationManager* manager, std::string const& uid,
                                                     std::string const& requestedState)
    : ApplicationManagerCommand(manager), uid(uid), requestedState(requestedState)
{
}
void ApplicationManager::SetStateCommand::call() { getApplicationManager()->_setState(uid, requestedState); }

ApplicationManager::ActivateCommand::ActivateCommand(ApplicationManager* manager, std::string const& uid)
    : ApplicationManagerCommand(manager), uid(uid)
{
}
void ApplicationManager::ActivateCommand::call() { getApplicationManager()->_activate(uid); }

ApplicationManager::SuspendCommand::SuspendCommand(ApplicationManager* manager, std::string const& uid)
    : ApplicationManagerCommand(manager), uid(uid)
{
}
void ApplicationManager::SuspendCommand::call() { getApplicationManager()->_suspend(uid); }

ApplicationManager::TerminateCommand::TerminateCommand(ApplicationManager* manager, std::string const& uid)
    : ApplicationManagerCommand(manager), uid(uid)
{
}
void ApplicationManager::TerminateCommand::call() { getApplicationManager()->_terminate(uid); }

ApplicationManager::GetRuntimeStatisticsCommand::GetRuntimeStatisticsCommand(ApplicationManager* manager,
                                                                             std::string const& uid)
    : ReturningCommand(manager), uid(uid)
{
}
void ApplicationManager::GetRuntimeStatisticsCommand::call()
{
    setReturn(getApplicationManager()->_getRuntimeStatistics(uid));
}

ApplicationManager::OnKeepAliveCommand::OnKeepAliveCommand(ApplicationManager* manager, std::string const& uid,
                                                           std::string const& state)
    : ApplicationManagerCommand(manager), uid(uid), state(state)
{
}
void ApplicationManager::OnKeepAliveCommand::call() { getApplicationManager()->_onKeepAlive(uid, state); }

ApplicationManager::OnStateChangeCommand::OnStateChangeCommand(ApplicationManager* manager, std::string const& uid,
                                                               std::string const& oldState,
                                                               std::string const& newState)
    : ApplicationManagerCommand(manager), uid(uid), oldState(oldState), newState(newState)
{
}
void ApplicationManager::OnStateChangeCommand::call()
{
    getApplicationManager()->_onStateChange(uid, oldState, newState);
}

// ---- The manager -----------------------------------------------------------

ApplicationManager::ApplicationManager(ApplicationFactory* factory, std::string const& name, int argc, char** argv)
    : CommandProcessor(name), argc(argc), argv(argv), applicationFactory(factory),
      initialTimeoutDelay(ApplicationMapEntry::INITIAL_TIMEOUT_DELAY), applicationHostname("Host"),
      listenerMutex(name)
{
}

// The thread stops first: the table belongs to it while it runs.
ApplicationManager::~ApplicationManager()
{
    uninit();
    destroyAllApplications();
}

void ApplicationManager::destroyAllApplications()
{
    // Each reap on a thread of its own, should one be had.
    auto reapLater = [this](ApplicationMapEntry const& entry) {
        try {
            return std::async(std::launch::async, [this, &entry] { return reap(entry); });
        } catch (std::system_error const&) {
            return std::async(std::launch::deferred, [this, &entry] { return reap(entry); });
        }
    };
    std::vector<std::future<std::string>> causes;
    for (auto const& [uid, entry] : applications) {
        journalStopping(uid);
        releaseClient(entry);
        causes.push_back(reapLater(entry));
    }
    // In the table's order, which is the order of the reaps.
    for (std::future<std::string>& cause : causes)
        forget(applications.begin(), cause.get());
}

void ApplicationManager::init()
{
    // Before the thread: the thread's first command may start a process.
    processWatcher = std::make_unique<ProcessWatcher>([this](std::string const& uid, std::string const& pid) {
        queueCommand(new FunctionCommand(this, [this, uid, pid] { _onProcessEnd(uid, pid); }), true);
    });
    CommandProcessor::init();
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--velmora:gcInitDelay") == 0)
            initialTimeoutDelay = static_cast<unsigned int>(std::strtoul(argv[++i], nullptr, 10)) * OS_GetTickRate();
        else if (std::strcmp(argv[i], "--velmora:applicationHostname") == 0)
            applicationHostname = argv[++i];
    }
}

void ApplicationManager::uninit()
{
    CommandProcessor::uninit();
    // The thread that watches with it has stopped (or is this one, which stops next).
    processWatcher.reset();
}

std::string ApplicationManager::getState(std::string const& uid)
{
    GetStateCommand command(this, uid);
    executeOrThrow(command, MODULE, __LINE__, "getState");
    return command.takeReturn();
}

void ApplicationManager::setState(std::string const& uid, std::string const& requestedState)
{
    SetStateCommand command(this, uid, requestedState);
    executeOrThrow(command, MODULE, __LINE__, "setState");
}

void ApplicationManager::activate(std::string const& uid)
{
    ActivateCommand command(this, uid);
    executeOrThrow(command, MODULE, __LINE__, "activate");
}

void ApplicationManager::suspend(std::string const& uid)
{
    SuspendCommand command(this, uid);
    executeOrThrow(command, MODULE, __LINE__, "suspend");
}

void ApplicationManager::terminate(std::string const& uid)
{
    TerminateCommand command(this, uid);
    executeOrThrow(command, MODULE, __LINE__, "terminate");
}

ILifecycleManagement::RuntimeStatistics ApplicationManager::getRuntimeStatistics(std::string const& uid)
{
    GetRuntimeStatisticsCommand command(this, uid);
    executeOrThrow(command, MODULE, __LINE__, "getRuntimeStatistics");
    return command.takeReturn();
}

void ApplicationManager::onKeepAlive(std::string const& uid, std::string const& state)
{
    queueCommand(new OnKeepAliveCommand(this, uid, state), true);
}

void ApplicationManager::onStateChange(std::string const& uid, std::string const& oldState,
                                       std::string const& newState)
{
    queueCommand(new OnStateChangeCommand(this, uid, oldState, newState), true);
}

void ApplicationManager::onError(std::string const& uid, std::string const& errorType)
{
    fanOut(listenerMutex, listeners, listenersChanged,
           [&](IApplicationManager::IApplicationManagerListener* listener) { listener->onError(uid, errorType); });
}

void ApplicationManager::addListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::addListener(listeners, listener))
        listenersChanged = true;
}

void ApplicationManager::removeListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    if (Velmora::removeListener(listeners, listener))
        listenersChanged = true;
}

ApplicationManager::ApplicationMapEntry* ApplicationManager::_getApplicationEntry(std::string const& uid)
{
    auto found = applications.find(uid);
    return found == applications.end() ? nullptr : &found->second;
}

void ApplicationManager::_onApplicationListChange() {}

std::string ApplicationManager::_createApplication(std::string const& name, std::string const& parameters)
{
    std::string const reason = std::exchange(startReason, std::string());
    // Parsed before the process exists: a bad token must not leave a child running untracked.
    Deserializer deserializer(parameters);
    IApplicationManager::LaunchParameters launchParameters(deserializer);
    std::string processId = applicationFactory->createApplication(name, applicationHostname, parameters);
    if (processId.empty())
        return std::string();
    std::string uid = launchParameters.getAuthorizationToken().empty() ? processId
                                                                       : launchParameters.getAuthorizationToken();
    // A second launch under the same token replaces the entry; its process stays
    // alive, but the old client would be lost with the entry, so it goes now.
    if (ApplicationMapEntry* previous = _getApplicationEntry(uid)) {
        if (APPClient* stale = previous->getAPPClient())
            runLoggingExceptions(MODULE, __LINE__, "_createApplication", [stale] { delete stale; });
    }
    APPClient* client = APPClient::create(getClientType(), uid);
    applications[uid] = ApplicationMapEntry(uid, name, parameters, initialTimeoutDelay, client);
    applications[uid].setPid(processId);
    std::string const& url = launchParameters.getApplicationURL();
    journal({.uid = uid, .applicationType = launchParameters.getApplicationType(), .name = url.empty() ? name : url,
             .kind = LifecycleEntry::KIND_STARTED, .reason = reason.empty() ? "started" : reason,
             .cause = "pid " + processId + ", script " + name});
    client->addListener(static_cast<IApplication::IApplicationListener*>(this));
    client->init();
    if (processWatcher)
        processWatcher->watch(processId, uid);
    return uid;
}

void ApplicationManager::_destroyApplication(std::string const& uid)
{
    auto found = applications.find(uid);
    if (found == applications.end())
        return;
    releaseClient(found->second);
    forget(found, reap(found->second));
}

void ApplicationManager::releaseClient(ApplicationMapEntry const& entry)
{
    if (APPClient* client = entry.getAPPClient())
        runLoggingExceptions(MODULE, __LINE__, "_destroyApplication", [client] { delete client; });
}

std::string ApplicationManager::reap(ApplicationMapEntry const& entry)
{
    // An entry served by another server (a slave's window) has no process of ours to reap.
    if (entry.getPid().empty())
        return "served by another server";
    bool const forceful = entry.getLastReportedState() == ILifecycleManagement::STATE_RUNAWAY;
    std::string cause = "process " + entry.getPid() + (forceful ? " killed" : " reaped");
    runLoggingExceptions(MODULE, __LINE__, "_destroyApplication", [&] {
        std::string const end = applicationFactory->destroyApplication(entry.getPid(), forceful);
        if (!end.empty())
            cause += ": " + end;
    });
    return cause;
}

void ApplicationManager::forget(std::map<std::string, ApplicationMapEntry>::iterator found, std::string const& cause)
{
    ApplicationMapEntry const& entry = found->second;
    journal({.uid = entry.getUid(), .kind = LifecycleEntry::KIND_ENDED, .reason = entry.getLastReportedState(),
             .cause = cause});
    terminationsOwed.erase(entry.getUid());
    applications.erase(found);
}

void ApplicationManager::_onProcessEnd(std::string const& uid, std::string const& pid)
{
    // A notice that comes after its entry went, or whose pid a newer process
    // took meanwhile, is old news: only a process that has ended and not yet
    // been reaped is the entry's.
    ApplicationMapEntry* entry = _getApplicationEntry(uid);
    if (!entry || entry->getPid() != pid)
        return;
    std::string const end = ProcessWatcher::endOf(pid);
    if (end.empty())
        return;
    std::string const state = entry->getLastReportedState();
    journal({.uid = uid, .kind = LifecycleEntry::KIND_EXITED, .reason = end,
             .cause = "process " + pid + " ended in state " + state});
    stateReason = "its process ended";
    _onStateChange(uid, state, processEndState());
}

std::string ApplicationManager::processEndState() const { return ILifecycleManagement::STATE_CRASHED; }

void ApplicationManager::journalStopping(std::string const& uid)
{
    journal({.uid = uid, .kind = LifecycleEntry::KIND_TERMINATE, .reason = "the server stops"});
}

void ApplicationManager::journal(LifecycleEntry entry)
{
    LifecycleObserver* const observer = lifecycleObserver.load();
    if (!observer)
        return;
    entry.session = journalSession();
    observer->record(std::move(entry));
}

ILifecycleManagement* ApplicationManager::lifecycleOf(std::string const& uid, char const* operation)
{
    ApplicationMapEntry* entry = _getApplicationEntry(uid);
    if (!entry)
        throwException(MODULE, __LINE__, operation, ReturnInvalidParameter);
    ILifecycleManagement* client = entry->getLifecycleManagementInterface();
    if (!client)
        throwException(MODULE, __LINE__, operation, ReturnInvalidState);
    return client;
}

std::string ApplicationManager::_getState(std::string const& uid) { return lifecycleOf(uid, "_getState")->getState(uid); }

void ApplicationManager::_setState(std::string const& uid, std::string const& requestedState)
{
    lifecycleOf(uid, "_setState")->setState(uid, requestedState);
}

void ApplicationManager::_activate(std::string const& uid) { lifecycleOf(uid, "_activate")->activate(uid); }

void ApplicationManager::_suspend(std::string const& uid) { lifecycleOf(uid, "_suspend")->suspend(uid); }

ILifecycleManagement::RuntimeStatistics ApplicationManager::_getRuntimeStatistics(std::string const& uid)
{
    return lifecycleOf(uid, "_getRuntimeStatistics")->getRuntimeStatistics(uid);
}

void ApplicationManager::_terminate(std::string const& uid)
{
    ApplicationMapEntry* entry = _getApplicationEntry(uid);
    if (!entry)
        throwException(MODULE, __LINE__, "_terminate", ReturnInvalidParameter);
    journal({.uid = uid, .kind = LifecycleEntry::KIND_TERMINATE, .reason = "terminate requested",
             .cause = "IApplicationManager.terminate"});
    _terminate(entry);
}

void ApplicationManager::_terminate(ApplicationMapEntry* entry)
{
    if (!entry)
        throwException(MODULE, __LINE__, "_terminate", ReturnInvalidParameter);
    entry->setDeathMark(true);
    ILifecycleManagement* client = entry->getLifecycleManagementInterface();
    if (!client)
        throwException(MODULE, __LINE__, "_terminate", ReturnInvalidState);
    if (entry->getLastReportedState() == ILifecycleManagement::STATE_UNINITIALIZED)
        terminationsOwed.insert(entry->getUid()); // in case the program has not connected yet
    client->terminate(entry->getUid());
    terminationsOwed.erase(entry->getUid());
}

void ApplicationManager::deliverOwedTermination(std::string const& uid)
{
    if (terminationsOwed.erase(uid) == 0)
        return;
    ApplicationMapEntry* entry = _getApplicationEntry(uid);
    if (ILifecycleManagement* client = entry ? entry->getLifecycleManagementInterface() : nullptr)
        runLoggingExceptions(MODULE, __LINE__, "_onStateChange", [&] { client->terminate(uid); });
}

void ApplicationManager::_onKeepAlive(std::string const& uid, std::string const& state)
{
    ApplicationMapEntry* entry = _getApplicationEntry(uid);
    if (!entry)
        return;
    std::string lastState = entry->getLastReportedState();
    _onStateChange(uid, lastState, state);
}

void ApplicationManager::_onStateChange(std::string const& uid, std::string const& /*oldState*/,
                                        std::string const& newState)
{
    std::string const reason = std::exchange(stateReason, std::string());
    ApplicationMapEntry* entry = _getApplicationEntry(uid);
    if (!entry)
        return;
    bool lives = true;
    if (newState != entry->getLastReportedState()) {
        journal({.uid = uid, .kind = LifecycleEntry::KIND_STATE, .reason = reason.empty() ? "reported" : reason,
                 .cause = entry->getLastReportedState() + " -> " + newState});
        entry->setLastReportedState(newState);
        if (ILifecycleManagement::isApplicationTerminated(newState)) {
            _destroyApplication(uid);
            lives = false;
        }
        _onApplicationListChange();
    }
    if (lives) {
        // The list change may have touched the table: look the entry up again.
        if (ApplicationMapEntry* current = _getApplicationEntry(uid))
            current->resetKeepAlive();
        deliverOwedTermination(uid);
    }
}

} // namespace Velmora
