// Lets a test wait for a condition that the code under test changes on
// another thread, without polling: the test's listeners call notify() after
// each change they see, and waitFor() tests the condition at every
// notification. The bound is generous and only turns a hang into a failure.
//
// Threads: notify() from any thread; waitFor() from the test's thread. The
// condition runs with the signal's lock held: it may read the code under
// test, but must not wait for a listener.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace VelmoraTest {

class TestSignal {
public:
    void notify()
    {
        std::lock_guard lock(mutex);
        changed.notify_all();
    }

    template <class Condition>
    bool waitFor(Condition condition)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30), condition);
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
};

} // namespace VelmoraTest
