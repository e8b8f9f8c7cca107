#include "serial/Serializer.h"

#include <json/writer.h>

namespace Velmora {

Serializer::Serializer() = default;

Json::Value& Serializer::newSlot(std::string const& name)
{
    if (cursor.empty())
        return root;
    Json::Value& current = *cursor.back();
    if (name.empty())
        return current.append(Json::Value());
    return current[name];
}

void Serializer::beginObject(std::string const& name)
{
    Json::Value& slot = newSlot(name);
    slot = Json::Value(Json::objectValue);
    cursor.push_back(&slot);
}

void Serializer::endObject(std::string const&)
{
    if (!cursor.empty())
        cursor.pop_back();
}

void Serializer::beginArray(std::string const& name)
{
    Json::Value& slot = newSlot(name);
    slot = Json::Value(Json::arrayValue);
    cursor.push_back(&slot);
}

void Serializer::endArray(std::string const& name) { endObject(name); }

void Serializer::setValue(std::string const& name, Json::Value value) { newSlot(name) = std::move(value); }

void Serializer::replaceCurrent(Json::Value value)
{
    if (cursor.empty())
        root = std::move(value);
    else
        *cursor.back() = std::move(value);
}

std::string Serializer::generate() const
{
    thread_local Json::FastWriter writer;
    return writer.write(root);
}

Json::Value const& Serializer::getRoot() const { return root; }

} // namespace Velmora
