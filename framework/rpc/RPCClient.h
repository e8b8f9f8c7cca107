// The dialling side of the bus: one connection to a named endpoint, with its
// own reading thread and handler threads. It calls the server, follows
// notifications, and answers the server's calls with the methods set before
// connect().
//
// Threads: set the methods and handlers before connect(); call/notify from
// any thread; connect/disconnect and the destructor from one thread at a time.
// Methods run on the handler threads; quick methods, notification handlers
// and the closed handler on the reading thread, so they must never block. The
// closed handler runs once per connection, at the latest within disconnect()
// on the thread that calls it. The client may be disconnected or destroyed from
// one of its own handlers: that thread is not waited for, so the handler must
// not touch the client afterwards.
#pragma once

#include "rpc/RPCConnection.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace Velmora {

class RPCIoContext;

class RPCClient : private RPCConnection::IHandler {
public:
    // A method of this side: parameters in, result out; a throw becomes an error answer.
    using Method = std::function<Json::Value(Json::Value const& params)>;
    using NotificationHandler = std::function<void(std::string const& name, Json::Value const& params)>;
    using ClosedHandler = std::function<void()>;

    // Up to `handlerThreads` methods may block at once.
    explicit RPCClient(unsigned int handlerThreads = 2);
    ~RPCClient() override;
    RPCClient(RPCClient const&) = delete;
    RPCClient& operator=(RPCClient const&) = delete;

    // A method that may block (it is answered on a worker thread).
    void setMethod(std::string const& name, Method method);
    // A method that never blocks: answered at once, without a thread hand-off.
    void setQuickMethod(std::string const& name, Method method);
    void setNotificationHandler(NotificationHandler handler);
    void setClosedHandler(ClosedHandler handler);

    // Dials <runtime>/<name>.sock; throws Exception when nobody answers.
    void connect(std::string const& endpointName);
    void connectPath(std::string const& path);
    void disconnect();
    bool isConnected() const;

    // See RPCConnection::call; throws Exception(ReturnGenericFailure) when not connected.
    RPCConnection::Reply call(std::string const& method, Json::Value const& params);
    RPCConnection::Reply call(std::string const& method, Json::Value const& params, unsigned int timeoutMs);
    Json::Value callOrThrow(std::string const& method, Json::Value const& params);
    void notify(std::string const& method, Json::Value const& params);
    // The connection, null before connect().
    std::shared_ptr<RPCConnection> getConnection() const;

private:
    std::string handleRequest(RPCConnection& connection, IRPC::RPCSynchronousMethodObject const& request) override;
    bool neverBlocks(std::string const& method) const override;
    void handleNotification(RPCConnection& connection, std::string const& name, Json::Value const& parameters) override;
    bool handleOpened(std::shared_ptr<RPCConnection> const& connection) override;
    void handleClosed(RPCConnection& connection) override;
    std::shared_ptr<RPCConnection> requireConnection(char const* operation) const;

    unsigned int handlerThreads;
    std::map<std::string, Method> methods;
    std::set<std::string> quickMethods;
    NotificationHandler notificationHandler;
    ClosedHandler closedHandler;
    std::unique_ptr<RPCIoContext> context;
    mutable std::mutex mutex;
    std::shared_ptr<RPCConnection> connection;
};

} // namespace Velmora
