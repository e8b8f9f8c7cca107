// An active object whose thread runs commands one at a time, in the order they
// were handed over (a FIFO queue), plus periodic commands.
//
// Threads: executeCommand, queueCommand and (un)registerPeriodicCommand may be
// called from any thread. executeCommand blocks the caller, asleep on a
// futex, until the command has run; called on the processor's
// own thread it runs the command inline. The loop sleeps until work arrives,
// a periodic command is due or a stop is asked; nothing spins or polls. While
// a TestClock is active the loop sleeps until the clock moves. init() and
// uninit() belong to the owner's thread.
//
// Ownership: executeCommand borrows a command (usually on the caller's stack);
// queueCommand(command, true) takes it over and deletes it after call().
// Periodic commands are borrowed; their owner unregisters them before they die.
#pragma once

#include "frame/ActiveObject.h"
#include "frame/ReturnCode.h"
#include "frame/TickSleeper.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace Velmora {

class CommandProcessor : public ActiveObject, private TickSleeper {
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
    // A caller asleep in executeCommand until its command has run, on a
    // futex of its own, so that neither side needs the processor's mutex
    // for the hand-back.
    struct Caller {
        std::atomic<int> done{0}; // an int: the futex word itself, with no proxy
        void finish(); // the last touch of the Caller by the processor
        void wait();
    };
    struct Entry {
        Command* command;
        bool owned;
        Caller* caller; // null for queued commands
    };
    struct Periodic {
        PeriodicCommand* command;
        unsigned int due;
    };

    static void run(Command* command);
    bool runDuePeriodic(std::unique_lock<std::mutex>& lock);
    void runNext(std::unique_lock<std::mutex>& lock);
    void waitForWork(std::unique_lock<std::mutex>& lock);
    void enqueue(Entry const& entry); // called with the mutex held
    void discardQueue(std::unique_lock<std::mutex>& lock);
    void onTicksMoved() override;

    std::mutex mutex;
    std::condition_variable wakeUp; // the loop sleeps here while idle
    std::condition_variable periodicIdle;
    std::condition_variable started;
    std::deque<Entry> queue;
    std::vector<Periodic> periodics;
    PeriodicCommand* runningPeriodic = nullptr;
    bool running = false;
    bool loopStarted = false;
    bool stopping = false;
    bool idle = false; // the loop sleeps on wakeUp; senders wake it only then
};

} // namespace Velmora
