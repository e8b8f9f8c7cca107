// Feeds arbitrary bytes to what reads peer and store texts: one message into a
// bus connection (requests answered by an echoing handler, notifications,
// stray answers), and the serial readers that rebuild records from a text in
// their dynamic form, as lists and as maps, each written back out again.
#include "frame/Exception.h"
#include "interfaces/IRPC.h"
#include "interfaces/ISettingsDB.h"
#include "serial/MapObject.h"
#include "rpc/RPCConnection.h"
#include "serial/Serialization.h"
#include "serial/VectorObject.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

using namespace Velmora;

namespace {

// Answers every request with its own parameters, except registrations.
class EchoHandler : public RPCConnection::IHandler {
public:
    std::string handleRequest(RPCConnection&, IRPC::RPCSynchronousMethodObject const& request) override
    {
        return IRPC::RPCResultObject(request.getMethod(), IRPC::parse(request.getParameters())).serialize();
    }
    bool neverBlocks(std::string const&) const override { return true; }
    void handleNotification(RPCConnection&, std::string const&, Json::Value const&) override {}
    bool handleOpened(std::shared_ptr<RPCConnection> const&) override { return true; }
    void handleClosed(RPCConnection&) override {}
};

// A connection without a transport: what it sends is kept and checked.
class LoopConnection : public RPCConnection {
public:
    using RPCConnection::RPCConnection;
    void feed(std::string const& text) { receive(text); }
    void close() override {}

protected:
    void write(std::string text) override
    {
        // Whatever came in, what goes out is one JSON object.
        if (!IRPC::parse(text).isObject())
            std::abort();
    }
    void runDetached(std::function<void()> job) override { job(); }
};

// Frees what a reader built: lists of pointers own nothing, so the reader
// frees their elements, at every level.
void release(SerialObject* object)
{
    if (auto const* allowed = dynamic_cast<ISettingsDB::AllowedValues*>(object))
        for (SerialObject* value : allowed->getValueList())
            release(value);
    if (auto const* list = dynamic_cast<VectorObject<SerialObject*>*>(object))
        for (SerialObject* value : *list)
            release(value);
    delete object;
}

void readRecords(std::string const& text)
{
    SerialObject* object = createSerialObject(text);
    if (object)
        object->serialize();
    release(object);
    auto list = deserialize<VectorObject<SerialObject*>>(text);
    list.serialize();
    for (SerialObject* value : list)
        release(value);
    deserialize<MapObject<VectorObject<std::string>>>(text).serialize();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setenv("VELMORA_DEBUG", "0", 1); // rejections log
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size)
{
    std::string const text(reinterpret_cast<char const*>(data), size);
    static EchoHandler handler;
    auto connection = std::make_shared<LoopConnection>(handler);
    connection->feed(text);
    try {
        readRecords(text);
    } catch (Exception const&) {
        // A required member missing or of the wrong type: a refusal, not a fault.
    }
    return 0;
}
