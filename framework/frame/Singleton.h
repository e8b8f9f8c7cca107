// Reference-counted process-wide instance of T (T derives from Singleton<T>).
//
// getInstance() creates T on first use. The base constructor counts too, so the
// first getInstance() leaves refCount at 2; every `delete instance` gives one
// reference back, and only the one that brings the count to 0 destroys the
// object (a C++20 destroying delete makes `delete` do no more than that).
// getInstance() and delete may be called from any thread; the mutex serialises
// creation, counting and release, and T's destructor runs under it (so it must
// not call getInstance() of its own T). ExplicitSingleton<T> derives from this and differs only
// in getInstance().
#pragma once

#include "frame/Mutex.h"

#include <new>

namespace Velmora {

template <class T>
class Singleton {
public:
    // Creates the instance as a U (T or a class derived from it) on first use.
    template <class U = T>
    static T* getInstance()
    {
        lock();
        unsigned int old = refCount++;
        if (old == 0)
            new U();
        T* const created = instance();
        unlock();
        return created;
    }

    static void lock() { mutex.lock(); }
    static void unlock() { mutex.unlock(); }

    // Gives one reference back; destroys and frees the instance at the last one.
    // Any pointer other than the instance is ignored: its memory stays.
    static void operator delete(Singleton* p, std::destroying_delete_t)
    {
        lock();
        if (p != singleton || --refCount != 0)
            return unlock();
        singleton = nullptr;
        void* memory = dynamic_cast<void*>(p);
        p->~Singleton();
        ::operator delete(memory);
        unlock();
    }

protected:
    Singleton()
    {
        ++refCount;
        singleton = this; // a T only once its constructor has finished
    }
    virtual ~Singleton() = default;

    static T* instance() { return static_cast<T*>(singleton); }

    static inline Singleton* singleton = nullptr;
    static inline unsigned int refCount = 0;
    static inline Mutex mutex{"Singleton"};

    template <class>
    friend class ExplicitSingleton;
};

} // namespace Velmora
