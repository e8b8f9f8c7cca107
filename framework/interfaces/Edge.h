// A directed edge between two serial values, written as {"first", "second"}.
// Edge<StringObject> is the dependency edge of the service graph.
#pragma once

#include "serial/Serialization.h"

#include <utility>

namespace Velmora {

template <class T>
class Edge : public SerialObject, public std::pair<T, T> {
public:
    Edge() = default;
    Edge(T const& first, T const& second) : std::pair<T, T>(first, second) {}
    explicit Edge(Deserializer& deserializer)
        : std::pair<T, T>(deserialize<T>("first", deserializer), deserialize<T>("second", deserializer))
    {
    }
    Edge(Edge const& other) = default;
    Edge& operator=(Edge const& other)
    {
        std::pair<T, T>::operator=(other);
        return *this;
    }

    std::string const& getObjectType() const override
    {
        static std::string const TYPE_NAME("Edge");
        return TYPE_NAME;
    }
    SerialObject* clone() const override { return new Edge(*this); }
    using SerialObject::serialize;
    void serialize(Serializer& serializer) const override
    {
        this->first.serialize("first", serializer);
        this->second.serialize("second", serializer);
    }

    bool operator==(Edge const& other) const
    {
        return this->first == other.first && this->second == other.second;
    }
};

} // namespace Velmora
