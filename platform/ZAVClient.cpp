#include "ZAVClient.h"

#include "EndpointWatch.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "interfaces/ILifecycleManagement.h"
#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"

namespace Velmora {

static char const MODULE[] = "ZAVClient";

static char const STATE_CHANGE[] = "IApplicationManager::onStateChange";
static char const KEEP_ALIVE[] = "IApplicationManager::onKeepAlive";

ZAVClient* ZAVClient::create(Client::Type type, std::string const& name) { return new ZAVClient(type, name); }

ZAVClient::ZAVClient(Client::Type type, std::string const& name)
    : APPClient(type, name), dialMutex(MODULE), servedMutex(MODULE)
{
}

ZAVClient::~ZAVClient()
{
    {
        Mutex::ScopedLock lock(&servedMutex);
        served.clear(); // the client's own end is no loss of the slave
    }
    Mutex::ScopedLock lock(&dialMutex);
    slave.reset();
}

void ZAVClient::init()
{
    runLoggingExceptions(MODULE, __LINE__, "init", [this] { currentConnection(); });
}

std::string const& ZAVClient::getServerUid() const { return uid; }

std::string ZAVClient::interfaceName(Side side) const
{
    return side == Side::Lifecycle ? "IApplicationManager" : "IWindowManager";
}

std::shared_ptr<RPCConnection> ZAVClient::currentConnection()
{
    Mutex::ScopedLock lock(&dialMutex);
    if (slave && slave->isConnected())
        return slave->getConnection();
    slave.reset();
    if (absent && absent->valid() && absent->await(0) != EndpointWatch::Result::Appeared)
        throw Exception(ReturnGenericFailure); // told once, when it was found gone
    auto watch = std::make_unique<EndpointWatch>(uid); // before the dial: no appearance is missed
    auto dialled = std::make_unique<RPCClient>(1);
    dialled->setNotificationHandler(
        [this](std::string const& name, Json::Value const& params) { onSlaveNotification(name, params); });
    dialled->setClosedHandler([this] { onSlaveLost(); });
    try {
        dialled->connect(uid);
        Json::Value events(Json::arrayValue);
        events.append(STATE_CHANGE);
        events.append(KEEP_ALIVE);
        Json::Value params;
        params["events"] = events;
        dialled->callOrThrow("RPC.subscribe", params);
    } catch (Exception const&) {
        if (dialled->isConnected()) { // up, but slow or failing to answer: the next call dials again
            VLOG(DebugLevelError, "currentConnection(): slave server %s did not take the subscription\n", uid.c_str());
            return nullptr;
        }
        if (!absent)
            VLOG(DebugLevelError, "currentConnection(): slave server %s is not reachable; dialled again once its "
                                  "endpoint appears\n", uid.c_str());
        absent = std::move(watch);
        return nullptr;
    }
    if (absent)
        VLOG(DebugLevelNotice, "currentConnection(): slave server %s is reachable again\n", uid.c_str());
    absent.reset();
    slave = std::move(dialled);
    return slave->getConnection();
}

void ZAVClient::onSlaveNotification(std::string const& name, Json::Value const& params)
{
    auto const text = [&](char const* key) {
        Json::Value const& value = params[key];
        return value.isString() ? value.asString() : std::string();
    };
    if (!params.isObject())
        return;
    if (name == STATE_CHANGE) {
        {
            Mutex::ScopedLock lock(&servedMutex);
            auto const window = served.find(text("uid"));
            if (window != served.end() && ILifecycleManagement::isApplicationTerminated(text("newState")))
                served.erase(window);
            else if (window != served.end())
                window->second = text("newState");
        }
        notifyStateChange(text("uid"), text("oldState"), text("newState"));
    } else if (name == KEEP_ALIVE) {
        notifyKeepAlive(text("uid"), text("state"));
    }
}

void ZAVClient::onSlaveLost()
{
    std::map<std::string, std::string> lost;
    {
        Mutex::ScopedLock lock(&servedMutex);
        lost.swap(served);
    }
    for (auto const& [window, state] : lost) {
        VLOG(DebugLevelError, "onSlaveLost(): slave server %s went away while running %s\n", uid.c_str(),
             window.c_str());
        notifyStateChange(window, state, ILifecycleManagement::STATE_TERMINATED);
    }
}

std::string ZAVClient::launch(SerialObject const& parameters, unsigned int proxy)
{
    Json::Value params = IRPC::toJson(parameters);
    if (!params.isObject()) {
        VLOG(DebugLevelError, "launch(): the launch parameters are not a record\n");
        throwException(MODULE, __LINE__, "launch", ReturnInvalidParameter);
    }
    params["proxy"] = proxy;
    Json::Value const uidOfLaunch = request(Side::Compositing, "launch", params);
    if (!uidOfLaunch.isString() || uidOfLaunch.asString().empty())
        return std::string();
    Mutex::ScopedLock lock(&servedMutex);
    served.emplace(uidOfLaunch.asString(), ILifecycleManagement::STATE_UNINITIALIZED);
    return uidOfLaunch.asString();
}

void ZAVClient::dispatchEvent(Event const& event, unsigned int proxy)
{
    Json::Value params(Json::objectValue);
    params["proxy"] = proxy;
    params["event"] = IRPC::toJson(event);
    request(Side::Compositing, "dispatchEvent", params);
}

} // namespace Velmora
