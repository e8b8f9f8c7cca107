#include "serial/Deserializer.h"

#include "frame/Exception.h"

#include <json/reader.h>

#include <memory>

namespace Velmora {

static char const MODULE[] = "Deserializer";

bool Deserializer::withinBounds(std::string const& text)
{
    std::size_t depth = 0;
    std::size_t values = 1;
    bool inString = false;
    bool escaped = false;
    for (char const c : text) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
            continue;
        }
        switch (c) {
        case '"':
            inString = true;
            break;
        case '[':
        case '{':
            if (++depth > MAX_DEPTH)
                return false;
            [[fallthrough]];
        case ',':
            if (++values > MAX_VALUES)
                return false;
            break;
        case ']':
        case '}':
            if (depth > 0)
                --depth;
            break;
        default:
            break;
        }
    }
    return true;
}

bool Deserializer::parse(std::string const& text, Json::Value& out)
{
    if (!withinBounds(text))
        return false;
    thread_local std::unique_ptr<Json::CharReader> const reader = [] {
        Json::CharReaderBuilder builder;
        builder["collectComments"] = false;
        builder["allowSpecialFloats"] = false;
        builder["rejectDupKeys"] = false;
        builder["stackLimit"] = 256;
        return std::unique_ptr<Json::CharReader>(builder.newCharReader());
    }();
    Json::Value parsed;
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &parsed, nullptr))
            return false;
    } catch (std::exception const&) { // nesting beyond the stack limit
        return false;
    }
    out = std::move(parsed);
    return true;
}

Deserializer::Deserializer(std::string const& json) : valid(parse(json, root)) { cursor.push_back(&root); }

Deserializer::Deserializer(Json::Value value) : root(std::move(value)), valid(true) { cursor.push_back(&root); }

Deserializer::~Deserializer() = default;

bool Deserializer::isValid() const { return valid; }

Json::Value const& Deserializer::current() const { return *cursor.back(); }

Json::Value const* Deserializer::find(std::string const& name) const
{
    Json::Value const& value = current();
    if (name.empty())
        return &value;
    if (!value.isObject())
        return nullptr;
    return value.find(name.data(), name.data() + name.size());
}

bool Deserializer::hasMember(std::string const& name) const { return find(name) != nullptr; }

Json::Value const& Deserializer::member(std::string const& name) const
{
    Json::Value const* found = find(name);
    if (!found)
        throwException(MODULE, __LINE__, "member", ReturnInvalidParameter);
    return *found;
}

void Deserializer::enterObject(std::string const& name) { cursor.push_back(&member(name)); }

void Deserializer::leaveObject(std::string const&)
{
    if (cursor.size() > 1)
        cursor.pop_back();
}

unsigned int Deserializer::getSize()
{
    Json::Value const& value = current();
    return value.isArray() || value.isObject() ? value.size() : 0;
}

std::vector<std::string> Deserializer::getMemberNames()
{
    Json::Value const& value = current();
    return value.isObject() ? value.getMemberNames() : std::vector<std::string>{};
}

void Deserializer::returnTo(std::size_t depth)
{
    if (depth >= 1 && depth < cursor.size())
        cursor.resize(depth);
}

void Deserializer::enterElement(unsigned int const& index)
{
    Json::Value const& value = current();
    if (!value.isArray() || index >= value.size())
        throwException(MODULE, __LINE__, "enterElement", ReturnInvalidParameter);
    cursor.push_back(&value[index]);
}

void Deserializer::leaveElement(unsigned int const& index) { leaveObject(std::string()); }

} // namespace Velmora
