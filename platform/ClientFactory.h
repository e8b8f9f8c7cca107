// The replaceable factory behind a client library's create(): tests install
// their own to supply fake clients; an empty one means "build the real class".
// get() and set() may be called from any thread.
#pragma once

#include "Client.h"
#include "frame/Mutex.h"

#include <functional>
#include <string>
#include <utility>

namespace Velmora {

template <class T>
class ClientFactory {
public:
    using Function = std::function<T*(Client::Type, std::string const&)>;

    // A new client, owned by the caller: from the installed function, else `new T`.
    static T* create(Client::Type type, std::string const& name)
    {
        Function chosen;
        {
            Mutex::ScopedLock lock(&mutex());
            chosen = function();
        }
        return chosen ? chosen(type, name) : new T(type, name);
    }

    static void set(Function replacement)
    {
        Mutex::ScopedLock lock(&mutex());
        function() = std::move(replacement);
    }

private:
    static Mutex& mutex()
    {
        static Mutex instance("ClientFactory");
        return instance;
    }
    static Function& function()
    {
        static Function current;
        return current;
    }
};

} // namespace Velmora
