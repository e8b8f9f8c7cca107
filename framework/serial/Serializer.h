// Builds one JSON text from serial objects. A cursor stands on the value being
// written; begin/end move it into and out of members (a name) or array
// elements (the empty name). Not thread-safe: one serializer per writer.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace Velmora {

class Serializer {
public:
    Serializer();

    void beginObject(std::string const& name);
    void endObject(std::string const& name);
    void beginArray(std::string const& name);
    void endArray(std::string const& name);
    // Adds `value` as the member `name` of the current object, or appends it to
    // the current array when `name` is empty.
    void setValue(std::string const& name, Json::Value value);
    // Replaces the value under the cursor: how a leaf writes itself as a bare value.
    void replaceCurrent(Json::Value value);

    // The whole text, as Json::FastWriter writes it (ends with a line feed).
    std::string generate() const;
    Json::Value const& getRoot() const;

private:
    Json::Value& newSlot(std::string const& name);

    Json::Value root;
    std::vector<Json::Value*> cursor;
};

} // namespace Velmora
