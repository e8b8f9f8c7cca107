#include "AndroidApp.h"

#include "frame/DebugPrint.h"
#include "interfaces/ILifecycleManagement.h"
#include "interfaces/IRPC.h"

#include <string_view>
#include <vector>

extern "C" char** environ;

namespace Velmora {

static char const MODULE[] = "AndroidApp";

namespace {

// The slave's own environment, with the two variables that tell the program
// whom to dial and who it is.
std::vector<std::string> environmentFor(std::string const& endpoint, Json::Value const& record)
{
    static std::string const HOSTNAME = "VELMORA_APP_HOSTNAME=";
    static std::string const PARAMETERS = "VELMORA_APP_PARAMETERS=";
    std::vector<std::string> environment;
    for (char** entry = environ; entry && *entry; ++entry) {
        std::string_view const text(*entry);
        if (text.rfind(HOSTNAME, 0) != 0 && text.rfind(PARAMETERS, 0) != 0)
            environment.emplace_back(text);
    }
    environment.push_back(HOSTNAME + endpoint);
    environment.push_back(PARAMETERS + IRPC::write(record));
    return environment;
}

std::string uidOf(Json::Value const& record, pid_t pid)
{
    Json::Value const& token = record["authorizationToken"];
    return token.isString() && !token.asString().empty() ? token.asString() : std::to_string(pid);
}

Json::Value textOf(Json::Value const& parameters, char const* key)
{
    Json::Value const& value = parameters[key];
    return value.isString() ? value : Json::Value("");
}

} // namespace

AndroidApp::AndroidApp(std::string const& path, std::string const& endpoint, Json::Value const& record,
                       Reporter reporter, GoneHandler onGone)
    : process(path, environmentFor(endpoint, record)), uid(uidOf(record, process.getPid())),
      reporter(std::move(reporter)), onGone(std::move(onGone))
{
    VLOG(DebugLevelInfo, "%s started as %s (pid %d)\n", path.c_str(), uid.c_str(), process.getPid());
    RPCRegistry::getInstance().bind(uid, this);
}

AndroidApp::~AndroidApp()
{
    {
        std::lock_guard lock(mutex);
        closing = true;
    }
    ended.notify_all();
    if (killer.joinable())
        killer.join();
    RPCRegistry::getInstance().unbind(uid, this);
}

RPCConnection::Reply AndroidApp::call(std::string const& method, Json::Value const& params)
{
    std::shared_ptr<RPCConnection> peer;
    {
        std::lock_guard lock(mutex);
        peer = connection;
    }
    if (peer && peer->isOpen())
        return peer->call(method, params);
    RPCConnection::Reply failed;
    failed.message = "application " + uid + " is not connected";
    return failed;
}

bool AndroidApp::hasLeft()
{
    std::lock_guard lock(mutex);
    return processEnded || ILifecycleManagement::isApplicationTerminated(state);
}

RPCConnection::Reply AndroidApp::terminate(Json::Value const& params)
{
    RPCConnection::Reply reply = call("ILifecycleManagement.terminate", params);
    std::lock_guard lock(mutex);
    if (!killer.joinable() && !processEnded)
        killer = std::thread([this] { killAfterGrace(); });
    return reply;
}

void AndroidApp::killAfterGrace()
{
    std::unique_lock lock(mutex);
    if (ended.wait_for(lock, TERMINATE_GRACE, [this] { return processEnded || closing; }))
        return;
    VLOG(DebugLevelError, "%s outlived its terminate, killed\n", uid.c_str());
    process.signal(SIGKILL);
}

bool AndroidApp::reap(pid_t pid)
{
    if (pid != process.getPid())
        return false;
    if (!process.reap())
        return true;
    VLOG(DebugLevelInfo, "process of %s ended\n", uid.c_str());
    std::unique_lock lock(mutex);
    processEnded = true;
    ended.notify_all();
    settle(lock);
    return true;
}

void AndroidApp::onRegistered(std::shared_ptr<RPCConnection> const& registered)
{
    VLOG(DebugLevelInfo, "%s dialled in\n", uid.c_str());
    std::lock_guard lock(mutex);
    connection = registered;
}

void AndroidApp::onUnregistered()
{
    std::unique_lock lock(mutex);
    connection.reset();
    settle(lock);
}

void AndroidApp::onReport(std::string const& name, Json::Value const& parameters)
{
    if (!parameters.isObject())
        return;
    Json::Value report(Json::objectValue);
    report["uid"] = uid;
    if (name == "ILifecycleManagement::onKeepAlive") {
        report["state"] = textOf(parameters, "state");
        reporter("IApplicationManager::onKeepAlive", report);
        return;
    }
    if (name != "ILifecycleManagement::onStateChange")
        return;
    report["oldState"] = textOf(parameters, "oldState");
    report["newState"] = textOf(parameters, "newState");
    {
        std::lock_guard lock(mutex);
        state = report["newState"].asString();
    }
    reporter("IApplicationManager::onStateChange", report);
}

void AndroidApp::settle(std::unique_lock<std::mutex>& lock)
{
    if (!processEnded || connection || told)
        return;
    told = true;
    std::string const last = state;
    lock.unlock();
    if (!ILifecycleManagement::isApplicationTerminated(last)) {
        Json::Value report(Json::objectValue);
        report["uid"] = uid;
        report["oldState"] = last;
        report["newState"] = ILifecycleManagement::STATE_TERMINATED;
        reporter("IApplicationManager::onStateChange", report);
    }
    onGone(uid); // may destroy this application: nothing after it
}

} // namespace Velmora
