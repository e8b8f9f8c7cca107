// Which program connection serves which uid, process-wide. A connection that
// registers a uid replaces the one before it; the client object bound to the
// uid hears of the registration, of the program's reports and of its loss.
//
// Threads: any. Listener calls are made under the registry's lock, so that
// unbind() returning means no call is running; listeners must not block and
// must not call back into the registry.
#pragma once

#include <json/value.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

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

    void registerConnection(std::string const& uid, std::shared_ptr<RPCConnection> const& connection);
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
    std::mutex mutex;
    std::map<std::string, Entry> entries;
};

} // namespace Velmora
