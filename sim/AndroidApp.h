// One "Android" application that the slave runs: its process, the program's
// connection to the slave's endpoint (found by uid through the registry) and
// the state it last reported.
//
// The program's state and keep-alive reports go on to the master as
// "IApplicationManager::onStateChange" {uid, oldState, newState} and
// "IApplicationManager::onKeepAlive" {uid, state}. The application is gone
// once its process has been reaped and its connection has closed, in either
// order, since the connection still carries what the program wrote before it
// died; an application that did not report a terminated state (a crash, a
// SIGKILL) is then reported TERMINATED. `onGone` runs once, last, and its
// owner may destroy the application from inside it.
//
// A terminate from the master is passed on to the program, which then has
// TERMINATE_GRACE to end before it is killed: the master forgets a silent
// window after a while, and the slave must not keep its process.
//
// Threads: any. Reports arrive on the endpoint's reading threads, reap() on
// the slave's signal loop; the destructor waits for both.
#pragma once

#include "ChildProcess.h"
#include "rpc/RPCConnection.h"
#include "rpc/RPCRegistry.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Velmora {

class AndroidApp : private RPCRegistry::IRegistrationListener {
public:
    using Reporter = std::function<void(std::string const& event, Json::Value const& params)>;
    using GoneHandler = std::function<void(std::string const& uid)>;

    static constexpr std::chrono::seconds TERMINATE_GRACE{3};

    // Starts the program at `path` for the launch `record` (its
    // VELMORA_APP_PARAMETERS), dialling back to `endpoint`. The uid is the
    // record's authorization token, else the process id. Throws Exception
    // when the process cannot be started.
    AndroidApp(std::string const& path, std::string const& endpoint, Json::Value const& record, Reporter reporter,
               GoneHandler onGone);
    ~AndroidApp() override;
    AndroidApp(AndroidApp const&) = delete;
    AndroidApp& operator=(AndroidApp const&) = delete;

    std::string const& getUid() const { return uid; }
    // Calls "<Interface>.<method>" on the program; a failed reply when it has not dialled in or has gone.
    RPCConnection::Reply call(std::string const& method, Json::Value const& params);
    // True once the program reported its end or its process ended: a call that fails then finds it leaving.
    bool hasLeft();
    // The master's terminate, passed on; the process is killed if it outlives TERMINATE_GRACE.
    RPCConnection::Reply terminate(Json::Value const& params);
    // SIGTERM to the process (the slave ends).
    void stop() { process.signal(SIGTERM); }
    // SIGKILL to the process (it outlived the slave's end).
    void kill() { process.signal(SIGKILL); }
    // Reaps the process if `pid` is its own and it has ended; true when it was this application's.
    bool reap(pid_t pid);

private:
    void onRegistered(std::shared_ptr<RPCConnection> const& connection) override;
    void onReport(std::string const& name, Json::Value const& parameters) override;
    void onUnregistered() override;
    // Tells the owner, once, when both the process and the connection have ended.
    void settle(std::unique_lock<std::mutex>& lock);
    void killAfterGrace();

    ChildProcess process;
    std::string const uid;
    Reporter const reporter;
    GoneHandler const onGone;

    std::mutex mutex;
    std::condition_variable ended;
    std::shared_ptr<RPCConnection> connection;
    std::string state = "UNINITIALIZED";
    bool processEnded = false;
    bool told = false;
    bool closing = false;
    std::thread killer; // started by the first terminate
};

} // namespace Velmora
