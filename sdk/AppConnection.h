// What a program links to talk to the server: it learns its uid from
// VELMORA_APP_PARAMETERS (authorizationToken, else its pid), dials the server
// named by VELMORA_APP_HOSTNAME, registers, reports its states and
// keep-alives, and answers the server's lifecycle, window and event calls.
//
// Threads: set the callbacks before connect(); the callbacks run on the
// connection's threads; the focus and event callbacks run on its reading
// thread, in the order of the calls, and must not block (the program's other
// calls wait behind them); reportState/keepAlive from any thread. Destruction
// disconnects, which waits for the methods still running and their answers.
//
// When the server closes the connection (it stops, or it dies) the
// server-gone callback runs on the reading thread; by default it is the exit
// callback: a server that starts again knows nothing of an application, which
// would only hold its screen and memory. Destruction does not call it.
#pragma once

#include "rpc/RPCClient.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

namespace Velmora {

class AppConnection {
public:
    using Callback = std::function<void()>;
    using FlagCallback = std::function<void(bool)>;
    using EventCallback = std::function<bool(Json::Value const& event)>;
    using TokenCallback = std::function<void(std::string const& method, Json::Value const& params)>;

    AppConnection();
    ~AppConnection();

    // The uid this program registers under.
    static std::string uidFromEnvironment();

    // Told when the server asks the program to end; the default reports
    // TERMINATED and calls the exit callback.
    void onTerminate(Callback callback) { terminateCallback = std::move(callback); }
    // Told when the program should end: after the default terminate, and when
    // the server has gone. It must not block.
    void onExitRequested(Callback callback) { exitCallback = std::move(callback); }
    // Replaces the exit on the server's going (a platform service outlives it). It must not block.
    void onServerGone(Callback callback) { serverGoneCallback = std::move(callback); }
    void onFocus(FlagCallback callback) { focusCallback = std::move(callback); }
    void onVisibility(FlagCallback callback) { visibilityCallback = std::move(callback); }
    void onEvent(EventCallback callback) { eventCallback = std::move(callback); }
    void onToken(TokenCallback callback) { tokenCallback = std::move(callback); }
    // Replaces or adds an answer to "<Interface>.<method>"; it may block.
    void setMethod(std::string const& name, RPCClient::Method method) { client.setMethod(name, std::move(method)); }

    // Dials and registers; waits up to 10 s for the server's endpoint to
    // appear, then throws Exception when the server is not there.
    void connect();
    void reportState(std::string const& state);
    void keepAlive();
    std::string getState() const;
    std::string const& getUid() const { return uid; }

private:
    void installMethods();
    // Dials once; false when nobody answers.
    bool tryConnect(std::string const& server);
    // Dials again under a watch of the endpoint, and once more when it appears
    // within the wait; throws Exception otherwise.
    void awaitAndConnect(std::string const& server);

    std::string uid;
    RPCClient client;
    mutable std::mutex mutex;
    std::string state = "UNINITIALIZED";
    bool focused = false;
    bool visible = false;
    std::atomic<bool> leaving = false; // set by the destructor: its own disconnect is no server gone
    Callback terminateCallback;
    Callback exitCallback;
    Callback serverGoneCallback;
    FlagCallback focusCallback;
    FlagCallback visibilityCallback;
    EventCallback eventCallback;
    TokenCallback tokenCallback;
};

} // namespace Velmora
