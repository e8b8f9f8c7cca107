#include "OSTime.h"
#include "TestClock.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

namespace Velmora {

namespace {

std::atomic<bool> testClockActive{false};
std::atomic<unsigned int> testTicks{0};

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
        testTicks.fetch_add(milliseconds, std::memory_order_acq_rel);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

bool OS_TestClockActive() { return testClockActive.load(std::memory_order_acquire); }

TestClock::TestClock(unsigned int startTicks)
{
    testTicks.store(startTicks, std::memory_order_release);
    testClockActive.store(true, std::memory_order_release);
}

TestClock::~TestClock() { testClockActive.store(false, std::memory_order_release); }

void TestClock::advance(unsigned int milliseconds) { testTicks.fetch_add(milliseconds, std::memory_order_acq_rel); }

unsigned int TestClock::now() const { return testTicks.load(std::memory_order_acquire); }

} // namespace Velmora
