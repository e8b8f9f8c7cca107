#include "SlaveSession.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <cstdlib>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Velmora {

static char const MODULE[] = "SlaveSession";

namespace {

// The calls on one window, by the interface the master uses and the one the program answers.
struct Passage {
    char const* wire;
    char const* program;
    std::vector<char const*> methods;
};

std::vector<Passage> const PASSAGES = {
    {"IApplicationManager", "ILifecycleManagement",
     {"getState", "setState", "activate", "suspend", "terminate", "getRuntimeStatistics"}},
    {"IWindowManager", "IWindowEvent", {"handleFocus", "isFocused", "handleEvent"}},
    {"IWindowManager", "IWindowCompositing",
     {"setVisibility", "getVisibility", "setOpacity", "getOpacity", "setZOrder", "getZOrder", "setLocation",
      "getLocation", "bringToFront", "sendToBack", "bringForward", "sendBackward"}},
};

bool isExecutableFile(std::string const& path)
{
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

// `name` as execvp would find it along PATH; a name with a slash is a path. Empty when not found.
std::string findProgram(std::string const& name)
{
    if (name.empty())
        return std::string();
    if (name.find('/') != std::string::npos)
        return isExecutableFile(name) ? name : std::string();
    char const* path = std::getenv("PATH");
    std::string_view rest = path ? path : "/bin:/usr/bin";
    for (;;) {
        std::size_t const colon = rest.find(':');
        std::string_view const directory = rest.substr(0, colon);
        std::string const candidate = (directory.empty() ? std::string(".") : std::string(directory)) + "/" + name;
        if (isExecutableFile(candidate))
            return candidate;
        if (colon == std::string_view::npos)
            return std::string();
        rest.remove_prefix(colon + 1);
    }
}

Json::Value paramsOf(IRPC::RPCSynchronousMethodObject const& method) { return IRPC::parse(method.getParameters()); }

std::string failure(IRPC::RPCSynchronousMethodObject const& method, std::string const& text)
{
    return IRPC::RPCErrorObject(method.getMethod(), text).serialize();
}

std::string success(IRPC::RPCSynchronousMethodObject const& method, Json::Value const& result)
{
    if (result.isNull())
        return IRPC::RPCReturnObject(method.getMethod()).serialize();
    return IRPC::RPCResultObject(method.getMethod(), result).serialize();
}

} // namespace

SlaveSession::SlaveSession(std::string const& endpoint, std::string defaultProgram)
    : RPCServer(endpoint), defaultProgram(std::move(defaultProgram))
{
    interfaces["IWindowManager"]["launch"] = static_cast<RPCMethod>(&SlaveSession::launch);
    interfaces["IWindowManager"]["dispatchEvent"] = static_cast<RPCMethod>(&SlaveSession::dispatchEvent);
    for (Passage const& passage : PASSAGES) {
        for (char const* name : passage.methods) {
            interfaces[passage.wire][name] = static_cast<RPCMethod>(&SlaveSession::forward);
            targets[std::string(passage.wire) + "." + name] = std::string(passage.program) + "." + name;
        }
    }
}

SlaveSession::~SlaveSession() { shutdown(); }

std::string SlaveSession::programFor(std::string const& url) const
{
    // Only a bare name picks a program: a URL or a path is the application's own business.
    bool const bare = !url.empty() && url.find_first_of("/:") == std::string::npos;
    std::string const named = bare ? findProgram(url) : std::string();
    return named.empty() ? findProgram(defaultProgram) : named;
}

std::string SlaveSession::launch(IRPC::RPCSynchronousMethodObject const& method)
{
    Json::Value record = paramsOf(method);
    if (!record.isObject())
        return failure(method, "Invalid parameter");
    record.removeMember("proxy");
    std::string const url = record["applicationURL"].isString() ? record["applicationURL"].asString() : "";
    std::string const program = programFor(url);
    if (program.empty()) {
        VLOG(DebugLevelError, "launch(): no program for %s and no %s in PATH\n", url.c_str(), defaultProgram.c_str());
        return failure(method, "no program for " + url);
    }
    std::lock_guard lock(mutex); // a child that dies at once is looked up only once it is listed
    Json::Value const& token = record["authorizationToken"];
    if (token.isString() && applications.count(token.asString()))
        return failure(method, "invalid uid");
    try {
        auto app = std::make_shared<AndroidApp>(
            program, getName(), record,
            [this](std::string const& event, Json::Value const& params) { report(event, params); },
            [this](std::string const& uid) { gone(uid); });
        std::string const uid = app->getUid();
        applications[uid] = std::move(app);
        VLOG(DebugLevelNotice, "launch(): %s runs %s as %s\n", url.c_str(), program.c_str(), uid.c_str());
        return success(method, uid);
    } catch (Exception const& e) {
        return failure(method, e.what());
    }
}

std::shared_ptr<AndroidApp> SlaveSession::find(std::string const& uid)
{
    std::lock_guard lock(mutex);
    auto const found = applications.find(uid);
    return found == applications.end() ? nullptr : found->second;
}

std::string SlaveSession::forward(IRPC::RPCSynchronousMethodObject const& method)
{
    Json::Value const params = paramsOf(method);
    std::string const uid = params["uid"].isString() ? params["uid"].asString() : "";
    std::shared_ptr<AndroidApp> const app = find(uid);
    if (!app)
        return failure(method, "invalid uid");
    std::string const& target = targets.at(method.getMethod());
    if (target == "IWindowEvent.handleEvent") {
        std::string const event = IRPC::write(params["event"]);
        std::lock_guard lock(mutex);
        if (event != handledEvent)
            handledBy.clear();
        handledEvent = event;
        handledBy.insert(uid);
    }
    RPCConnection::Reply const reply =
        target == "ILifecycleManagement.terminate" ? app->terminate(params) : app->call(target, params);
    if (!reply.ok) {
        VLOG(DebugLevelError, "%s(): %s answered: %s\n", target.c_str(), uid.c_str(), reply.message.c_str());
        return failure(method, reply.message);
    }
    if (target == "IWindowEvent.handleFocus") {
        std::lock_guard lock(mutex);
        if (params["focus"].asBool())
            focusedUid = uid;
        else if (focusedUid == uid)
            focusedUid.clear();
    }
    return success(method, reply.result);
}

std::string SlaveSession::dispatchEvent(IRPC::RPCSynchronousMethodObject const& method)
{
    Json::Value const params = paramsOf(method);
    if (!params.isObject() || !params["event"].isObject())
        return failure(method, "Invalid parameter");
    std::shared_ptr<AndroidApp> target;
    {
        std::lock_guard lock(mutex);
        bool const handed = IRPC::write(params["event"]) == handledEvent && handledBy.count(focusedUid);
        handledEvent.clear();
        handledBy.clear();
        auto const found = applications.find(focusedUid);
        if (!handed && found != applications.end())
            target = found->second;
    }
    if (!target)
        return success(method, Json::Value());
    Json::Value handled(Json::objectValue);
    handled["uid"] = target->getUid();
    handled["event"] = params["event"];
    RPCConnection::Reply const reply = target->call("IWindowEvent.handleEvent", handled);
    // A key that comes as the application leaves (the Back that ended it, say) finds no one: no fault.
    if (!reply.ok)
        VLOG(target->hasLeft() ? DebugLevelInfo : DebugLevelError, "dispatchEvent(): %s answered: %s\n",
             target->getUid().c_str(), reply.message.c_str());
    return success(method, Json::Value());
}

void SlaveSession::report(std::string const& event, Json::Value const& params)
{
    VLOG(DebugLevelInfo, "%s %s\n", event.c_str(), IRPC::write(params).c_str());
    handleRPCNotification(IRPC::RPCNotificationObject(event, IRPC::write(params)));
}

void SlaveSession::gone(std::string const& uid)
{
    std::shared_ptr<AndroidApp> leaving; // destroyed without the lock held
    std::lock_guard lock(mutex);
    auto const found = applications.find(uid);
    if (found == applications.end())
        return;
    leaving = std::move(found->second);
    applications.erase(found);
    if (focusedUid == uid)
        focusedUid.clear();
    handledBy.erase(uid);
    if (applications.empty())
        emptied.notify_all();
}

bool SlaveSession::childEnded(pid_t pid)
{
    std::vector<std::shared_ptr<AndroidApp>> running;
    {
        std::lock_guard lock(mutex);
        for (auto const& [uid, app] : applications)
            running.push_back(app);
    }
    for (auto const& app : running)
        if (app->reap(pid))
            return true;
    return false;
}

void SlaveSession::stopApplications()
{
    std::lock_guard lock(mutex);
    for (auto const& [uid, app] : applications)
        app->stop();
}

void SlaveSession::killApplications()
{
    std::lock_guard lock(mutex);
    for (auto const& [uid, app] : applications)
        app->kill();
}

bool SlaveSession::awaitNoApplications(std::chrono::milliseconds deadline)
{
    std::unique_lock lock(mutex);
    return emptied.wait_for(lock, deadline, [this] { return applications.empty(); });
}

} // namespace Velmora
