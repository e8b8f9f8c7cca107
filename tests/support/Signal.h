// A count that one thread raises and another waits on, with a generous
// deadline so that a lost wake-up fails a test. Any thread may call any member.
#pragma once

#include "Journal.h"

namespace VelmoraTest {

class Signal {
public:
    void raise() { raised.add(""); }
    // True once the count has reached `atLeast`; false after the deadline.
    bool waitFor(std::size_t atLeast, std::chrono::milliseconds deadline = std::chrono::seconds(30))
    {
        return raised.waitFor([&] { return raised.size() >= atLeast; }, deadline);
    }

private:
    Journal raised;
};

} // namespace VelmoraTest
