// Which program connection serves which uid, process-wide. A connection holds
// one uid; a connection that registers a uid replaces the one before it; the
// client object bound to the uid hears of the registration, of the program's
// reports and of its loss, which comes when the connection closes.
//
// Threads: any. Listeners are called without the registry's lock, on the
// thread that delivers the event (for reports and loss the connection's
// reading thread); they must not block. unbind() waits for a call into that
// listener still running on another thread, so once it returns the listener
// may be destroyed; from inside such a call (a client deleted from its own
// report) it does not wait.
#pragma once

#include <json/value.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Velmora {

class RPCConnection;

class RPCRegistry {
public:
    class IRegistrationListener {
    public:
        virtual ~IRegistrationListener() = default;
        virtual void onRegistered(std::shared_ptr<RPCConnection> const& connection) = 0;
        virtual void onReport(std::string const& name, Json::Value const& parameters) = 0;
        virtual void onUnregistered() = 0;
    };

    static RPCRegistry& getInstance();

    // Binds the listener (not owned) to `uid`; told at once when the uid is registered.
    void bind(std::string const& uid, IRegistrationListener* listener);
    void unbind(std::string const& uid, IRegistrationListener* listener);

    // False when the connection has registered another uid already.
    bool registerConnection(std::string const& uid, std::shared_ptr<RPCConnection> const& connection);
    // A notification from a registered connection; ignored for any other.
    void report(RPCConnection& connection, std::string const& name, Json::Value const& parameters);
    void connectionClosed(RPCConnection& connection);
    std::shared_ptr<RPCConnection> find(std::string const& uid);

private:
    struct Entry {
        std::weak_ptr<RPCConnection> connection;
        IRegistrationListener* listener = nullptr;
        // The last report of a program that dialled in before its client was
        // bound (a quick program beats its launcher): handed over at bind.
        std::string heldReport;
        Json::Value heldParameters;
    };
    struct Call {
        IRegistrationListener* listener;
        std::thread::id thread;
    };
    // Runs `call` on `listener` without the lock, which `lock` holds on entry and on return.
    void deliver(std::unique_lock<std::mutex>& lock, IRegistrationListener* listener,
                 std::function<void(IRegistrationListener&)> const& call);

    std::mutex mutex;
    std::map<std::string, Entry> entries;
    std::vector<Call> calls; // listener calls in flight
    std::condition_variable callEnded;
};

} // namespace Velmora
