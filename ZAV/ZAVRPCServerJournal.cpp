// The ILifecycleJournal handler and notification: the box's recent history
// for tools and pages, filtered by uid, session, kind and time.
#include "ZAVRPCServer.h"

#include "LifecycleJournal.h"
#include "frame/Exception.h"

#include <json/json.h>

#include <memory>
#include <optional>

namespace Velmora {

namespace {

// The member `key` when present and of the type `is` checks; null when absent or null.
template <class Check>
Json::Value const* optionalMember(Json::Value const& parameters, char const* key, Check is)
{
    Json::Value const& member = parameters[key];
    if (member.isNull())
        return nullptr;
    if (!(member.*is)())
        throw Exception(ReturnInvalidParameter);
    return &member;
}

} // namespace

void ZAVRPCServer::setJournal(LifecycleJournal* value)
{
    journal = value;
    if (!journal)
        return;
    journalMethods = {{"query", static_cast<RPCMethod>(&ZAVRPCServer::queryJournal)}};
    interfaces["ILifecycleJournal"] = journalMethods;
    quickMethods.insert("ILifecycleJournal.query");
    journal->setSubscriber([this](LifecycleEntry const& entry) {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        handleRPCNotification("ILifecycleJournal::onEntry", Json::writeString(builder, LifecycleJournal::toJson(entry)));
    });
}

std::string ZAVRPCServer::queryJournal(Request const& request)
{
    return guarded(request, [&](Deserializer&) {
        Json::Value parameters;
        Json::CharReaderBuilder builder;
        std::string const& text = request.getParameters();
        std::unique_ptr<Json::CharReader> const reader(builder.newCharReader());
        if (!text.empty() && !reader->parse(text.data(), text.data() + text.size(), &parameters, nullptr))
            throw Exception(ReturnInvalidParameter);
        if (!parameters.isNull() && !parameters.isObject())
            throw Exception(ReturnInvalidParameter);
        std::string uid;
        std::string kind;
        std::optional<int> session;
        std::int64_t since = 0;
        std::size_t limit = 0;
        std::uint64_t before = 0;
        if (auto const* member = optionalMember(parameters, "uid", &Json::Value::isString))
            uid = member->asString();
        if (auto const* member = optionalMember(parameters, "kind", &Json::Value::isString))
            kind = member->asString();
        if (auto const* member = optionalMember(parameters, "session", &Json::Value::isInt))
            session = member->asInt();
        if (auto const* member = optionalMember(parameters, "since", &Json::Value::isInt64))
            since = member->asInt64();
        if (auto const* member = optionalMember(parameters, "limit", &Json::Value::isUInt))
            limit = member->asUInt();
        if (auto const* member = optionalMember(parameters, "before", &Json::Value::isUInt64))
            before = member->asUInt64();
        Json::Value entries(Json::arrayValue);
        for (LifecycleEntry const& entry : journal->query(uid, session, kind, since, limit, before))
            entries.append(LifecycleJournal::toJson(entry));
        return IRPC::RPCResultObject(request.getMethod(), entries).serialize();
    });
}

} // namespace Velmora
