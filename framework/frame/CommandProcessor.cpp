#include "frame/CommandProcessor.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/OSTime.h"

#include <algorithm>
#include <chrono>
#include <limits>

namespace Velmora {

namespace {

// Gives the lock back, then wakes the loop if it slept when the command went
// in: woken after the unlock, the loop finds the mutex free instead of
// sleeping again on it at once. A busy loop looks at the queue before it
// sleeps again: no wake-up needed.
void handOver(std::unique_lock<std::mutex>& lock, bool idle, std::condition_variable& wakeUp)
{
    lock.unlock();
    if (idle)
        wakeUp.notify_one();
}

} // namespace

static char const MODULE[] = "CommandProcessor";

CommandProcessor::Command::Command(CommandProcessor* processor) : processor(processor) {}
CommandProcessor::Command::~Command() = default;
ReturnCode CommandProcessor::Command::getStatus() const { return status; }
void CommandProcessor::Command::setStatus(ReturnCode const& value) { status = value; }
bool CommandProcessor::Command::getIsQueued() const { return isQueued; }
void CommandProcessor::Command::setIsQueued(bool const& queued) { isQueued = queued; }

CommandProcessor::PeriodicCommand::PeriodicCommand(CommandProcessor* processor, unsigned int period)
    : Command(processor), period(period)
{
}
unsigned int CommandProcessor::PeriodicCommand::getPeriod() const { return period; }
void CommandProcessor::PeriodicCommand::remove() { processor->unregisterPeriodicCommand(this); }

CommandProcessor::CommandProcessor(std::string const& name) : ActiveObject(name) {}

CommandProcessor::~CommandProcessor() { uninit(); }

void CommandProcessor::init()
{
    {
        std::lock_guard lock(mutex);
        if (running)
            return;
        running = true;
        stopping = false;
        loopStarted = false;
    }
    OS_AddTickSleeper(this);
    ActiveObject::init();
    // Wait until the loop runs: the thread's virtual dispatch then happens
    // before init() returns, and so before any destructor of the owner.
    std::unique_lock lock(mutex);
    started.wait(lock, [this] { return loopStarted; });
}

void CommandProcessor::thread() { moduleLoop(); }

void CommandProcessor::moduleLoop()
{
    std::unique_lock lock(mutex);
    loopStarted = true;
    started.notify_all();
    while (!stopping) {
        if (runDuePeriodic(lock))
            continue;
        if (queue.empty())
            waitForWork(lock);
        else
            runNext(lock);
    }
    discardQueue(lock);
}

void CommandProcessor::runNext(std::unique_lock<std::mutex>& lock)
{
    Entry const entry = queue.front();
    queue.pop_front();
    lock.unlock();
    run(entry.command);
    if (entry.caller)
        entry.caller->finish();
    else if (entry.owned)
        delete entry.command;
    lock.lock();
}

// A futex wake: the caller may return as soon as `done` is stored, and the
// wake reads nothing of the Caller's memory, only its address. A wake that
// finds the address reused is spurious, and every waiter looks again.
void CommandProcessor::Caller::finish()
{
    done.store(1, std::memory_order_release);
    done.notify_one();
}

void CommandProcessor::Caller::wait()
{
    while (done.load(std::memory_order_acquire) == 0)
        done.wait(0, std::memory_order_acquire);
}

void CommandProcessor::run(Command* command)
{
    try {
        command->call();
        command->setStatus(ReturnSuccess);
    } catch (Exception const& e) {
        command->setStatus(e.getCode());
    } catch (std::exception const& e) {
        VLOG(DebugLevelError, "%s(): caught exception: %s\n", "call", e.what());
        command->setStatus(ReturnGenericFailure);
    } catch (...) {
        VLOG(DebugLevelError, "%s(): caught unknown exception\n", "call");
        command->setStatus(ReturnGenericFailure);
    }
}

// Due means the tick count has reached the command's time, by a signed look at
// the unsigned difference, so a wrap of the counter is harmless.
static bool isDue(unsigned int due, unsigned int now) { return static_cast<int>(now - due) >= 0; }

bool CommandProcessor::runDuePeriodic(std::unique_lock<std::mutex>& lock)
{
    if (periodics.empty())
        return false; // spares the clock a look on every command
    unsigned int const now = OS_GetTicks();
    auto due = std::find_if(periodics.begin(), periodics.end(), [now](Periodic const& p) { return isDue(p.due, now); });
    if (due == periodics.end())
        return false;
    PeriodicCommand* command = due->command;
    due->due = now + command->getPeriod();
    runningPeriodic = command;
    lock.unlock();
    run(command);
    lock.lock();
    runningPeriodic = nullptr;
    periodicIdle.notify_all();
    return true;
}

// Sleeps until work is queued, a stop is asked, the clock moves (test clock)
// or the next periodic command is due. The ticks are read anew, so a command
// that fell due since runDuePeriodic looked makes the wait end at once.
void CommandProcessor::waitForWork(std::unique_lock<std::mutex>& lock)
{
    idle = true;
    if (periodics.empty() || OS_TestClockActive()) {
        wakeUp.wait(lock);
    } else {
        unsigned int const now = OS_GetTicks();
        int wait = std::numeric_limits<int>::max();
        for (Periodic const& p : periodics)
            wait = std::min(wait, static_cast<int>(p.due - now));
        if (wait > 0)
            wakeUp.wait_for(lock, std::chrono::milliseconds(wait));
    }
    idle = false;
}

void CommandProcessor::onTicksMoved()
{
    std::lock_guard lock(mutex);
    if (idle)
        wakeUp.notify_one();
}

void CommandProcessor::discardQueue(std::unique_lock<std::mutex>& lock)
{
    while (!queue.empty()) {
        Entry entry = queue.front();
        queue.pop_front();
        if (entry.caller) {
            entry.command->setStatus(ReturnInvalidState);
            entry.caller->finish();
        } else if (entry.owned) {
            lock.unlock();
            delete entry.command;
            lock.lock();
        }
    }
}

void CommandProcessor::requestStop()
{
    std::lock_guard lock(mutex);
    stopping = true;
    wakeUp.notify_all();
}

void CommandProcessor::uninit()
{
    if (isOwnThread()) {
        requestStop();
        return;
    }
    ActiveObject::exit();
    OS_RemoveTickSleeper(this);
    std::unique_lock lock(mutex);
    running = false;
    discardQueue(lock);
}

ReturnCode CommandProcessor::executeCommand(Command* command)
{
    if (isOwnThread()) {
        run(command);
        return command->getStatus();
    }
    Caller caller;
    std::unique_lock lock(mutex);
    if (!running || stopping) {
        VLOG(DebugLevelError, "executeCommand(): processor %s is not running\n", getName().c_str());
        return ReturnInvalidState;
    }
    enqueue({command, false, &caller});
    handOver(lock, idle, wakeUp);
    caller.wait();
    return command->getStatus();
}

void CommandProcessor::executeOrThrow(Command& command, char const* module, int line, char const* operation)
{
    ReturnCode status = executeCommand(&command);
    if (status != ReturnSuccess)
        throwException(module, line, operation, status);
}

void CommandProcessor::queueCommand(Command* command, bool takeOwnership)
{
    command->setIsQueued(true);
    std::unique_lock lock(mutex);
    if (stopping) {
        lock.unlock();
        VLOG(DebugLevelError, "queueCommand(): processor %s has stopped, command dropped\n", getName().c_str());
        if (takeOwnership)
            delete command;
        return;
    }
    enqueue({command, takeOwnership, nullptr});
    handOver(lock, idle, wakeUp);
}

void CommandProcessor::enqueue(Entry const& entry) { queue.push_back(entry); }

void CommandProcessor::registerPeriodicCommand(PeriodicCommand* command)
{
    std::lock_guard lock(mutex);
    periodics.push_back({command, OS_GetTicks() + command->getPeriod()});
    if (idle)
        wakeUp.notify_one();
}

void CommandProcessor::unregisterPeriodicCommand(PeriodicCommand* command)
{
    std::unique_lock lock(mutex);
    std::erase_if(periodics, [command](Periodic const& p) { return p.command == command; });
    if (!isOwnThread())
        periodicIdle.wait(lock, [this, command] { return runningPeriodic != command; });
}

void CommandProcessor::sendCommand(Command* command, bool takeOwnership) { queueCommand(command, takeOwnership); }

void CommandProcessor::addPeriodicCommand(PeriodicCommand* command) { registerPeriodicCommand(command); }

void CommandProcessor::removePeriodicCommand(PeriodicCommand* command) { unregisterPeriodicCommand(command); }

} // namespace Velmora
