// An active object whose thread runs commands one at a time, in the order they
// were handed over, plus periodic commands.
//
// Threads: executeCommand, queueCommand and (un)registerPeriodicCommand may be
// called from any thread. executeCommand blocks the caller until the command
// has run; called on the processor's own thread it runs the command inline.
// init() and uninit() belong to the owner's thread.
//
// Ownership: executeCommand borrows a command (usually on the caller's stack);
// queueCommand(command, true) takes it over and deletes it after call().
// Periodic commands are borrowed; their owner unregisters them before they die.
#pragma once

#include "ActiveObject.h"
#include "ReturnCode.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace Velmora {

class CommandProcessor : public ActiveObject {
public:
    class Command {
    public:
        explicit Command(CommandProcessor* processor);
        virtual void call() = 0;
        virtual ~Command();
        virtual ReturnCode getStatus() const;
        virtual void setStatus(ReturnCode const& status);
        virtual bool getIsQueued() const;
        virtual void setIsQueued(bool const& queued);

    protected:
        CommandProcessor* processor; // not owned

    private:
        ReturnCode status = ReturnSuccess;
        bool isQueued = false;
    };

    // A command run every getPeriod() milliseconds on the processor's thread.
    class PeriodicCommand : public Command {
    public:
        PeriodicCommand(CommandProcessor* processor, unsigned int period);
        virtual unsigned int getPeriod() const;
        // Unregisters the command from its processor.
        virtual void remove();

    private:
        unsigned int period;
    };

    explicit CommandProcessor(std::string const& name);
    void init() override;
    ~CommandProcessor() override;
    virtual void moduleLoop();
    virtual void uninit();
    virtual ReturnCode executeCommand(Command* command);
    virtual void queueCommand(Command* command, bool takeOwnership);
    virtual void registerPeriodicCommand(PeriodicCommand* command);
    virtual void unregisterPeriodicCommand(PeriodicCommand* command);
    virtual void sendCommand(Command* command, bool takeOwnership);
    virtual void addPeriodicCommand(PeriodicCommand* command);
    virtual void removePeriodicCommand(PeriodicCommand* command);

    void thread() final;

    // executeCommand, then throws the command's status as Exception (logged for
    // `operation` of `module`) unless it is ReturnSuccess. The common body of
    // every public operation that waits.
    void executeOrThrow(Command& command, char const* module, int line, char const* operation);

protected:
    void requestStop() override;

private:
    // How long a waiting caller, and an idle loop, look for the other side
    // before they sleep. A caller spins at least SHORT_CALL_SPIN, to ride out
    // a moment of jitter, and up to LONGEST_SPIN when the commands of late
    // have ended within that (a write waiting for the disk, say).
    static constexpr auto SPIN_TIME = std::chrono::microseconds(50);
    static constexpr auto SHORT_CALL_SPIN = std::chrono::microseconds(200);
    static constexpr auto LONGEST_SPIN = std::chrono::milliseconds(2);

    // A caller waiting in executeCommand. It first spins (see callerSpinTime),
    // since most commands end sooner than a sleep and wake-up take; only then
    // does it sleep on its own condition. `done` is
    // written under the processor's mutex; once it is true and the caller is
    // not asleep, the caller may return and the completion be gone.
    struct Completion {
        std::atomic<bool> done{false};
        bool sleeping = false; // guarded by the processor's mutex
        std::condition_variable condition;
        void finish(); // called with the processor's mutex held
    };
    struct Entry {
        Command* command;
        bool owned;
        Completion* completion; // null for queued commands
    };
    struct Periodic {
        PeriodicCommand* command;
        unsigned int due;
    };

    static void run(Command* command);
    void runTimed(Command* command); // loop thread: run() and note how long it took
    std::chrono::nanoseconds callerSpinTime() const;
    bool runDuePeriodic(std::unique_lock<std::mutex>& lock);
    void runQueued(std::unique_lock<std::mutex>& lock);
    void waitForWork(std::unique_lock<std::mutex>& lock);
    bool spinForWork(std::unique_lock<std::mutex>& lock);
    void enqueue(Entry const& entry); // called with the mutex held
    void discardQueue(std::unique_lock<std::mutex>& lock);

    std::mutex mutex;
    std::condition_variable wakeUp;
    std::condition_variable periodicIdle;
    std::condition_variable started;
    std::deque<Entry> queue;
    std::vector<Periodic> periodics;
    PeriodicCommand* runningPeriodic = nullptr;
    bool running = false;
    bool loopStarted = false;
    bool idle = false; // the loop waits for work; guarded by mutex
    // Smoothed duration of the commands that had a waiting caller; written by the loop.
    std::atomic<std::int64_t> typicalRunNanos{0};
    bool callerWaited = false; // the last command run had a waiting caller; loop thread only
    std::atomic<bool> stopping{false}; // written under mutex; the loop also reads it without
    // Mirrors `!queue.empty() || stopping` for a loop that spins before it
    // sleeps; written under the mutex, read without it.
    std::atomic<bool> workPending{false};
};

} // namespace Velmora
