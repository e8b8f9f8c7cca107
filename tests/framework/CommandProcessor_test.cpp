// The command processor's contracts: order, blocking, exceptions that cross
// threads, ownership of queued commands, periodic commands on the test clock,
// and a clean stop with work still pending.
#include "frame/CommandProcessor.h"
#include "frame/Exception.h"
#include "frame/FunctionCommand.h"
#include "ReturnCodeOf.h"
#include "Signal.h"
#include "frame/TestClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace Velmora;
using VelmoraTest::Signal;

namespace {

// A function command that counts its deletions.
class LambdaCommand : public FunctionCommand {
public:
    LambdaCommand(CommandProcessor* processor, std::function<void()> body, std::atomic<int>* deletions = nullptr)
        : FunctionCommand(processor, std::move(body)), deletions(deletions)
    {
    }
    ~LambdaCommand() override
    {
        if (deletions)
            ++*deletions;
    }

private:
    std::atomic<int>* deletions;
};

class PeriodicCounter : public CommandProcessor::PeriodicCommand {
public:
    PeriodicCounter(CommandProcessor* processor, unsigned int period, std::function<void()> body = {})
        : PeriodicCommand(processor, period), body(std::move(body))
    {
    }
    void call() override
    {
        ++runs;
        if (body)
            body();
    }
    std::atomic<int> runs{0};

private:
    std::function<void()> body;
};

struct Processor : CommandProcessor {
    Processor() : CommandProcessor("TestProcessor") {}
    ~Processor() override { uninit(); }
    void sync()
    {
        LambdaCommand noop(this, [] {});
        executeCommand(&noop);
    }
};

} // namespace

// Commands from many threads run one at a time, in arrival order per thread.
// Then senders on many threads meet the loop at every moment of its going to
// sleep; each waits for its own command, so a lost wake-up hangs one of them.
TEST(CommandProcessor, ManyThreadsRunOneAtATimeInArrivalOrderAndNoWakeUpIsLost)
{
    Processor processor;
    processor.init();
    std::vector<std::pair<int, int>> seen; // touched only on the processor's thread
    std::atomic<int> concurrent{0};
    std::atomic<bool> overlapped{false};
    auto work = [&](int thread) {
        for (int i = 0; i < 200; ++i) {
            auto body = [&, thread, i] {
                if (++concurrent > 1)
                    overlapped = true;
                seen.emplace_back(thread, i);
                --concurrent;
            };
            if (i % 2)
                processor.queueCommand(new LambdaCommand(&processor, body), true);
            else {
                LambdaCommand command(&processor, body);
                EXPECT_EQ(processor.executeCommand(&command), ReturnSuccess);
            }
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(work, t);
    for (auto& t : threads)
        t.join();
    processor.sync();
    EXPECT_FALSE(overlapped);
    ASSERT_EQ(seen.size(), 800u);
    std::vector<int> next(4, 0);
    for (auto [thread, i] : seen)
        EXPECT_EQ(i, next[thread]++) << "thread " << thread;

    std::atomic<int> runs{0};
    threads.clear();
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) {
                auto signal = std::make_shared<Signal>();
                processor.queueCommand(new LambdaCommand(&processor, [&runs, signal] {
                                           ++runs;
                                           signal->raise();
                                       }),
                                       true);
                ASSERT_TRUE(signal->waitFor(1)) << "a queued command never ran";
                LambdaCommand command(&processor, [&runs] { ++runs; });
                processor.executeCommand(&command);
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(runs, 8000);
}

// The caller sleeps while the command waits on a third thread, and wakes only
// when the command has ended; a failure on the processor's thread comes back
// as the command's status or, through executeOrThrow, as its exception.
TEST(CommandProcessor, ExecuteBlocksUntilTheCommandHasRunAndReturnsItsStatusOrThrows)
{
    Processor processor;
    processor.init();
    Signal started, released;
    std::atomic<bool> done{false};
    std::thread releaser([&] {
        started.waitFor(1);
        released.raise();
    });
    LambdaCommand slow(&processor, [&] {
        started.raise();
        released.waitFor(1);
        done = true;
    });
    EXPECT_EQ(processor.executeCommand(&slow), ReturnSuccess);
    EXPECT_TRUE(done);
    releaser.join();

    LambdaCommand failing(&processor, [] { throw Exception(ReturnTimedOut); });
    EXPECT_EQ(processor.executeCommand(&failing), ReturnTimedOut);

    LambdaCommand foreign(&processor, [] { throw std::runtime_error("boom"); });
    EXPECT_EQ(processor.executeCommand(&foreign), ReturnGenericFailure);
    EXPECT_EQ(returnCodeOf([&] { processor.executeOrThrow(failing, "TestModule", 1, "getState"); }), ReturnTimedOut);

    // A command that executes another runs it inline instead of deadlocking.
    std::vector<int> order;
    LambdaCommand outer(&processor, [&] {
        order.push_back(1);
        LambdaCommand inner(&processor, [&] { order.push_back(2); });
        processor.executeCommand(&inner);
        order.push_back(3);
    });
    processor.executeCommand(&outer);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

// Queued commands are deleted once run, and pending ones at the stop; an
// unstarted or stopped processor refuses work instead of hanging, and deletes
// what is queued to it at once.
TEST(CommandProcessor, QueuedCommandsAreDeletedOnceAndAStoppedProcessorRefusesWork)
{
    std::atomic<int> deletions{0};
    std::atomic<int> runs{0};
    Processor processor;
    LambdaCommand refused(&processor, [&] { ++runs; });
    EXPECT_EQ(processor.executeCommand(&refused), ReturnInvalidState);
    processor.init();
    for (int i = 0; i < 10; ++i)
        processor.queueCommand(new LambdaCommand(&processor, [&] { ++runs; }, &deletions), true);
    processor.sync();
    EXPECT_EQ(runs, 10);
    EXPECT_EQ(deletions, 10);

    // Block the thread, pile up work, then stop: nothing leaks, nothing hangs.
    Signal blocked, released;
    processor.queueCommand(new LambdaCommand(&processor, [&] {
                               blocked.raise();
                               released.waitFor(1);
                           }, &deletions),
                           true);
    for (int i = 0; i < 5; ++i)
        processor.queueCommand(new LambdaCommand(&processor, [&] { ++runs; }, &deletions), true);
    ASSERT_TRUE(blocked.waitFor(1));
    std::thread releaser([&] { released.raise(); });
    processor.uninit();
    releaser.join();
    EXPECT_EQ(deletions, 16);

    EXPECT_EQ(processor.executeCommand(&refused), ReturnInvalidState);
    processor.queueCommand(new LambdaCommand(&processor, [&] { ++runs; }, &deletions), true);
    EXPECT_EQ(deletions, 17);
    EXPECT_LE(runs, 15);
}

// Periodic commands run on the test clock, across the wrap of the tick
// counter, and stop when unregistered; unregistering waits for a run in
// progress. Moving the clock wakes the sleeping loop, with no sync command and
// no polling: moved one tick at a time from another thread, some moves land
// between the loop's look at the ticks and its sleep.
TEST(CommandProcessor, PeriodicCommandsRunAsSoonAsTheTestClockReachesThemAndStopWhenUnregistered)
{
    TestClock clock(0xFFFFF000u); // close to the wrap of the tick counter
    Processor processor;
    processor.init();
    PeriodicCounter periodic(&processor, 2500);
    processor.registerPeriodicCommand(&periodic);
    for (auto const& [ticks, runs] : {std::pair{2499u, 0}, {1u, 1}, {2500u, 2}}) {
        clock.advance(ticks);
        processor.sync();
        EXPECT_EQ(periodic.runs, runs) << ticks;
    }
    periodic.remove();
    clock.advance(10000);
    processor.sync();
    EXPECT_EQ(periodic.runs, 2);

    Signal ran;
    PeriodicCounter everyTick(&processor, 1, [&ran] { ran.raise(); });
    processor.registerPeriodicCommand(&everyTick);
    for (int tick = 1; tick <= 300; ++tick) {
        clock.advance(1);
        ASSERT_TRUE(ran.waitFor(tick)) << "the loop slept through tick " << tick;
    }
    clock.advance(60000); // a jump over many periods runs the command again
    EXPECT_TRUE(ran.waitFor(301));
    everyTick.remove();

    // Unregistering waits for a run in progress.
    Signal inside, released;
    std::atomic<bool> finished{false};
    auto blocking = std::make_unique<PeriodicCounter>(&processor, 100, [&] {
        inside.raise();
        released.waitFor(1);
        finished = true;
    });
    processor.registerPeriodicCommand(blocking.get());
    clock.advance(100);
    ASSERT_TRUE(inside.waitFor(1));
    bool finishedWhenUnregistered = false;
    std::future<void> unregistered = std::async(std::launch::async, [&] {
        processor.unregisterPeriodicCommand(blocking.get());
        finishedWhenUnregistered = finished;
    });
    // An unregistering that does not wait shows here; one that waits lets this pass by.
    EXPECT_EQ(std::future_status::timeout, unregistered.wait_for(std::chrono::milliseconds(200)));
    released.raise();
    unregistered.get();
    EXPECT_TRUE(finishedWhenUnregistered);
    blocking.reset(); // safe now: the processor no longer touches it
    processor.sync();
}
