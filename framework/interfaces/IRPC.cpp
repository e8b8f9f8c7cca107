#include "interfaces/IRPC.h"

#include "serial/Serializer.h"

#include <json/reader.h>
#include <json/writer.h>

#include <memory>
#include <sstream>

namespace Velmora {

namespace {

// One line, UTF-8 as it is. A writer and its stream per thread: making them
// anew costs more than writing a small message.
std::string compactText(Json::Value const& value)
{
    thread_local std::unique_ptr<Json::StreamWriter> const writer = [] {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        builder["emitUTF8"] = true;
        return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
    }();
    thread_local std::ostringstream stream;
    stream.str(std::string());
    stream.clear();
    writer->write(value, &stream);
    return stream.str();
}

} // namespace

Json::Value IRPC::toJson(SerialObject const& value)
{
    Serializer serializer;
    value.serialize(std::string(), serializer);
    return serializer.getRoot();
}

Json::Value IRPC::parse(std::string const& text)
{
    thread_local std::unique_ptr<Json::CharReader> const reader = [] {
        Json::CharReaderBuilder builder;
        builder["collectComments"] = false;
        builder["stackLimit"] = 256;
        return std::unique_ptr<Json::CharReader>(builder.newCharReader());
    }();
    Json::Value value;
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr))
            return Json::Value();
    } catch (std::exception const&) { // nesting beyond the stack limit
        return Json::Value();
    }
    return value;
}

std::string IRPC::sourceText(Json::Value const& value, std::string const& text)
{
    auto const start = value.getOffsetStart();
    auto const limit = value.getOffsetLimit();
    if (start < 0 || limit <= start || static_cast<std::size_t>(limit) > text.size())
        return write(value);
    return text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(limit - start));
}

std::string IRPC::write(Json::Value const& value) { return compactText(value); }

IRPC::RPCObject::RPCObject(std::string const& method) : method(method) { body["jsonrpc"] = "2.0"; }

std::string const& IRPC::RPCObject::getObjectType() const
{
    static std::string const TYPE_NAME = "RPCObject";
    return TYPE_NAME;
}

void IRPC::RPCObject::serialize(Serializer& serializer) const
{
    for (auto const& name : body.getMemberNames())
        serializer.setValue(name, body[name]);
}

std::string IRPC::RPCObject::serialize() const { return write(body); }

IRPC::RPCMethodObject::RPCMethodObject(std::string const& method, std::string const& parameters)
    : RPCObject(method), parameters(parameters)
{
    body["method"] = method;
    Json::Value params = parse(parameters);
    if (!params.isNull())
        body["params"] = std::move(params);
}

IRPC::RPCMethodObject::RPCMethodObject(std::string const& method, Json::Value const& parameters)
    : RPCObject(method), parameters(parameters.isNull() ? std::string() : write(parameters))
{
    body["method"] = method;
    if (!parameters.isNull())
        body["params"] = parameters;
}

IRPC::RPCMethodObject::RPCMethodObject(std::string const& method, Json::Value params, std::string parametersText)
    : RPCObject(method), parameters(std::move(parametersText))
{
    body["method"] = method;
    if (!params.isNull())
        body["params"] = std::move(params);
}

IRPC::RPCResultObject::RPCResultObject(std::string const& method, SerialObject const& value)
    : RPCResultObject(method, toJson(value))
{
}

IRPC::RPCResultObject::RPCResultObject(std::string const& method, std::string const& value)
    : RPCResultObject(method, Json::Value(value))
{
}

IRPC::RPCResultObject::RPCResultObject(std::string const& method, bool const& value)
    : RPCResultObject(method, Json::Value(value))
{
}

IRPC::RPCResultObject::RPCResultObject(std::string const& method, Json::Value const& value) : RPCObject(method)
{
    body["result"] = value;
}

IRPC::RPCReturnObject::RPCReturnObject(std::string const& method) : RPCObject(method)
{
    body["result"] = Json::Value();
}

IRPC::RPCErrorObject::RPCErrorObject(std::string const& method, std::string const& text, int code)
    : RPCObject(method)
{
    body["error"]["code"] = code;
    body["error"]["message"] = text;
}

IRPC::RPCNotificationObject::RPCNotificationObject(std::string const& name, std::string const& parameters)
    : RPCObject(name), parameters(parameters)
{
    body["method"] = name;
    Json::Value params = parse(parameters);
    if (!params.isNull())
        body["params"] = std::move(params);
}

} // namespace Velmora
