// The listener helpers every notifier uses: typed add and remove on a vector of
// listener pointers, and the fan-out walk.
//
// addListener<T>/removeListener<T> filter by family (dynamic_cast), so the same
// IListener* lands in every list whose family it implements. They do not lock:
// callers hold their listener mutex around them. removeListener<T> returns
// once no other thread is calling that listener from fanOut() (it releases the
// mutex while it waits), so the listener may be destroyed then; from inside a
// call into that listener it does not wait.
//
// fanOut() releases the mutex around each call so a listener may add or remove
// listeners from inside its callback. When the change mark is set, the walk
// clears it and goes on at the *second* element of the changed list: the first
// listener is not called again, later ones may be. That asymmetry is relied on.
#pragma once

#include "frame/IListener.h"
#include "frame/ListenerCalls.h"
#include "frame/Mutex.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Velmora {

template <class T>
bool addListener(std::vector<T*>& list, IListener* listener)
{
    T* typed = dynamic_cast<T*>(listener);
    if (!typed || std::find(list.begin(), list.end(), typed) != list.end())
        return false;
    list.push_back(typed);
    return true;
}

template <class T>
bool removeListener(std::vector<T*>& list, IListener* listener)
{
    T* typed = dynamic_cast<T*>(listener);
    if (!typed)
        return false;
    auto found = std::find(list.begin(), list.end(), typed);
    if (found == list.end())
        return false;
    list.erase(found);
    ListenerCalls::instance().waitIdle(&list, typed);
    return true;
}

// Calls `notify(listener)` for each listener of `list`, guarded by `mutex`, which
// must not be held by the caller. `changed` is the owner's change mark.
template <class T, class Notify>
void fanOut(Mutex& mutex, std::vector<T*>& list, bool& changed, Notify&& notify)
{
    struct Relock {
        Mutex& mutex;
        ~Relock() { mutex.lock(); }
    };
    // Ends the record of a call with the mutex held again.
    struct InFlight {
        void const* list;
        void const* listener;
        ~InFlight() { ListenerCalls::instance().end(list, listener); }
    };
    Mutex::ScopedLock guard(&mutex);
    for (std::size_t cursor = 0; cursor < list.size(); ++cursor) {
        T* listener = list[cursor];
        {
            ListenerCalls::instance().begin(&list, listener, mutex);
            InFlight inFlight{&list, listener};
            mutex.unlock();
            Relock relock{mutex};
            if (listener)
                notify(listener);
        }
        if (changed) {
            cursor = 0;
            changed = false;
        }
    }
}

} // namespace Velmora
