#include "rpc/RPCClient.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "rpc/RPCIoContext.h"
#include "rpc/RuntimeDirectory.h"
#include "rpc/UnixEndpoint.h"

namespace Velmora {

static char const MODULE[] = "RPCClient";

RPCClient::RPCClient(unsigned int handlerThreads) : handlerThreads(handlerThreads) {}

RPCClient::~RPCClient() { disconnect(); }

void RPCClient::setMethod(std::string const& name, Method method)
{
    methods[name] = std::move(method);
    quickMethods.erase(name);
}

void RPCClient::setQuickMethod(std::string const& name, Method method)
{
    methods[name] = std::move(method);
    quickMethods.insert(name);
}

void RPCClient::setNotificationHandler(NotificationHandler handler) { notificationHandler = std::move(handler); }

void RPCClient::setClosedHandler(ClosedHandler handler) { closedHandler = std::move(handler); }

void RPCClient::connect(std::string const& endpointName) { connectPath(RuntimeDirectory::endpointPath(endpointName)); }

void RPCClient::connectPath(std::string const& path)
{
    disconnect();
    // One reading thread: a single connection gains nothing from more.
    context = std::make_unique<RPCIoContext>(1, handlerThreads);
    try {
        UnixEndpoint::connect(*context, path, *this);
    } catch (...) {
        context.reset();
        throw;
    }
}

void RPCClient::disconnect()
{
    // The handlers still running finish first; what they and others sent is
    // written out (up to the call deadline, for a peer that does not read);
    // then the connection ends on this thread. A loop thread cannot wait for
    // its own loop, so there the output still queued is dropped.
    auto const current = getConnection();
    if (context) {
        context->stopHandlers();
        if (current && !context->isLoopThread()) {
            current->closeAfterOutput();
            current->waitClosed(RPCConnection::defaultTimeoutMs());
        }
        context->stop();
    }
    if (current)
        current->closeStopped();
    {
        std::lock_guard lock(mutex);
        connection.reset();
    }
    context.reset();
}

bool RPCClient::isConnected() const
{
    std::lock_guard lock(mutex);
    return connection && connection->isOpen();
}

std::shared_ptr<RPCConnection> RPCClient::getConnection() const
{
    std::lock_guard lock(mutex);
    return connection;
}

std::shared_ptr<RPCConnection> RPCClient::requireConnection(char const* operation) const
{
    auto current = getConnection();
    if (!current) {
        VLOG(DebugLevelError, "%s(): not connected\n", operation);
        throwException(MODULE, __LINE__, operation, ReturnGenericFailure);
    }
    return current;
}

RPCConnection::Reply RPCClient::call(std::string const& method, Json::Value const& params)
{
    return requireConnection("call")->call(method, params);
}

RPCConnection::Reply RPCClient::call(std::string const& method, Json::Value const& params, unsigned int timeoutMs)
{
    return requireConnection("call")->call(method, params, timeoutMs);
}

Json::Value RPCClient::callOrThrow(std::string const& method, Json::Value const& params)
{
    return requireConnection("callOrThrow")->callOrThrow(method, params);
}

void RPCClient::notify(std::string const& method, Json::Value const& params)
{
    requireConnection("notify")->notify(method, params);
}

std::string RPCClient::handleRequest(RPCConnection&, IRPC::RPCSynchronousMethodObject const& request)
{
    auto const found = methods.find(request.getMethod());
    if (found == methods.end())
        return IRPC::RPCErrorObject(request.getMethod(), "Method not found", IRPC::METHOD_NOT_FOUND).serialize();
    Method const method = found->second; // a method may destroy the client, and with it the map
    Json::Value const& params = request.getBody()["params"];
    return IRPC::RPCResultObject(request.getMethod(), method(params)).serialize();
}

bool RPCClient::neverBlocks(std::string const& method) const { return quickMethods.count(method) != 0; }

void RPCClient::handleNotification(RPCConnection&, std::string const& name, Json::Value const& parameters)
{
    if (notificationHandler)
        notificationHandler(name, parameters);
}

bool RPCClient::handleOpened(std::shared_ptr<RPCConnection> const& opened)
{
    std::lock_guard lock(mutex);
    connection = opened;
    return true;
}

void RPCClient::handleClosed(RPCConnection&)
{
    if (ClosedHandler const handler = closedHandler; handler)
        handler();
}

} // namespace Velmora
