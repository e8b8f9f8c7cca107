// A tick source for tests: while an instance lives, OS_GetTicks() answers its
// count, which moves only by advance() and by OS_TaskDelayMsec() (which then
// advances the clock by the delay and yields for a moment of real time, so
// real processes can still make progress). Every move wakes the registered
// TickSleepers, so a processor waiting for a periodic command runs it as soon
// as the clock reaches it. Delays of seconds are tested without sleeping. One
// instance at a time; advance() may be called from any thread.
#pragma once

namespace Velmora {

class TestClock {
public:
    explicit TestClock(unsigned int startTicks = 1000);
    ~TestClock();
    TestClock(TestClock const&) = delete;
    TestClock& operator=(TestClock const&) = delete;

    void advance(unsigned int milliseconds);
    unsigned int now() const;
};

} // namespace Velmora
