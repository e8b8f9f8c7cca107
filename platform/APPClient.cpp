#include "APPClient.h"

#include "ClientFactory.h"

#include "frame/DebugPrint.h"
#include "serial/Deserializer.h"
#include "frame/Exception.h"
#include "interfaces/IRPC.h"
#include "frame/ListenerList.h"
#include "rpc/RPCConnection.h"

namespace Velmora {

static char const MODULE[] = "APPClient";

namespace {

Json::Value withUid(std::string const& uid)
{
    Json::Value params(Json::objectValue);
    params["uid"] = uid;
    return params;
}

Json::Value withUid(std::string const& uid, char const* key, Json::Value value)
{
    Json::Value params = withUid(uid);
    params[key] = std::move(value);
    return params;
}

template <class Record>
Record readRecord(Json::Value const& value)
{
    Deserializer deserializer(IRPC::write(value));
    return Record(deserializer);
}

bool asBool(Json::Value const& value) { return value.isBool() && value.asBool(); }
unsigned int asUnsigned(Json::Value const& value) { return value.isUInt() ? value.asUInt() : 0; }

} // namespace

APPClient* APPClient::create(Client::Type type, std::string const& uid)
{
    return ClientFactory<APPClient>::create(type, uid);
}

void APPClient::setFactory(Factory replacement) { ClientFactory<APPClient>::set(std::move(replacement)); }

APPClient::APPClient(Client::Type type, std::string const& uid)
    : type(type), uid(uid), connectionMutex(MODULE)
{
}

APPClient::~APPClient()
{
    if (bound)
        RPCRegistry::getInstance().unbind(uid, this);
}

void APPClient::init()
{
    if (bound)
        return;
    bound = true;
    RPCRegistry::getInstance().bind(uid, this);
}

std::string const& APPClient::getUid() const { return uid; }

void APPClient::addListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listeners->mutex);
    if (Velmora::addListener(listeners->list, listener))
        listeners->changed = true;
}

void APPClient::removeListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listeners->mutex);
    if (Velmora::removeListener(listeners->list, listener))
        listeners->changed = true;
}

// A copy of the uid: a listener may delete the client during the walk.
void APPClient::notifyKeepAlive(std::string const& state) { notifyKeepAlive(std::string(uid), state); }

void APPClient::notifyStateChange(std::string const& oldState, std::string const& newState)
{
    notifyStateChange(std::string(uid), oldState, newState);
}

template <class Notify>
void APPClient::notifyListeners(Notify&& notify)
{
    std::shared_ptr<Listeners> const held = listeners; // the client may go during the walk
    fanOut(held->mutex, held->list, held->changed, std::forward<Notify>(notify));
}

void APPClient::notifyKeepAlive(std::string const& reportedUid, std::string const& state)
{
    notifyListeners([&](ILifecycleManagementListener* listener) { listener->onKeepAlive(reportedUid, state); });
}

void APPClient::notifyStateChange(std::string const& reportedUid, std::string const& oldState,
                                  std::string const& newState)
{
    notifyListeners([&](ILifecycleManagementListener* listener) {
        listener->onStateChange(reportedUid, oldState, newState);
    });
}

void APPClient::failNotConnected(char const* operation) const
{
    VLOG(DebugLevelError, "%s(): application %s is not connected\n", operation, uid.c_str());
    throwException(MODULE, __LINE__, operation, ReturnGenericFailure);
}

std::string APPClient::interfaceName(Side side) const
{
    switch (side) {
    case Side::Lifecycle:
        return "ILifecycleManagement";
    case Side::Compositing:
        return "IWindowCompositing";
    case Side::Event:
        break;
    }
    return "IWindowEvent";
}

std::shared_ptr<RPCConnection> APPClient::currentConnection()
{
    Mutex::ScopedLock lock(&connectionMutex);
    return connection && connection->isOpen() ? connection : nullptr;
}

Json::Value APPClient::request(Side side, char const* method, Json::Value params)
{
    auto const peer = currentConnection();
    if (!peer)
        failNotConnected(method);
    RPCConnection::Reply reply = peer->call(interfaceName(side) + "." + method, params);
    if (!reply.ok) {
        VLOG(DebugLevelError, "%s(): application %s answered: %s\n", method, uid.c_str(), reply.message.c_str());
        throwException(MODULE, __LINE__, method, ReturnGenericFailure);
    }
    return std::move(reply.result);
}

void APPClient::onRegistered(std::shared_ptr<RPCConnection> const& registered)
{
    {
        // The events posted to an older connection are no debt of the new one.
        std::lock_guard posted(postedEvents->mutex);
        postedEvents->unanswered.clear();
        postedEvents->overdueAnswers = 0;
        postedEvents->failed = false;
        ++postedEvents->connection;
    }
    Mutex::ScopedLock lock(&connectionMutex);
    connection = registered;
    for (auto& [method, params] : pendingTokens)
        connection->notify(method, params);
    pendingTokens.clear();
}

void APPClient::onReport(std::string const& name, Json::Value const& parameters)
{
    auto const text = [&](char const* key) {
        Json::Value const& value = parameters[key];
        return value.isString() ? value.asString() : std::string();
    };
    if (!parameters.isObject())
        return;
    if (name == "ILifecycleManagement::onStateChange")
        notifyStateChange(text("oldState"), text("newState"));
    else if (name == "ILifecycleManagement::onKeepAlive")
        notifyKeepAlive(text("state"));
}

void APPClient::onUnregistered()
{
    Mutex::ScopedLock lock(&connectionMutex);
    connection.reset();
}

void APPClient::sendToken(char const* method, Json::Value params)
{
    std::string const name = std::string("IServiceManager.") + method;
    Mutex::ScopedLock lock(&connectionMutex);
    if (connection && connection->isOpen())
        connection->notify(name, params);
    else
        pendingTokens.emplace_back(name, std::move(params));
}

std::string APPClient::getState(std::string const& id)
{
    Json::Value const state = request(Side::Lifecycle, "getState", withUid(id));
    return state.isString() ? state.asString() : std::string();
}

void APPClient::setState(std::string const& id, std::string const& requestedState)
{
    request(Side::Lifecycle, "setState", withUid(id, "state", requestedState));
}

void APPClient::activate(std::string const& id) { request(Side::Lifecycle, "activate", withUid(id)); }
void APPClient::suspend(std::string const& id) { request(Side::Lifecycle, "suspend", withUid(id)); }
void APPClient::terminate(std::string const& id) { request(Side::Lifecycle, "terminate", withUid(id)); }

ILifecycleManagement::RuntimeStatistics APPClient::getRuntimeStatistics(std::string const& id)
{
    return readRecord<RuntimeStatistics>(request(Side::Lifecycle, "getRuntimeStatistics", withUid(id)));
}

void APPClient::setVisibility(std::string const& id, bool visible)
{
    request(Side::Compositing, "setVisibility", withUid(id, "visible", visible));
}

bool APPClient::getVisibility(std::string const& id)
{
    return asBool(request(Side::Compositing, "getVisibility", withUid(id)));
}

void APPClient::setOpacity(std::string const& id, unsigned int opacity)
{
    request(Side::Compositing, "setOpacity", withUid(id, "opacity", opacity));
}

unsigned int APPClient::getOpacity(std::string const& id)
{
    return asUnsigned(request(Side::Compositing, "getOpacity", withUid(id)));
}

void APPClient::setZOrder(std::string const& id, unsigned int zOrder)
{
    request(Side::Compositing, "setZOrder", withUid(id, "zorder", zOrder));
}

unsigned int APPClient::getZOrder(std::string const& id)
{
    return asUnsigned(request(Side::Compositing, "getZOrder", withUid(id)));
}

void APPClient::setLocation(std::string const& id, Rect const& location)
{
    request(Side::Compositing, "setLocation", withUid(id, "location", IRPC::toJson(location)));
}

ISurfaceCompositing::Rect APPClient::getLocation(std::string const& id)
{
    return readRecord<Rect>(request(Side::Compositing, "getLocation", withUid(id)));
}

void APPClient::bringToFront(std::string const& id) { request(Side::Compositing, "bringToFront", withUid(id)); }
void APPClient::sendToBack(std::string const& id) { request(Side::Compositing, "sendToBack", withUid(id)); }
void APPClient::bringForward(std::string const& id) { request(Side::Compositing, "bringForward", withUid(id)); }
void APPClient::sendBackward(std::string const& id) { request(Side::Compositing, "sendBackward", withUid(id)); }

void APPClient::handleFocus(std::string const& id, bool focus)
{
    request(Side::Event, "handleFocus", withUid(id, "focus", focus));
}

bool APPClient::isFocused(std::string const& id) { return asBool(request(Side::Event, "isFocused", withUid(id))); }

bool APPClient::handleEvent(std::string const& id, Event const& event)
{
    return asBool(request(Side::Event, "handleEvent", withUid(id, "event", IRPC::toJson(event))));
}

void APPClient::postEvent(std::string const& id, Event const& event)
{
    auto const now = std::chrono::steady_clock::now();
    if (takeEventFailure(now)) {
        VLOG(DebugLevelError, "handleEvent(): application %s failed an earlier event\n", uid.c_str());
        throwException(MODULE, __LINE__, "handleEvent", ReturnGenericFailure);
    }
    // Read before the peer: a registration in between makes this event owed
    // by no connection rather than count an older one's loss against the new.
    unsigned int connection = 0;
    {
        std::lock_guard lock(postedEvents->mutex);
        connection = postedEvents->connection;
    }
    auto const peer = currentConnection();
    if (!peer)
        failNotConnected("handleEvent");
    {
        std::lock_guard lock(postedEvents->mutex);
        if (postedEvents->connection == connection)
            postedEvents->unanswered.push_back(now);
    }
    peer->callDetached(interfaceName(Side::Event) + ".handleEvent", withUid(id, "event", IRPC::toJson(event)),
                       [posted = postedEvents, connection](RPCConnection::Reply const& reply) {
                           std::lock_guard lock(posted->mutex);
                           if (posted->connection != connection)
                               return; // owed by a connection that a newer registration replaced
                           if (posted->overdueAnswers > 0) {
                               --posted->overdueAnswers;
                               return;
                           }
                           if (!posted->unanswered.empty())
                               posted->unanswered.pop_front();
                           posted->failed = posted->failed || !reply.ok;
                       });
}

bool APPClient::takeEventFailure(std::chrono::steady_clock::time_point now)
{
    auto const deadline = std::chrono::milliseconds(RPCConnection::defaultTimeoutMs());
    std::lock_guard lock(postedEvents->mutex);
    PostedEvents& posted = *postedEvents;
    if (posted.failed) {
        posted.failed = false;
        return true;
    }
    bool overdue = false;
    while (!posted.unanswered.empty() && now - posted.unanswered.front() > deadline) {
        posted.unanswered.pop_front();
        ++posted.overdueAnswers;
        overdue = true;
    }
    return overdue;
}

void APPClient::authorizationTokenCreation(unsigned int token, IServiceManager::Rights const& rights)
{
    Json::Value params(Json::objectValue);
    params["token"] = token;
    params["authAttrInternal"] = rights.serialize();
    sendToken("authorizationTokenCreation", std::move(params));
}

void APPClient::authorizationTokenDeletion(unsigned int token)
{
    Json::Value params(Json::objectValue);
    params["token"] = token;
    sendToken("authorizationTokenDeletion", std::move(params));
}

} // namespace Velmora
