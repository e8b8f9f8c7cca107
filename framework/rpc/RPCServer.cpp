#include "rpc/RPCServer.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "rpc/RPCIoContext.h"
#include "rpc/RPCListener.h"
#include "rpc/RPCRegistry.h"
#include "rpc/RuntimeDirectory.h"
#include "rpc/UnixEndpoint.h"
#include "rpc/WebEndpoint.h"

#include <algorithm>
#include <sched.h>

namespace Velmora {

static char const MODULE[] = "RPCServer";

namespace {

// Reading and the handlers that never block: two threads, one on a box that
// gives the process one core. The loop wakes the second thread for every
// message read, to wait on the sockets meanwhile; on one core that thread
// can never read in parallel, and each wake is only a thread switch more.
unsigned int ioThreads()
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    bool const oneCore = ::sched_getaffinity(0, sizeof cores, &cores) == 0 && CPU_COUNT(&cores) == 1;
    return oneCore ? 1 : 2;
}
// Handlers that may block, each on its own thread up to this many at once.
constexpr unsigned int HANDLER_THREADS = 16;

// Carries one request text through the ordinary checks and catches the reply.
class PayloadExchange : public RPCConnection {
public:
    using RPCConnection::RPCConnection;
    std::string exchange(std::string const& payload)
    {
        receive(payload);
        return reply;
    }
    void close() override {}
    bool isLongLived() const override { return false; }

protected:
    void write(std::string text) override { reply = std::move(text); }
    void runDetached(std::function<void()> job) override { job(); }
    void answerOn(CommandProcessor&, IRPC::RPCSynchronousMethodObject request, Json::Value id) override
    {
        answer(request, id);
    }

private:
    std::string reply;
};

std::vector<std::string> readEvents(Json::Value const& params)
{
    Json::Value const& events = params["events"];
    if (!events.isArray())
        throw std::invalid_argument("Invalid parameter");
    std::vector<std::string> names;
    for (auto const& event : events) {
        if (!event.isString())
            throw std::invalid_argument("Invalid parameter");
        names.push_back(event.asString());
    }
    return names;
}

Json::Value paramsOf(IRPC::RPCSynchronousMethodObject const& request)
{
    Json::Value const& params = request.getBody()["params"];
    return params.isObject() ? params : Json::Value(Json::objectValue);
}

} // namespace

RPCServer::RPCServer(std::string const& name) : name(name) {}

RPCServer::~RPCServer() { shutdown(); }

std::string RPCServer::getFixedRPCAddress() { return std::string(); }

void RPCServer::init()
{
    if (context)
        return;
    stopping = false;
    context = std::make_unique<RPCIoContext>(ioThreads(), HANDLER_THREADS);
    try {
        RuntimeDirectory::ensure();
        listeners.push_back(UnixEndpoint::listen(*context, RuntimeDirectory::endpointPath(name), *this));
        if (std::string const address = getFixedRPCAddress(); !address.empty())
            openWebEndpoint(address);
    } catch (...) {
        shutdown();
        throw;
    }
    VLOG(DebugLevelInfo, "init(): endpoint %s is open\n", name.c_str());
}

void RPCServer::openWebEndpoint(std::string const& address)
{
    auto const colon = address.rfind(':');
    std::string const host = address.substr(0, colon);
    unsigned long const port = colon == std::string::npos ? 0 : std::strtoul(address.c_str() + colon + 1, nullptr, 10);
    listeners.push_back(WebEndpoint::listen(*context, host, static_cast<unsigned short>(port), *this,
                                            [this](std::string const& payload) {
                                                return handleRPCSynchronousMethodPayload(payload);
                                            }));
}

void RPCServer::shutdown()
{
    if (!context)
        return;
    stopping = true;
    for (auto const& listener : listeners)
        listener->close();
    auto const open = snapshot();
    for (auto const& connection : open)
        connection->close();
    context->stop();
    for (auto const& connection : open)
        connection->closeStopped();
    {
        std::lock_guard lock(mutex);
        connections.clear();
    }
    listeners.clear();
    context.reset();
}

unsigned short RPCServer::getPort() const
{
    for (auto const& listener : listeners)
        if (listener->getPort() != 0)
            return listener->getPort();
    return 0;
}

std::size_t RPCServer::getConnectionCount() const
{
    std::lock_guard lock(mutex);
    return connections.size();
}

std::vector<std::shared_ptr<RPCConnection>> RPCServer::snapshot() const
{
    std::lock_guard lock(mutex);
    return {connections.begin(), connections.end()};
}

std::string RPCServer::handleRPCSynchronousMethod(IRPC::RPCSynchronousMethodObject const& method)
{
    std::string const& fullName = method.getMethod();
    auto const dot = fullName.rfind('.');
    if (dot != std::string::npos) {
        auto const table = interfaces.find(fullName.substr(0, dot));
        if (table != interfaces.end()) {
            auto const entry = table->second.find(fullName.substr(dot + 1));
            if (entry != table->second.end())
                return (this->*(entry->second))(method);
        }
    }
    return IRPC::RPCErrorObject(fullName, "Method not found", IRPC::METHOD_NOT_FOUND).serialize();
}

void RPCServer::handleRPCAsynchronousMethod(IRPC::RPCAsynchronousMethodObject const& method)
{
    VLOG(DebugLevelTrace, "handleRPCAsynchronousMethod(): %s ignored\n", method.getMethod().c_str());
}

void RPCServer::handleRPCNotification(IRPC::RPCNotificationObject const& notification)
{
    handleRPCNotification(notification.getName(), notification.getParameters());
}

void RPCServer::handleRPCNotification(std::string const& name, std::string const& parameters)
{
    std::string params = parameters;
    while (!params.empty() && (params.back() == '\n' || params.back() == '\r'))
        params.pop_back();
    std::string text = "{\"jsonrpc\":\"2.0\",\"method\":" + IRPC::write(Json::Value(name));
    if (!params.empty())
        text += ",\"params\":" + params;
    text += "}";
    for (auto const& connection : snapshot())
        if (connection->isSubscribed(name))
            connection->sendText(text);
}

std::string RPCServer::handleRPCSynchronousMethodPayload(std::string const& payload)
{
    RPCConnection::IHandler& handler = *this;
    auto exchange = std::make_shared<PayloadExchange>(handler);
    return exchange->exchange(payload);
}

std::string RPCServer::handleRequest(RPCConnection& connection, IRPC::RPCSynchronousMethodObject const& request)
{
    if (stopping)
        return IRPC::RPCErrorObject(request.getMethod(), Exception(ReturnInvalidState).what()).serialize();
    if (request.getMethod().rfind("RPC.", 0) == 0)
        return handleBuiltIn(connection, request);
    return handleRPCSynchronousMethod(request);
}

bool RPCServer::neverBlocks(std::string const& method) const
{
    return method.rfind("RPC.", 0) == 0 || quickMethods.count(method) != 0;
}

std::string RPCServer::handleBuiltIn(RPCConnection& connection, IRPC::RPCSynchronousMethodObject const& request)
{
    std::string const& method = request.getMethod();
    Json::Value const params = paramsOf(request);
    try {
        if (method == "RPC.ping")
            return IRPC::RPCResultObject(method, true).serialize();
        if (method == "RPC.subscribe") {
            connection.subscribe(readEvents(params));
            return IRPC::RPCReturnObject(method).serialize();
        }
        if (method == "RPC.unsubscribe") {
            connection.unsubscribe(readEvents(params));
            return IRPC::RPCReturnObject(method).serialize();
        }
        if (method == "RPC.register") {
            if (!params["uid"].isString() || params["uid"].asString().empty())
                throw std::invalid_argument("Invalid parameter");
            if (!connection.isLongLived())
                throw std::invalid_argument("A one-shot exchange cannot register");
            if (!RPCRegistry::getInstance().registerConnection(params["uid"].asString(), connection.shared_from_this()))
                throw std::invalid_argument("This connection has registered another uid");
            return IRPC::RPCReturnObject(method).serialize();
        }
    } catch (std::exception const& e) {
        VLOG(DebugLevelError, "%s(): caught exception: %s\n", method.c_str(), e.what());
        return IRPC::RPCErrorObject(method, e.what()).serialize();
    }
    return IRPC::RPCErrorObject(method, "Method not found", IRPC::METHOD_NOT_FOUND).serialize();
}

void RPCServer::handleNotification(RPCConnection& connection, std::string const& name, Json::Value const& parameters)
{
    if (!connection.getRegisteredUid().empty())
        return RPCRegistry::getInstance().report(connection, name, parameters);
    handleRPCAsynchronousMethod(IRPC::RPCAsynchronousMethodObject(name, parameters));
}

bool RPCServer::handleOpened(std::shared_ptr<RPCConnection> const& connection)
{
    std::lock_guard lock(mutex);
    if (connections.size() >= MAX_CONNECTIONS) {
        VLOG(DebugLevelWarning, "handleOpened(): %s has %zu connections, refusing one\n", name.c_str(),
             connections.size());
        return false;
    }
    connections.insert(connection);
    return true;
}

void RPCServer::handleClosed(RPCConnection& connection)
{
    RPCRegistry::getInstance().connectionClosed(connection);
    std::lock_guard lock(mutex);
    auto const found = std::find_if(connections.begin(), connections.end(),
                                    [&](auto const& held) { return held.get() == &connection; });
    if (found != connections.end())
        connections.erase(found);
}

} // namespace Velmora
