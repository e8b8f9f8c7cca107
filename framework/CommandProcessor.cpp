#include "CommandProcessor.h"

#include "DebugPrint.h"
#include "Exception.h"
#include "OSTime.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace Velmora {

static char const MODULE[] = "CommandProcessor";

// Spins until `ready()` or `time` has passed; true when ready. The pause
// keeps a spinning thread light on its core without giving it up, which on a
// virtual machine costs as much as the sleep the spin is there to avoid.
template <class Ready>
static bool spinUntil(Ready&& ready, std::chrono::nanoseconds time)
{
    auto const until = std::chrono::steady_clock::now() + time;
    while (!ready()) {
        if (std::chrono::steady_clock::now() >= until)
            return false;
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#else
        std::this_thread::yield();
#endif
    }
    return true;
}

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
        workPending.store(!queue.empty(), std::memory_order_relaxed);
        loopStarted = false;
    }
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
        if (!periodics.empty() && runDuePeriodic(lock))
            continue;
        if (queue.empty()) {
            waitForWork(lock);
            continue;
        }
        runQueued(lock);
    }
    discardQueue(lock);
}

// Takes everything queued so far in one go, so that a sender queueing fast
// rarely meets the loop at the mutex, and runs it in order. A stop asked
// meanwhile puts the rest back, for discardQueue.
void CommandProcessor::runQueued(std::unique_lock<std::mutex>& lock)
{
    std::deque<Entry> batch;
    batch.swap(queue);
    workPending.store(false, std::memory_order_relaxed);
    lock.unlock();
    for (auto entry = batch.begin(); entry != batch.end(); ++entry) {
        if (stopping.load(std::memory_order_relaxed)) {
            lock.lock();
            queue.insert(queue.begin(), entry, batch.end());
            return;
        }
        callerWaited = entry->completion != nullptr;
        if (!callerWaited) {
            run(entry->command);
            if (entry->owned)
                delete entry->command;
            continue;
        }
        runTimed(entry->command);
        lock.lock();
        entry->completion->finish();
        lock.unlock();
    }
    lock.lock();
}

void CommandProcessor::runTimed(Command* command)
{
    auto const start = std::chrono::steady_clock::now();
    run(command);
    std::int64_t const took = (std::chrono::steady_clock::now() - start).count();
    std::int64_t const typical = typicalRunNanos.load(std::memory_order_relaxed);
    typicalRunNanos.store(typical + (took - typical) / 8, std::memory_order_relaxed);
}

// A caller spins through its command when the commands of late ended within
// LONGEST_SPIN, as a sleep and wake-up cost more than the wait; a processor
// whose commands take longer is slept on after the short spin.
std::chrono::nanoseconds CommandProcessor::callerSpinTime() const
{
    std::chrono::nanoseconds const expected(2 * typicalRunNanos.load(std::memory_order_relaxed));
    if (expected > LONGEST_SPIN)
        return SPIN_TIME;
    return std::max<std::chrono::nanoseconds>(expected, SHORT_CALL_SPIN);
}

void CommandProcessor::Completion::finish()
{
    // Read before `done` is set: a caller that is not asleep may return at once.
    bool const wake = sleeping;
    done.store(true, std::memory_order_release);
    if (wake)
        condition.notify_one(); // the sleeper needs our mutex to return: still alive
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

bool CommandProcessor::runDuePeriodic(std::unique_lock<std::mutex>& lock)
{
    unsigned int now = OS_GetTicks();
    auto due = std::find_if(periodics.begin(), periodics.end(),
                            [now](Periodic const& p) { return static_cast<int>(now - p.due) >= 0; });
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

void CommandProcessor::waitForWork(std::unique_lock<std::mutex>& lock)
{
    if (spinForWork(lock))
        return;
    idle = true;
    if (periodics.empty()) {
        wakeUp.wait(lock);
        idle = false;
        return;
    }
    unsigned int now = OS_GetTicks();
    unsigned int wait = ~0u;
    for (Periodic const& p : periodics)
        wait = std::min(wait, p.due - now);
    // A test clock moves without telling anyone: look at it often.
    if (OS_TestClockActive())
        wait = std::min(wait, 5u);
    wakeUp.wait_for(lock, std::chrono::milliseconds(wait));
    idle = false;
}

// A caller that waited for its command often sends the next one at once:
// catching it while spinning spares both sides a sleep and a wake-up, which
// costs far more than the spin. Commands only queued don't make the loop spin,
// so that it does not fight their sender for the mutex. True when work came or
// stop was asked.
bool CommandProcessor::spinForWork(std::unique_lock<std::mutex>& lock)
{
    if (!callerWaited)
        return false;
    lock.unlock();
    spinUntil([this] { return workPending.load(std::memory_order_acquire); }, SPIN_TIME);
    lock.lock();
    return !queue.empty() || stopping;
}

void CommandProcessor::discardQueue(std::unique_lock<std::mutex>& lock)
{
    while (!queue.empty()) {
        Entry entry = queue.front();
        queue.pop_front();
        if (entry.completion) {
            entry.command->setStatus(ReturnInvalidState);
            entry.completion->finish();
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
    workPending.store(true, std::memory_order_release);
    wakeUp.notify_all();
}

void CommandProcessor::uninit()
{
    if (isOwnThread()) {
        requestStop();
        return;
    }
    ActiveObject::exit();
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
    Completion completion;
    std::unique_lock lock(mutex);
    if (!running || stopping) {
        VLOG(DebugLevelError, "executeCommand(): processor %s is not running\n", getName().c_str());
        return ReturnInvalidState;
    }
    enqueue({command, false, &completion});
    lock.unlock();
    if (!spinUntil([&completion] { return completion.done.load(std::memory_order_acquire); }, callerSpinTime())) {
        lock.lock();
        completion.sleeping = true;
        completion.condition.wait(lock, [&completion] { return completion.done.load(std::memory_order_relaxed); });
    }
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
}

void CommandProcessor::enqueue(Entry const& entry)
{
    queue.push_back(entry);
    // Written only when it changes: the spinning loop reads this line all the time.
    if (!workPending.load(std::memory_order_relaxed))
        workPending.store(true, std::memory_order_release);
    // A busy or spinning loop looks at the queue again before it sleeps: no
    // wake-up needed.
    if (idle)
        wakeUp.notify_one();
}

void CommandProcessor::registerPeriodicCommand(PeriodicCommand* command)
{
    std::lock_guard lock(mutex);
    periodics.push_back({command, OS_GetTicks() + command->getPeriod()});
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
