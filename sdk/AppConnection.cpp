#include "AppConnection.h"

#include "frame/Exception.h"
#include "interfaces/IRPC.h"
#include "rpc/RuntimeDirectory.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace Velmora {

namespace {

std::string environment(char const* name, char const* fallback)
{
    char const* value = std::getenv(name);
    return value && *value ? value : fallback;
}

// How long a program waits for the server's endpoint, and how soon it dials
// again when the socket is there but refused (it appears at bind, a moment
// before the server accepts).
constexpr std::chrono::milliseconds ENDPOINT_WAIT{10000};
constexpr int REFUSED_RETRY_MS = 20;

// An inotify descriptor watching the runtime directory for new entries.
class DirectoryWatch {
public:
    DirectoryWatch() : fd(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
    {
        if (fd >= 0)
            ::inotify_add_watch(fd, RuntimeDirectory::path().c_str(), IN_CREATE | IN_MOVED_TO);
    }
    ~DirectoryWatch()
    {
        if (fd >= 0)
            ::close(fd);
    }
    DirectoryWatch(DirectoryWatch const&) = delete;
    DirectoryWatch& operator=(DirectoryWatch const&) = delete;

    // Waits up to `milliseconds` for an entry to appear, and drains the events.
    void await(int milliseconds) const
    {
        pollfd ready{fd, POLLIN, 0};
        if (fd < 0 || ::poll(&ready, 1, milliseconds) <= 0)
            return;
        char buffer[4096];
        while (::read(fd, buffer, sizeof buffer) > 0)
            ;
    }

private:
    int fd;
};

} // namespace

AppConnection::AppConnection() : uid(uidFromEnvironment()) { installMethods(); }

AppConnection::~AppConnection() { client.disconnect(); }

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
void AppConnection::connect()
{
    std::string const server = environment("VELMORA_APP_HOSTNAME", "ZAV");
    DirectoryWatch const watch; // before the first dial, so that no creation is missed
    auto const deadline = std::chrono::steady_clock::now() + ENDPOINT_WAIT;
    for (;;) {
        try {
            client.connect(server);
            break;
        } catch (Exception const&) {
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                throw;
            bool const refused = std::filesystem::exists(RuntimeDirectory::endpointPath(server));
            watch.await(refused ? std::min<int>(REFUSED_RETRY_MS, static_cast<int>(left.count()))
                                : static_cast<int>(left.count()));
        }
    }
    Json::Value params;
    params["uid"] = uid;
    client.callOrThrow("RPC.register", params);
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
    client.setMethod("IWindowEvent.handleFocus", [this](Json::Value const& params) {
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
    client.setMethod("IWindowEvent.handleEvent", [this](Json::Value const& params) {
        return Json::Value(eventCallback ? eventCallback(params["event"]) : false);
    });
    client.setNotificationHandler([this](std::string const& name, Json::Value const& params) {
        if (tokenCallback && name.rfind("IServiceManager.", 0) == 0)
            tokenCallback(name, params);
    });
}

} // namespace Velmora
