// Reads the fields of one notice from a platform service and logs, once per
// missing or ill-typed field, why the notice is dropped. Used on a client's
// delivery thread only.
#pragma once

#include "frame/DebugPrint.h"

#include <json/value.h>

#include <limits>
#include <optional>
#include <string>

namespace Velmora {

class NoticeFields {
public:
    NoticeFields(char const* module, std::string const& notice, Json::Value const& params)
        : module(module), notice(notice), params(params)
    {
    }

    // `key` as an unsigned number no greater than `highest`.
    std::optional<unsigned int> number(char const* key, unsigned int highest = std::numeric_limits<unsigned int>::max()) const
    {
        Json::Value const& value = field(key);
        if (!value.isUInt() || value.asUInt() > highest)
            return refuse(key);
        return value.asUInt();
    }
    std::optional<std::string> text(char const* key) const
    {
        Json::Value const& value = field(key);
        if (!value.isString())
            return refuse(key);
        return value.asString();
    }
    std::optional<bool> flag(char const* key) const
    {
        Json::Value const& value = field(key);
        if (!value.isBool())
            return refuse(key);
        return value.asBool();
    }
    // `key` as an object, whose fields are read in turn.
    std::optional<NoticeFields> object(char const* key) const
    {
        Json::Value const& value = field(key);
        if (!value.isObject())
            return refuse(key);
        return NoticeFields(module, notice, value);
    }
    // `key` as a list of strings.
    std::optional<Json::Value> texts(char const* key) const
    {
        Json::Value const& value = field(key);
        if (!value.isArray())
            return refuse(key);
        for (Json::Value const& each : value)
            if (!each.isString())
                return refuse(key);
        return value;
    }

private:
    Json::Value const& field(char const* key) const
    {
        static Json::Value const none;
        return params.isObject() ? params[key] : none;
    }
    std::nullopt_t refuse(char const* key) const
    {
        velmoraDebugPrint(DebugLevelError, module, module, __LINE__, "%s: refused, \"%s\" is missing or out of range\n",
                          notice.c_str(), key);
        return std::nullopt;
    }

    char const* module;
    std::string notice;
    Json::Value params;
};

} // namespace Velmora
