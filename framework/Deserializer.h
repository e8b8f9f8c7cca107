// Reads one JSON text into serial objects. A cursor stands on the current
// value; enter/leave move it. The empty name means "the current value itself"
// (array elements are read that way after enterElement). enterElement on an
// object keeps the cursor on the object, so a map reads element i by its key.
//
// A text that does not parse gives a deserializer whose root is null: records
// read that as empty, while reading a required member throws
// Exception(ReturnInvalidParameter), as does any member of the wrong JSON type.
// Not thread-safe: one deserializer per reader.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace Velmora {

class Deserializer {
public:
    explicit Deserializer(std::string const& json);
    explicit Deserializer(Json::Value value);
    virtual ~Deserializer();

    virtual void enterObject(std::string const& name);
    virtual void leaveObject(std::string const& name);
    virtual unsigned int getSize();
    virtual std::vector<std::string> getMemberNames();
    virtual void enterElement(unsigned int const& index);
    virtual void leaveElement(unsigned int const& index);

    // False when the text did not parse as JSON.
    bool isValid() const;
    Json::Value const& current() const;
    // The member `name` of the current object (the current value for the empty
    // name); throws Exception(ReturnInvalidParameter) when there is none.
    Json::Value const& member(std::string const& name) const;
    bool hasMember(std::string const& name) const;
    // The member `name` of the current object, or null (the current value for the empty name).
    Json::Value const* find(std::string const& name) const;

    // Parses `text` strictly; false (and `out` untouched) when it is not JSON.
    static bool parse(std::string const& text, Json::Value& out);

private:
    Json::Value root;
    std::vector<Json::Value const*> cursor;
    bool valid;
};

} // namespace Velmora
