// Something that sleeps until the tick count reaches a value, such as a command
// processor waiting for its next periodic command. While a TestClock replaces
// the tick source, ticks move only when a test moves them: each registered
// sleeper is told then, so that it looks at the ticks again instead of polling.
//
// Threads: onTicksMoved() runs on the thread that moved the test clock, with
// the registry's lock held; it must only wake the sleeper, never call back
// into OS_AddTickSleeper or OS_RemoveTickSleeper.
#pragma once

namespace Velmora {

class TickSleeper {
public:
    virtual void onTicksMoved() = 0;

protected:
    ~TickSleeper() = default;
};

// Registration; any thread. A sleeper removes itself before it dies.
void OS_AddTickSleeper(TickSleeper* sleeper);
void OS_RemoveTickSleeper(TickSleeper* sleeper);

} // namespace Velmora
