// A Singleton<T> that getInstance() never creates: the host builds T with `new`
// and its constructor arguments. getInstance() before that throws
// Exception(ReturnInvalidState) and leaves the count and the mutex as they
// were, so a later getInstance() works once T exists. Thread rules as Singleton<T>.
#pragma once

#include "frame/Exception.h"
#include "frame/Singleton.h"

namespace Velmora {

template <class T>
class ExplicitSingleton : public Singleton<T> {
public:
    static T* getInstance()
    {
        Singleton<T>::lock();
        if (Singleton<T>::refCount == 0) {
            Singleton<T>::unlock();
            throwException("ExplicitSingleton", __LINE__, "getInstance", ReturnInvalidState);
        }
        ++Singleton<T>::refCount;
        T* const instance = Singleton<T>::instance();
        Singleton<T>::unlock();
        return instance;
    }

protected:
    ExplicitSingleton() = default;
};

} // namespace Velmora
