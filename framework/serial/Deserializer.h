// Reads one JSON text into serial objects. A cursor stands on the current
// value; enter/leave move it. The empty name means "the current value itself"
// (array elements are read that way after enterElement, which requires an
// array; a map reads its members by key without it).
//
// A text that does not parse, or that nests deeper than MAX_DEPTH or holds more
// than MAX_VALUES values, gives a deserializer whose root is null: records read
// that as empty, while reading a required member throws
// Exception(ReturnInvalidParameter), as does any member of the wrong JSON type.
// Not thread-safe: one deserializer per reader.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Velmora {

class Deserializer {
public:
    // Bounds on a text, checked before any value is built: a peer's message
    // costs memory in proportion to its values, not only to its bytes.
    static constexpr std::size_t MAX_DEPTH = 64;
    static constexpr std::size_t MAX_VALUES = 1 << 15;

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

    // The cursor's depth, and a return to it: a reader that gives up half-way
    // (a constructor that threw) leaves the cursor where it was.
    std::size_t depth() const { return cursor.size(); }
    void returnTo(std::size_t depth);

    // Parses `text` strictly; false (and `out` untouched) when it is not JSON
    // or is not within the bounds.
    static bool parse(std::string const& text, Json::Value& out);
    // True when `text` nests no deeper than MAX_DEPTH and holds at most
    // MAX_VALUES values; a linear scan that builds nothing.
    static bool withinBounds(std::string const& text);

private:
    Json::Value root;
    std::vector<Json::Value const*> cursor;
    bool valid;
};

} // namespace Velmora
