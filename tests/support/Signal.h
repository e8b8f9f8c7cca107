// A count that one thread raises and another waits on, with a generous
// deadline so that a lost wake-up fails a test. Any thread may call any member.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace VelmoraTest {

class Signal {
public:
    void raise()
    {
        std::lock_guard lock(mutex);
        ++count;
        changed.notify_all();
    }
    // True once the count has reached `atLeast`; false after the deadline.
    bool waitFor(int atLeast, std::chrono::seconds deadline = std::chrono::seconds(30))
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, deadline, [&] { return count >= atLeast; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
};

} // namespace VelmoraTest
