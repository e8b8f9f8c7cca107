#include "rpc/RPCRegistry.h"

#include "frame/DebugPrint.h"
#include "rpc/RPCConnection.h"

#include <algorithm>

namespace Velmora {

static char const MODULE[] = "RPCRegistry";

RPCRegistry& RPCRegistry::getInstance()
{
    // Never destroyed: bus threads may still report while an exiting process
    // runs its static destructors.
    static RPCRegistry* const instance = new RPCRegistry();
    return *instance;
}

void RPCRegistry::deliver(std::unique_lock<std::mutex>& lock, IRegistrationListener* listener,
                          std::function<void(IRegistrationListener&)> const& call)
{
    auto const self = std::this_thread::get_id();
    calls.push_back({listener, self});
    lock.unlock();
    runLoggingExceptions(MODULE, __LINE__, "deliver", [&] { call(*listener); });
    lock.lock();
    auto const found = std::find_if(calls.begin(), calls.end(), [&](Call const& held) {
        return held.listener == listener && held.thread == self;
    });
    calls.erase(found);
    callEnded.notify_all();
}

void RPCRegistry::bind(std::string const& uid, IRegistrationListener* listener)
{
    std::unique_lock lock(mutex);
    Entry& entry = entries[uid];
    entry.listener = listener;
    auto connection = entry.connection.lock();
    if (!connection || !connection->isOpen())
        return;
    std::string report;
    Json::Value parameters;
    report.swap(entry.heldReport);
    parameters.swap(entry.heldParameters);
    deliver(lock, listener, [&](IRegistrationListener& target) {
        target.onRegistered(connection);
        if (!report.empty())
            target.onReport(report, parameters);
    });
}

void RPCRegistry::unbind(std::string const& uid, IRegistrationListener* listener)
{
    std::unique_lock lock(mutex);
    auto const found = entries.find(uid);
    if (found != entries.end() && found->second.listener == listener) {
        found->second.listener = nullptr;
        if (found->second.connection.expired())
            entries.erase(found);
    }
    auto const self = std::this_thread::get_id();
    callEnded.wait(lock, [&] {
        return std::none_of(calls.begin(), calls.end(), [&](Call const& call) {
            return call.listener == listener && call.thread != self;
        });
    });
}

bool RPCRegistry::registerConnection(std::string const& uid, std::shared_ptr<RPCConnection> const& connection)
{
    std::unique_lock lock(mutex);
    std::string const held = connection->getRegisteredUid();
    if (!held.empty() && held != uid) {
        VLOG(DebugLevelWarning, "registerConnection(): a connection of uid %s asked for uid %s\n", held.c_str(),
             uid.c_str());
        return false;
    }
    Entry& entry = entries[uid];
    auto const previous = entry.connection.lock();
    if (previous && previous != connection) {
        VLOG(DebugLevelInfo, "registerConnection(): uid %s registered again, replacing its connection\n",
             uid.c_str());
        previous->setRegisteredUid(std::string());
    }
    entry.connection = connection;
    connection->setRegisteredUid(uid);
    if (entry.listener)
        deliver(lock, entry.listener, [&](IRegistrationListener& target) { target.onRegistered(connection); });
    return true;
}

void RPCRegistry::report(RPCConnection& connection, std::string const& name, Json::Value const& parameters)
{
    std::string const uid = connection.getRegisteredUid();
    if (uid.empty())
        return;
    std::unique_lock lock(mutex);
    auto const found = entries.find(uid);
    if (found == entries.end() || found->second.connection.lock().get() != &connection)
        return;
    Entry& entry = found->second;
    if (entry.listener)
        return deliver(lock, entry.listener, [&](IRegistrationListener& target) { target.onReport(name, parameters); });
    entry.heldReport = name;
    entry.heldParameters = parameters;
}

void RPCRegistry::connectionClosed(RPCConnection& connection)
{
    std::string const uid = connection.getRegisteredUid();
    if (uid.empty())
        return;
    std::unique_lock lock(mutex);
    auto const found = entries.find(uid);
    if (found == entries.end())
        return;
    auto const current = found->second.connection.lock();
    if (current && current.get() != &connection)
        return; // an older connection of a uid that registered again
    found->second.connection.reset();
    if (!found->second.listener)
        return static_cast<void>(entries.erase(found));
    found->second.heldReport.clear();
    deliver(lock, found->second.listener, [](IRegistrationListener& target) { target.onUnregistered(); });
}

std::shared_ptr<RPCConnection> RPCRegistry::find(std::string const& uid)
{
    std::lock_guard lock(mutex);
    auto const found = entries.find(uid);
    return found == entries.end() ? nullptr : found->second.connection.lock();
}

} // namespace Velmora
