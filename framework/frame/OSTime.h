// Time of the system: a free-running millisecond tick count of CLOCK_MONOTONIC.
// Intervals are kept in ticks and compared by unsigned subtraction, so a wrap of
// the counter is harmless. Callable from any thread. While a TestClock exists,
// ticks come from it instead (see TestClock.h).
#pragma once

namespace Velmora {

unsigned int OS_GetTicks();
unsigned int OS_GetTickRate();
void OS_TaskDelayMsec(unsigned int milliseconds);

// True while a TestClock replaces the tick source.
bool OS_TestClockActive();

} // namespace Velmora
