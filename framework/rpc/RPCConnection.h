// One two-way JSON-RPC connection, whatever carries it (a Unix socket line
// stream, a WebSocket). Either side may call the other: outgoing calls wait for
// their answer up to a deadline. An incoming request whose handler never
// blocks is answered at once on the reading thread; any other goes to a
// handler thread of the transport's context, apart from the reading threads,
// or to the thread of the command processor that the handler names for it, so
// a handler that blocks never stops the reading of this or any other
// connection. Notifications and answers are handled in arrival order, on the
// reading thread. No message a peer sends stops the reading: a malformed one
// is answered with an error or dropped. Texts beyond Deserializer's bounds on
// nesting and values are answered with -32600 before any value is built.
//
// Threads: call/notify/close from any thread. The transport calls receive()
// in order on its reading thread. The handler (not owned) must outlive the
// connection's transport threads.
#pragma once

#include "interfaces/IRPC.h"

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace Velmora {

class CommandProcessor;

class RPCConnection : public std::enable_shared_from_this<RPCConnection> {
public:
    // Who serves what arrives on a connection.
    class IHandler {
    public:
        virtual ~IHandler() = default;
        // A request; returns the serialize() text of a result, return or error object.
        virtual std::string handleRequest(RPCConnection& connection, IRPC::RPCSynchronousMethodObject const& request) = 0;
        // True when handleRequest for `method` never blocks, so that it may run
        // on the transport's thread without a hand-off to a worker.
        virtual bool neverBlocks(std::string const& method) const = 0;
        // The processor whose thread answers `request`, or null for a handler
        // thread. There the handler's calls to that processor's own operations
        // run in place: no hand-off to a handler thread and back. The request
        // is answered whatever happens: a processor that has stopped drops it,
        // and the peer gets the error "Invalid state".
        virtual CommandProcessor* answeringProcessor(IRPC::RPCSynchronousMethodObject const&) { return nullptr; }
        virtual void handleNotification(RPCConnection& connection, std::string const& name,
                                        Json::Value const& parameters) = 0;
        // false closes the new connection at once (too many connections).
        virtual bool handleOpened(std::shared_ptr<RPCConnection> const& connection) = 0;
        virtual void handleClosed(RPCConnection& connection) = 0;
    };

    // The outcome of an outgoing call that got an answer.
    struct Reply {
        bool ok = false;
        Json::Value result;
        int code = 0;
        std::string message;
    };

    static constexpr std::size_t MAX_MESSAGE_SIZE = 1 << 20;
    // Queued output beyond this closes the connection: a reader that slow is dropped.
    static constexpr std::size_t MAX_PENDING_OUTPUT = 16 << 20;
    // VELMORA_RPC_TIMEOUT_MS, else 2000.
    static unsigned int defaultTimeoutMs();

    explicit RPCConnection(IHandler& handler);
    virtual ~RPCConnection();
    RPCConnection(RPCConnection const&) = delete;
    RPCConnection& operator=(RPCConnection const&) = delete;

    // Calls `method` on the peer and waits. Throws Exception: ReturnTimedOut
    // when the deadline passes, ReturnGenericFailure when the connection is or
    // goes closed. An error answer is returned, not thrown.
    Reply call(std::string const& method, Json::Value const& params, unsigned int timeoutMs);
    Reply call(std::string const& method, Json::Value const& params) { return call(method, params, defaultTimeoutMs()); }
    // The same, but an error answer throws Exception(ReturnGenericFailure) too.
    Json::Value callOrThrow(std::string const& method, Json::Value const& params);
    // Calls `method` on the peer without waiting: `answered` runs once, on the
    // reading thread, with the answer, or with a reply that is not ok when the
    // connection ends first. Throws Exception(ReturnGenericFailure) when the
    // connection is closed. No deadline: the caller keeps its own.
    using Completion = std::function<void(Reply const&)>;
    void callDetached(std::string const& method, Json::Value params, Completion answered);
    void notify(std::string const& method, Json::Value const& params);
    // Sends one message text as it is.
    void sendText(std::string text);

    // Closes the transport; the close runs on the transport's thread.
    virtual void close() = 0;
    // Closes the transport once the output queued so far has been written.
    virtual void closeAfterOutput() { close(); }
    // Waits until the connection has closed or `timeoutMs` has passed; true if closed.
    bool waitClosed(unsigned int timeoutMs);
    // Once the context's threads have been joined, a close scheduled by
    // close() never runs: this ends the connection at once, from the thread
    // that stopped the context (the socket closes, calls in flight fail, the
    // handler hears it).
    void closeStopped();
    bool isOpen() const;
    // False for a one-shot exchange (an HTTP POST), which may not register a uid.
    virtual bool isLongLived() const { return true; }

    // Notification names this peer asked for ("*" = all).
    void subscribe(std::vector<std::string> const& names);
    void unsubscribe(std::vector<std::string> const& names);
    bool isSubscribed(std::string const& name) const;

    // The uid the peer registered under, empty if none.
    std::string getRegisteredUid() const;
    void setRegisteredUid(std::string const& uid);

protected:
    // Transport side: one complete message text, in arrival order.
    void receive(std::string const& text);
    // Transport side: the connection ended; fails the calls in flight, once.
    void closed();
    // Transport side: queue `text` for writing.
    virtual void write(std::string text) = 0;
    // Transport side: run `job` on a handler thread of the transport.
    virtual void runDetached(std::function<void()> job) = 0;
    // Transport side: answer `request` on `processor`'s thread; an exchange
    // that must answer before it returns answers in place.
    virtual void answerOn(CommandProcessor& processor, IRPC::RPCSynchronousMethodObject request, Json::Value id);
    // Transport side: close the socket at once; no transport thread runs.
    virtual void closeTransportStopped() {}

    void answer(IRPC::RPCSynchronousMethodObject const& request, Json::Value const& id);

private:
    struct PendingCall;
    class AnswerCommand;
    // Enters `call` in the table and sends the request; returns its id.
    unsigned long long send(std::string const& method, Json::Value params, std::shared_ptr<PendingCall> const& call);
    void dispatch(std::string const& text);
    void answerRequest(IRPC::RPCSynchronousMethodObject request, Json::Value id);
    // `reply`: the serialize() text of a result, return or error object.
    void sendReply(Json::Value const& id, std::string const& reply);
    void completeCall(Json::Value const& message);
    void sendError(Json::Value const& id, int code, std::string const& text);

    IHandler& handler;
    mutable std::mutex mutex;
    std::condition_variable closedCondition;
    bool open = true;
    unsigned long long nextId = 1;
    std::map<unsigned long long, std::shared_ptr<PendingCall>> pending;
    std::set<std::string> subscriptions;
    std::string registeredUid;
};

} // namespace Velmora
