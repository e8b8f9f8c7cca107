// The base of every bus endpoint: a name, a map from interface name to method
// table, and the transport under it. init() opens the Unix endpoint
// <runtime>/<name>.sock and, when getFixedRPCAddress() names a loopback
// address, WebSocket and HTTP POST on it. Built-in methods: RPC.subscribe and
// RPC.unsubscribe ({"events": [names]}, "*" for all), RPC.register
// ({"uid"}: a program binds its long-lived connection to one uid, until the
// connection closes; an HTTP POST cannot register) and RPC.ping.
//
// Threads: handlers run on the server's handler threads, several at once,
// apart from the threads that read the sockets, so a blocked handler never
// stops reading; the built-ins and the methods in quickMethods run on the
// thread that read the request, without a hand-off, and so must never block.
// handleRPCNotification may be called from any thread. init/shutdown from the
// owner's thread, never from a handler. The interface map is filled by the
// subclass's constructor and is read-only afterwards.
#pragma once

#include "interfaces/IRPC.h"
#include "rpc/RPCConnection.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace Velmora {

class RPCIoContext;
class RPCListener;

class RPCServer : protected RPCConnection::IHandler {
public:
    using RPCMethod = std::string (RPCServer::*)(IRPC::RPCSynchronousMethodObject const&);
    using MethodTable = std::map<std::string, RPCMethod>;

    // More connections than this are closed as they arrive.
    static constexpr std::size_t MAX_CONNECTIONS = 512;

    explicit RPCServer(std::string const& name);
    ~RPCServer() override;

    // Finds "<Interface>.<method>" in the map and runs it; -32601 when absent.
    virtual std::string handleRPCSynchronousMethod(IRPC::RPCSynchronousMethodObject const& method);
    // A call without an answer from a peer that is not a registered program.
    virtual void handleRPCAsynchronousMethod(IRPC::RPCAsynchronousMethodObject const& method);
    // Sends the notification to every subscriber of its name.
    virtual void handleRPCNotification(IRPC::RPCNotificationObject const& notification);
    // Opens the endpoints; throws Exception when the name is taken by a live endpoint.
    virtual void init();
    // Closes endpoints and connections and joins the threads; idempotent.
    virtual void shutdown();
    // One whole request text in, the reply text out (empty for a notification).
    virtual std::string handleRPCSynchronousMethodPayload(std::string const& payload);
    virtual void handleRPCNotification(std::string const& name, std::string const& parameters);
    // "127.0.0.1:<port>" (port 0: any free one) to serve WebSocket and HTTP
    // POST there too; empty for the Unix endpoint only.
    virtual std::string getFixedRPCAddress();

    std::string const& getName() const { return name; }
    // The bound TCP port after init(), 0 when none.
    unsigned short getPort() const;
    std::size_t getConnectionCount() const;

protected:
    std::map<std::string, MethodTable> interfaces;
    // "<Interface>.<method>" names whose handlers never block (no lock held
    // for long, no call to a peer): answered at once on the connection's thread.
    std::set<std::string> quickMethods;

    std::string handleRequest(RPCConnection& connection, IRPC::RPCSynchronousMethodObject const& request) override;
    bool neverBlocks(std::string const& method) const override;
    void handleNotification(RPCConnection& connection, std::string const& name, Json::Value const& parameters) override;
    bool handleOpened(std::shared_ptr<RPCConnection> const& connection) override;
    void handleClosed(RPCConnection& connection) override;

private:
    std::string handleBuiltIn(RPCConnection& connection, IRPC::RPCSynchronousMethodObject const& request);
    void openWebEndpoint(std::string const& address);
    std::vector<std::shared_ptr<RPCConnection>> snapshot() const;

    std::string name;
    // Set as shutdown() begins: a request that reaches a handler after it (one
    // queued on a manager's thread) is answered with an error, not run.
    std::atomic<bool> stopping = false;
    std::unique_ptr<RPCIoContext> context;
    std::vector<std::shared_ptr<RPCListener>> listeners;
    mutable std::mutex mutex;
    std::set<std::shared_ptr<RPCConnection>> connections;
};

} // namespace Velmora
