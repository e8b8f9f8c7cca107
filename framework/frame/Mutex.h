// A named, non-recursive mutex with a scoped guard. The name is for diagnostics;
// the second constructor argument is accepted for compatibility and ignored.
// lock() and unlock() must be called on the same thread.
#pragma once

#include <mutex>
#include <string>

namespace Velmora {

class Mutex {
public:
    explicit Mutex(std::string const& name, unsigned short flags = 0);
    Mutex(Mutex const&) = delete;
    Mutex& operator=(Mutex const&) = delete;

    void lock();
    void unlock();
    std::string const& getName() const;

    // Locks in the constructor, unlocks in the destructor.
    class ScopedLock {
    public:
        explicit ScopedLock(Mutex* mutex);
        ~ScopedLock();
        ScopedLock(ScopedLock const&) = delete;
        ScopedLock& operator=(ScopedLock const&) = delete;

    private:
        Mutex* mutex;
    };

private:
    std::string name;
    std::mutex mutex;
};

} // namespace Velmora
