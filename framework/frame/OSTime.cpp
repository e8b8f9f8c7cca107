#include "frame/OSTime.h"
#include "frame/TestClock.h"
#include "frame/TickSleeper.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <thread>
#include <vector>

namespace Velmora {

namespace {

std::atomic<bool> testClockActive{false};
std::atomic<unsigned int> testTicks{0};

std::mutex sleepersMutex;
std::vector<TickSleeper*> sleepers; // guarded by sleepersMutex

void moveTestTicks(unsigned int milliseconds)
{
    testTicks.fetch_add(milliseconds, std::memory_order_acq_rel);
    std::lock_guard lock(sleepersMutex);
    for (TickSleeper* sleeper : sleepers)
        sleeper->onTicksMoved();
}

} // namespace

unsigned int OS_GetTicks()
{
    if (testClockActive.load(std::memory_order_acquire))
        return testTicks.load(std::memory_order_acquire);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned int>(static_cast<unsigned long long>(now.tv_sec) * 1000u + now.tv_nsec / 1000000);
}

unsigned int OS_GetTickRate() { return 1000; }

void OS_TaskDelayMsec(unsigned int milliseconds)
{
    if (testClockActive.load(std::memory_order_acquire)) {
        moveTestTicks(milliseconds);
        // Real processes that the delay waits for still need real time.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

bool OS_TestClockActive() { return testClockActive.load(std::memory_order_acquire); }

void OS_AddTickSleeper(TickSleeper* sleeper)
{
    std::lock_guard lock(sleepersMutex);
    sleepers.push_back(sleeper);
}

void OS_RemoveTickSleeper(TickSleeper* sleeper)
{
    std::lock_guard lock(sleepersMutex);
    std::erase(sleepers, sleeper);
}

TestClock::TestClock(unsigned int startTicks)
{
    testTicks.store(startTicks, std::memory_order_release);
    testClockActive.store(true, std::memory_order_release);
    moveTestTicks(0); // sleepers timed on the real clock look again
}

TestClock::~TestClock()
{
    testClockActive.store(false, std::memory_order_release);
    moveTestTicks(0);
}

void TestClock::advance(unsigned int milliseconds) { moveTestTicks(milliseconds); }

unsigned int TestClock::now() const { return testTicks.load(std::memory_order_acquire); }

} // namespace Velmora
