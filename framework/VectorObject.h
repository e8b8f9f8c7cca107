// A std::vector<T> that is a serial object, written as a JSON array in vector
// order. VectorObject<SerialObject*> holds raw pointers it does not own: copies
// are shallow and the owner of the list frees the elements.
#pragma once

#include "Serialization.h"
#include "VectorBase.h"

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
        deserializer.enterObject(name);
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
        unsigned int count = deserializer.getSize();
        for (unsigned int i = 0; i < count; ++i) {
            deserializer.enterElement(i);
            this->push_back(deserializeElement<T>(std::string(), deserializer));
            deserializer.leaveElement(i);
        }
    }
};

} // namespace Velmora
