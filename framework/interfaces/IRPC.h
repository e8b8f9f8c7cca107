// The JSON-RPC 2.0 messages of the bus as serial objects. Handlers build a
// reply (result, return or error) from the method they serve; the transport
// adds the request's id when it sends the text. Immutable after construction,
// so any thread may read them.
#pragma once

#include "serial/SerialObject.h"

#include <json/value.h>
#include <string>

namespace Velmora {

class IRPC {
public:
    // JSON-RPC error codes used on the bus.
    enum ErrorCode : int {
        PARSE_ERROR = -32700,      // the text is not JSON
        INVALID_REQUEST = -32600,  // JSON, but not a request object of the right shape
        METHOD_NOT_FOUND = -32601, // unknown interface or method
        INVALID_PARAMS = -32602,   // params of the wrong type
        SERVER_ERROR = -32000,     // the method failed; message is the server's text
        TIMED_OUT = -32001,        // the peer missed the deadline
        DISCONNECTED = -32002,     // the peer went away during the call
    };

    // Common base: the JSON body of one message.
    class RPCObject : public SerialObject {
    public:
        std::string const& getObjectType() const override;
        using SerialObject::serialize;
        void serialize(Serializer& serializer) const override;
        // Compact one-line text, no trailing line feed.
        std::string serialize() const override;
        Json::Value const& getBody() const { return body; }

    protected:
        explicit RPCObject(std::string const& method);
        Json::Value body{Json::objectValue};
        std::string method;
    };

    // A call: `params` is kept as JSON text, as handlers read it with a Deserializer.
    class RPCMethodObject : public RPCObject {
    public:
        RPCMethodObject(std::string const& method, std::string const& parameters);
        RPCMethodObject(std::string const& method, Json::Value const& parameters);
        // Parameters already parsed from `parametersText`: neither is redone.
        RPCMethodObject(std::string const& method, Json::Value params, std::string parametersText);
        SerialObject* clone() const override { return new RPCMethodObject(*this); }
        std::string const& getMethod() const { return method; }
        std::string const& getParameters() const { return parameters; }

    private:
        std::string parameters;
    };

    // A call that wants an answer.
    class RPCSynchronousMethodObject : public RPCMethodObject {
    public:
        using RPCMethodObject::RPCMethodObject;
        SerialObject* clone() const override { return new RPCSynchronousMethodObject(*this); }
    };

    // A call that wants no answer.
    class RPCAsynchronousMethodObject : public RPCMethodObject {
    public:
        using RPCMethodObject::RPCMethodObject;
        SerialObject* clone() const override { return new RPCAsynchronousMethodObject(*this); }
    };

    // A reply with a value.
    class RPCResultObject : public RPCObject {
    public:
        RPCResultObject(std::string const& method, SerialObject const& value);
        RPCResultObject(std::string const& method, std::string const& value);
        RPCResultObject(std::string const& method, bool const& value);
        RPCResultObject(std::string const& method, Json::Value const& value);
        SerialObject* clone() const override { return new RPCResultObject(*this); }
    };

    // A reply without a value: "result": null.
    class RPCReturnObject : public RPCObject {
    public:
        explicit RPCReturnObject(std::string const& method);
        SerialObject* clone() const override { return new RPCReturnObject(*this); }
    };

    // A failure reply; `text` is the server's own error text.
    class RPCErrorObject : public RPCObject {
    public:
        RPCErrorObject(std::string const& method, std::string const& text, int code = SERVER_ERROR);
        SerialObject* clone() const override { return new RPCErrorObject(*this); }
    };

    // A one-way message to subscribers; `parameters` is JSON text.
    class RPCNotificationObject : public RPCObject {
    public:
        RPCNotificationObject(std::string const& name, std::string const& parameters);
        SerialObject* clone() const override { return new RPCNotificationObject(*this); }
        std::string const& getName() const { return method; }
        std::string const& getParameters() const { return parameters; }

    private:
        std::string parameters;
    };

    // The JSON value of a serial object (a leaf gives a bare value).
    static Json::Value toJson(SerialObject const& value);
    // Parses JSON text; a null value for an empty or unreadable text.
    static Json::Value parse(std::string const& text);
    // Compact one-line text of a value.
    static std::string write(Json::Value const& value);
    // The text `value` was parsed from, cut out of `text` (the whole text
    // given to parse()); written anew when its place is unknown.
    static std::string sourceText(Json::Value const& value, std::string const& text);
};

} // namespace Velmora
