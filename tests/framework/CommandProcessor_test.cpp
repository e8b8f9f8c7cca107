// The command processor's contracts: order, blocking, exceptions that cross
// threads, ownership of queued commands, periodic commands on the test clock,
// and a clean stop with work still pending.
#include "CommandProcessor.h"
#include "Exception.h"
#include "FunctionCommand.h"
#include "TestClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace Velmora;

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

TEST(Exception, TextsFollowTheCodeWithEveryUnknownCodeAGenericFailure)
{
    EXPECT_STREQ(Exception(ReturnSuccess).what(), "Success");
    EXPECT_STREQ(Exception(ReturnInvalidParameter).what(), "Invalid parameter");
    EXPECT_STREQ(Exception(ReturnInvalidState).what(), "Invalid state");
    EXPECT_STREQ(Exception(ReturnOutOfMemory).what(), "Out of memory");
    EXPECT_STREQ(Exception(ReturnNotSupported).what(), "Not supported");
    EXPECT_STREQ(Exception(ReturnTimedOut).what(), "Timed out");
    EXPECT_STREQ(Exception(static_cast<ReturnCode>(6)).what(), "Generic failure");
    EXPECT_STREQ(Exception(ReturnGenericFailure).what(), "Generic failure");
}

TEST(CommandProcessor, RunsCommandsFromManyThreadsOneAtATimeInArrivalOrderPerThread)
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
}

// The idle loop spins for a moment before it sleeps, and a sender wakes it only
// once it sleeps: work sent at every moment around that change must still run.
TEST(CommandProcessor, WorkSentAsTheLoopStopsSpinningAndFallsAsleepIsNeverLost)
{
    Processor processor;
    processor.init();
    std::atomic<int> runs{0};
    for (int gap = 0; gap < 400; ++gap) {
        std::this_thread::sleep_for(std::chrono::microseconds(gap / 2));
        processor.queueCommand(new LambdaCommand(&processor, [&runs] { ++runs; }), true);
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (runs.load() <= gap && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        ASSERT_EQ(runs.load(), gap + 1) << "a command sent after a pause of " << gap / 2 << " us never ran";
    }
}

TEST(CommandProcessor, ExecuteBlocksUntilTheCommandHasRunAndReturnsItsStatus)
{
    Processor processor;
    processor.init();
    bool done = false;
    LambdaCommand slow(&processor, [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        done = true;
    });
    EXPECT_EQ(processor.executeCommand(&slow), ReturnSuccess);
    EXPECT_TRUE(done);

    LambdaCommand failing(&processor, [] { throw Exception(ReturnTimedOut); });
    EXPECT_EQ(processor.executeCommand(&failing), ReturnTimedOut);

    LambdaCommand foreign(&processor, [] { throw std::runtime_error("boom"); });
    EXPECT_EQ(processor.executeCommand(&foreign), ReturnGenericFailure);
}

TEST(CommandProcessor, AFailureOnTheProcessorThreadIsThrownOnTheCallersThreadWithALogLine)
{
    Processor processor;
    processor.init();
    LambdaCommand failing(&processor, [] { throw Exception(ReturnInvalidParameter); });
    testing::internal::CaptureStderr();
    try {
        processor.executeOrThrow(failing, "TestModule", 1, "getState");
        FAIL() << "no exception";
    } catch (Exception const& e) {
        EXPECT_EQ(e.getCode(), ReturnInvalidParameter);
    }
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("getState(): throwing exception: Invalid parameter"), std::string::npos) << log;
}

TEST(CommandProcessor, ExecuteFromInsideACommandRunsInlineInsteadOfDeadlocking)
{
    Processor processor;
    processor.init();
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

TEST(CommandProcessor, QueuedCommandsAreDeletedAfterRunningAndPendingOnesAtStop)
{
    std::atomic<int> deletions{0};
    std::atomic<int> runs{0};
    {
        Processor processor;
        processor.init();
        for (int i = 0; i < 10; ++i)
            processor.queueCommand(new LambdaCommand(&processor, [&] { ++runs; }, &deletions), true);
        processor.sync();
        EXPECT_EQ(runs, 10);
        EXPECT_EQ(deletions, 10);

        // Block the thread, pile up work, then stop: nothing leaks, nothing hangs.
        std::atomic<bool> release{false};
        processor.queueCommand(new LambdaCommand(&processor, [&] {
                                   while (!release)
                                       std::this_thread::sleep_for(std::chrono::milliseconds(1));
                               }, &deletions),
                               true);
        for (int i = 0; i < 5; ++i)
            processor.queueCommand(new LambdaCommand(&processor, [&] { ++runs; }, &deletions), true);
        std::thread releaser([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            release = true;
        });
        processor.uninit();
        releaser.join();
    }
    EXPECT_EQ(deletions, 16);
}

TEST(CommandProcessor, AStoppedOrUnstartedProcessorRefusesWorkInsteadOfHanging)
{
    std::atomic<int> deletions{0};
    Processor processor;
    LambdaCommand command(&processor, [] {});
    EXPECT_EQ(processor.executeCommand(&command), ReturnInvalidState);
    processor.init();
    processor.uninit();
    EXPECT_EQ(processor.executeCommand(&command), ReturnInvalidState);
    processor.queueCommand(new LambdaCommand(&processor, [] {}, &deletions), true);
    EXPECT_EQ(deletions, 1);
}

TEST(CommandProcessor, PeriodicCommandsRunOnTheTestClockAndStopWhenUnregistered)
{
    TestClock clock(0xFFFFF000u); // close to the wrap of the tick counter
    Processor processor;
    processor.init();
    PeriodicCounter periodic(&processor, 2500);
    processor.registerPeriodicCommand(&periodic);

    clock.advance(2499);
    processor.sync();
    EXPECT_EQ(periodic.runs, 0);
    clock.advance(1);
    processor.sync();
    EXPECT_EQ(periodic.runs, 1);
    clock.advance(2500);
    processor.sync();
    EXPECT_EQ(periodic.runs, 2);

    periodic.remove();
    clock.advance(10000);
    processor.sync();
    EXPECT_EQ(periodic.runs, 2);
}

TEST(CommandProcessor, UnregisteringWaitsForARunningPeriodicCommand)
{
    TestClock clock;
    Processor processor;
    processor.init();
    std::atomic<bool> inside{false};
    std::atomic<bool> finished{false};
    auto periodic = std::make_unique<PeriodicCounter>(&processor, 100, [&] {
        inside = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        finished = true;
    });
    processor.registerPeriodicCommand(periodic.get());
    clock.advance(100);
    while (!inside)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    processor.unregisterPeriodicCommand(periodic.get());
    EXPECT_TRUE(finished);
    periodic.reset(); // safe now: the processor no longer touches it
    processor.sync();
}
