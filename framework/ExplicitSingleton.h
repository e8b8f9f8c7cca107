// A Singleton<T> that getInstance() never creates: the host builds T with `new`
// and its constructor arguments. getInstance() before that is a fatal start-up
// fault: it throws Exception(ReturnInvalidState) and, by design, leaves the
// mutex locked and the count raised. Thread rules as Singleton<T>.
#pragma once

#include "Exception.h"
#include "Singleton.h"

namespace Velmora {

template <class T>
class ExplicitSingleton : public Singleton<T> {
public:
    static T* getInstance()
    {
        Singleton<T>::lock();
        unsigned int old = Singleton<T>::refCount++;
        if (old == 0)
            throwException("ExplicitSingleton", __LINE__, "getInstance", ReturnInvalidState);
        Singleton<T>::unlock();
        return Singleton<T>::instance();
    }

protected:
    ExplicitSingleton() = default;
};

} // namespace Velmora
