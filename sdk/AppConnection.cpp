#include "AppConnection.h"

#include "EndpointWatch.h"

#include "frame/Exception.h"
#include "interfaces/IRPC.h"

#include <cstdlib>

#include <unistd.h>

namespace Velmora {

namespace {

std::string environment(char const* name, char const* fallback)
{
    char const* value = std::getenv(name);
    return value && *value ? value : fallback;
}

// How long a program waits for the server's endpoint to appear.
constexpr int ENDPOINT_WAIT_MS = 10000;

} // namespace

AppConnection::AppConnection() : uid(uidFromEnvironment()) { installMethods(); }

AppConnection::~AppConnection()
{
    leaving = true;
    client.disconnect();
}

std::string AppConnection::uidFromEnvironment()
{
    Json::Value const parameters = IRPC::parse(environment("VELMORA_APP_PARAMETERS", "{}"));
    if (parameters.isObject() && parameters["authorizationToken"].isString() &&
        !parameters["authorizationToken"].asString().empty())
        return parameters["authorizationToken"].asString();
    return std::to_string(::getpid());
}

// The server starts its services during its first boot pass, before its own
// endpoint accepts: a program waits for the endpoint's socket rather than fail.
// The watch is made only when the first dial fails, since closing it waits for
// the kernel (milliseconds, at every start); the dial after it catches an
// endpoint that appeared in between.
void AppConnection::connect()
{
    std::string const server = environment("VELMORA_APP_HOSTNAME", "ZAV");
    if (!tryConnect(server))
        awaitAndConnect(server);
    Json::Value params;
    params["uid"] = uid;
    client.callOrThrow("RPC.register", params);
}

void AppConnection::awaitAndConnect(std::string const& server)
{
    EndpointWatch watch(server);
    if (tryConnect(server))
        return;
    if (watch.await(ENDPOINT_WAIT_MS) != EndpointWatch::Result::Appeared)
        throw Exception(ReturnGenericFailure);
    client.connect(server);
}

bool AppConnection::tryConnect(std::string const& server)
{
    try {
        client.connect(server);
        return true;
    } catch (Exception const&) {
        return false;
    }
}

// Reports leave under the state lock, so the server hears them in the order of
// the changes: a keep-alive never re-asserts a state that a change replaced.
// Sending does not block (a socket that cannot take it queues it).
void AppConnection::reportState(std::string const& newState)
{
    Json::Value params;
    params["uid"] = uid;
    params["newState"] = newState;
    std::lock_guard lock(mutex);
    params["oldState"] = state;
    state = newState;
    client.notify("ILifecycleManagement::onStateChange", params);
}

void AppConnection::keepAlive()
{
    Json::Value params;
    params["uid"] = uid;
    std::lock_guard lock(mutex);
    params["state"] = state;
    client.notify("ILifecycleManagement::onKeepAlive", params);
}

std::string AppConnection::getState() const
{
    std::lock_guard lock(mutex);
    return state;
}

void AppConnection::installMethods()
{
    // The getters only read under the state lock: answered without a hand-off.
    client.setQuickMethod("ILifecycleManagement.getState",
                          [this](Json::Value const&) { return Json::Value(getState()); });
    client.setMethod("ILifecycleManagement.setState", [this](Json::Value const& params) {
        reportState(params["state"].asString());
        return Json::Value();
    });
    client.setMethod("ILifecycleManagement.terminate", [this](Json::Value const&) {
        if (terminateCallback)
            terminateCallback();
        else {
            reportState("TERMINATED");
            if (exitCallback)
                exitCallback();
        }
        return Json::Value();
    });
    client.setMethod("IWindowCompositing.setVisibility", [this](Json::Value const& params) {
        {
            std::lock_guard lock(mutex);
            visible = params["visible"].asBool();
        }
        if (visibilityCallback)
            visibilityCallback(params["visible"].asBool());
        return Json::Value();
    });
    client.setQuickMethod("IWindowCompositing.getVisibility", [this](Json::Value const&) {
        std::lock_guard lock(mutex);
        return Json::Value(visible);
    });
    // Focus and events are answered on the reading thread, one at a time in
    // the order they came: no hand-off to a handler thread on the path of
    // every key and of every launch's focus.
    client.setQuickMethod("IWindowEvent.handleFocus", [this](Json::Value const& params) {
        {
            std::lock_guard lock(mutex);
            focused = params["focus"].asBool();
        }
        if (focusCallback)
            focusCallback(params["focus"].asBool());
        return Json::Value();
    });
    client.setQuickMethod("IWindowEvent.isFocused", [this](Json::Value const&) {
        std::lock_guard lock(mutex);
        return Json::Value(focused);
    });
    client.setQuickMethod("IWindowEvent.handleEvent", [this](Json::Value const& params) {
        return Json::Value(eventCallback ? eventCallback(params["event"]) : false);
    });
    client.setClosedHandler([this] {
        if (leaving)
            return;
        if (serverGoneCallback)
            serverGoneCallback();
        else if (exitCallback)
            exitCallback();
    });
    client.setNotificationHandler([this](std::string const& name, Json::Value const& params) {
        if (tokenCallback && name.rfind("IServiceManager.", 0) == 0)
            tokenCallback(name, params);
    });
}

} // namespace Velmora
