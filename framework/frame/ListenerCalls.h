// The listener calls in flight of every fanOut() in the process, so that
// removing a listener can wait for a call into it that another thread is
// making. Used by ListenerList.h only.
//
// Threads: any; every call is made with the list's own mutex held (the mutex
// that fanOut() was given).
#pragma once

#include "frame/Mutex.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace Velmora {

class ListenerCalls {
public:
    static ListenerCalls& instance()
    {
        // Never destroyed: a fan-out may still run while static destructors do.
        static ListenerCalls* const calls = new ListenerCalls();
        return *calls;
    }

    void begin(void const* list, void const* listener, Mutex& listMutex)
    {
        std::lock_guard lock(guard);
        calls.push_back({list, listener, std::this_thread::get_id(), &listMutex});
    }

    void end(void const* list, void const* listener)
    {
        {
            std::lock_guard lock(guard);
            auto const found = std::find_if(calls.begin(), calls.end(), [&](Call const& call) {
                return call.list == list && call.listener == listener && call.thread == std::this_thread::get_id();
            });
            if (found != calls.end())
                calls.erase(found);
        }
        ended.notify_all();
    }

    // Returns once no other thread is inside a call into `listener` of `list`;
    // the list's mutex is released while waiting.
    void waitIdle(void const* list, void const* listener)
    {
        for (Mutex* listMutex = callerOf(list, listener); listMutex; listMutex = callerOf(list, listener))
            ended.wait(*listMutex);
    }

private:
    struct Call {
        void const* list;
        void const* listener;
        std::thread::id thread;
        Mutex* listMutex;
    };

    // The list's mutex when another thread is calling the listener, else null.
    Mutex* callerOf(void const* list, void const* listener)
    {
        std::lock_guard lock(guard);
        auto const found = std::find_if(calls.begin(), calls.end(), [&](Call const& call) {
            return call.list == list && call.listener == listener && call.thread != std::this_thread::get_id();
        });
        return found == calls.end() ? nullptr : found->listMutex;
    }

    std::mutex guard;
    std::vector<Call> calls;
    std::condition_variable_any ended;
};

} // namespace Velmora
