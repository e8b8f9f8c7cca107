// A std::vector<T> that is a serial object, written as a JSON array in vector
// order. VectorObject<SerialObject*> holds raw pointers it does not own: copies
// are shallow and the owner of the list frees the elements. Reading it skips
// elements of no known type (it never holds null), and a read that throws
// frees what it had built.
#pragma once

#include "serial/Serialization.h"
#include "serial/VectorBase.h"

#include <type_traits>
#include <utility>
#include <vector>

namespace Velmora {

template <class T>
class VectorObject : public VectorBase, public std::vector<T> {
public:
    VectorObject() = default;
    explicit VectorObject(Deserializer& deserializer) : VectorBase(deserializer) { initVector(deserializer); }
    VectorObject(std::string const& name, Deserializer& deserializer) : VectorBase(name, deserializer)
    {
        initVector(deserializer);
        deserializer.leaveObject(name);
    }
    VectorObject(VectorObject const& other) = default;
    VectorObject(VectorObject&& other) noexcept : VectorBase(other), std::vector<T>(std::move(other)) {}
    VectorObject(std::initializer_list<T> values) : std::vector<T>(values) {}

    VectorObject& operator=(VectorObject const& other)
    {
        VectorBase::operator=(other);
        std::vector<T>::operator=(other);
        return *this;
    }

    VectorObject& operator=(VectorObject&& other) noexcept
    {
        VectorBase::operator=(other);
        std::vector<T>::operator=(std::move(other));
        return *this;
    }

    SerialObject* clone() const override { return new VectorObject(*this); }

    using VectorBase::serialize;
    void serialize(Serializer& serializer) const override
    {
        for (T const& element : *this)
            serializeElement(std::string(), element, serializer);
    }

protected:
    void initVector(Deserializer& deserializer)
    {
        try {
            unsigned int const count = deserializer.getSize();
            for (unsigned int i = 0; i < count; ++i) {
                deserializer.enterElement(i);
                T element = deserializeElement<T>(std::string(), deserializer);
                deserializer.leaveElement(i);
                if constexpr (std::is_pointer_v<T>)
                    if (!element)
                        continue;
                this->push_back(std::move(element));
            }
        } catch (...) {
            if constexpr (std::is_pointer_v<T>)
                for (T element : *this)
                    delete element;
            throw;
        }
    }
};

} // namespace Velmora
