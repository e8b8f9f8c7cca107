// What the code under test told a test, one line each in arrival order, and a
// wait for a condition on it that wakes at every new line, with a generous bound.
// Threads: any thread may add and read; waitFor() from the test's thread. The
// condition runs with the lock free, so it may read the journal.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace VelmoraTest {

class Journal {
public:
    void add(std::string line)
    {
        std::lock_guard lock(mutex);
        lines.push_back(std::move(line));
        ++version;
        changed.notify_all();
    }
    // Wakes waitFor() to test its condition again, adding no line.
    void touch()
    {
        std::lock_guard lock(mutex);
        ++version;
        changed.notify_all();
    }
    std::vector<std::string> all() const
    {
        std::lock_guard lock(mutex);
        return lines;
    }
    // All lines so far, leaving the journal empty.
    std::vector<std::string> take()
    {
        std::lock_guard lock(mutex);
        return std::exchange(lines, {});
    }
    std::size_t size() const { return all().size(); }
    std::size_t count(std::string const& line) const
    {
        std::lock_guard lock(mutex);
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }
    bool has(std::string const& line) const { return count(line) > 0; }

    // True once `condition` holds, tested now and after every new line.
    template <class Condition>
    bool waitFor(Condition condition, std::chrono::milliseconds bound = std::chrono::seconds(30))
    {
        auto const deadline = std::chrono::steady_clock::now() + bound;
        std::unique_lock lock(mutex);
        for (;;) {
            unsigned long const seen = version;
            lock.unlock();
            if (condition())
                return true;
            lock.lock();
            if (!changed.wait_until(lock, deadline, [&] { return version != seen; })) {
                lock.unlock();
                return condition();
            }
        }
    }
    bool waitForSize(std::size_t count) { return waitFor([&] { return size() >= count; }); }

private:
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
    unsigned long version = 0;
};

} // namespace VelmoraTest
