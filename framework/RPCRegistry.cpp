#include "RPCRegistry.h"

#include "DebugPrint.h"
#include "RPCConnection.h"

namespace Velmora {

static char const MODULE[] = "RPCRegistry";

RPCRegistry& RPCRegistry::getInstance()
{
    // Never destroyed: bus threads may still report while an exiting process
    // runs its static destructors.
    static RPCRegistry* const instance = new RPCRegistry();
    return *instance;
}

void RPCRegistry::bind(std::string const& uid, IRegistrationListener* listener)
{
    std::lock_guard lock(mutex);
    Entry& entry = entries[uid];
    entry.listener = listener;
    auto connection = entry.connection.lock();
    if (!connection || !connection->isOpen())
        return;
    listener->onRegistered(connection);
    if (entry.heldReport.empty())
        return;
    listener->onReport(entry.heldReport, entry.heldParameters);
    entry.heldReport.clear();
    entry.heldParameters = Json::Value();
}

void RPCRegistry::unbind(std::string const& uid, IRegistrationListener* listener)
{
    std::lock_guard lock(mutex);
    auto const found = entries.find(uid);
    if (found == entries.end() || found->second.listener != listener)
        return;
    found->second.listener = nullptr;
    if (found->second.connection.expired())
        entries.erase(found);
}

void RPCRegistry::registerConnection(std::string const& uid, std::shared_ptr<RPCConnection> const& connection)
{
    std::lock_guard lock(mutex);
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
        entry.listener->onRegistered(connection);
}

void RPCRegistry::report(RPCConnection& connection, std::string const& name, Json::Value const& parameters)
{
    std::string const uid = connection.getRegisteredUid();
    if (uid.empty())
        return;
    std::lock_guard lock(mutex);
    auto const found = entries.find(uid);
    if (found == entries.end() || found->second.connection.lock().get() != &connection)
        return;
    Entry& entry = found->second;
    if (entry.listener) {
        entry.listener->onReport(name, parameters);
        return;
    }
    entry.heldReport = name;
    entry.heldParameters = parameters;
}

void RPCRegistry::connectionClosed(RPCConnection& connection)
{
    std::string const uid = connection.getRegisteredUid();
    if (uid.empty())
        return;
    std::lock_guard lock(mutex);
    auto const found = entries.find(uid);
    if (found == entries.end())
        return;
    auto const current = found->second.connection.lock();
    if (current && current.get() != &connection)
        return; // an older connection of a uid that registered again
    found->second.connection.reset();
    if (found->second.listener)
        found->second.listener->onUnregistered();
    else
        entries.erase(found);
}

std::shared_ptr<RPCConnection> RPCRegistry::find(std::string const& uid)
{
    std::lock_guard lock(mutex);
    auto const found = entries.find(uid);
    return found == entries.end() ? nullptr : found->second.connection.lock();
}

} // namespace Velmora
