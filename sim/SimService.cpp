#include "SimService.h"

#include "frame/Exception.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace Velmora {

namespace {

// Long enough for the answer to a command to leave before the process goes.
constexpr auto ANSWER_GRACE = std::chrono::milliseconds(50);

} // namespace

SimService::SimService(std::string const& endpoint) : RPCServer(endpoint)
{
    interfaces["Sim"]["emit"] = static_cast<RPCMethod>(&SimService::emit);
    interfaces["Sim"]["die"] = static_cast<RPCMethod>(&SimService::die);
    interfaces["Sim"]["record"] = static_cast<RPCMethod>(&SimService::getRecord);
    app.onExitRequested([this] { finish(0); });
    // A platform daemon does not end with the server that started it; the
    // server's service manager ends it.
    app.onServerGone([] {});
}

SimService::~SimService() { shutdown(); }

int SimService::run()
{
    try {
        init();
        app.connect();
    } catch (Exception const& e) {
        std::fprintf(stderr, "%s: cannot start: %s\n", getName().c_str(), e.what());
        return 2;
    }
    app.reportState("RUNNING");
    record("up " + getName() + " " + std::to_string(::getpid()));
    std::unique_lock lock(mutex);
    finished.wait(lock, [this] { return done; });
    return exitStatus;
}

void SimService::finish(int status)
{
    std::lock_guard lock(mutex);
    done = true;
    exitStatus = status;
    finished.notify_all();
}

void SimService::record(std::string const& line)
{
    {
        std::lock_guard lock(mutex);
        lines.push_back(line);
    }
    char const* path = std::getenv("VELMORA_SIM_LOG");
    if (!path || !*path)
        return;
    if (FILE* file = std::fopen(path, "a")) {
        std::fprintf(file, "%s\n", line.c_str());
        std::fclose(file);
    }
}

Json::Value SimService::paramsOf(IRPC::RPCSynchronousMethodObject const& method)
{
    return IRPC::parse(method.getParameters());
}

std::string SimService::answer(IRPC::RPCSynchronousMethodObject const& method)
{
    return IRPC::RPCReturnObject(method.getMethod()).serialize();
}

std::string SimService::answer(IRPC::RPCSynchronousMethodObject const& method, Json::Value const& result)
{
    return IRPC::RPCResultObject(method.getMethod(), result).serialize();
}

std::string SimService::emit(IRPC::RPCSynchronousMethodObject const& method)
{
    Json::Value const params = paramsOf(method);
    std::string const event = params["event"].asString();
    if (event.empty())
        return IRPC::RPCErrorObject(method.getMethod(), "Invalid parameter").serialize();
    send(event, params["params"]);
    return answer(method);
}

void SimService::inject(std::string const& command, std::string const& event)
{
    injections["Sim." + command] = event;
    interfaces["Sim"][command] = static_cast<RPCMethod>(&SimService::injected);
}

std::string SimService::injected(IRPC::RPCSynchronousMethodObject const& method)
{
    Json::Value const params = paramsOf(method);
    send(injections.at(method.getMethod()), params.isObject() ? params : Json::Value(Json::objectValue));
    return answer(method);
}

void SimService::send(std::string const& event, Json::Value const& params)
{
    record("emit " + event);
    handleRPCNotification(IRPC::RPCNotificationObject(event, IRPC::write(params)));
}

std::string SimService::die(IRPC::RPCSynchronousMethodObject const& method)
{
    std::string const how = paramsOf(method)["how"].asString();
    if (how != "crash" && how != "exit" && how != "terminate")
        return IRPC::RPCErrorObject(method.getMethod(), "Invalid parameter").serialize();
    record("die " + how);
    std::thread([this, how] {
        std::this_thread::sleep_for(ANSWER_GRACE);
        if (how == "crash")
            std::abort();
        if (how == "exit")
            ::_exit(1);
        app.reportState("TERMINATED");
        std::this_thread::sleep_for(ANSWER_GRACE);
        finish(0);
    }).detach();
    return answer(method);
}

std::string SimService::getRecord(IRPC::RPCSynchronousMethodObject const& method)
{
    Json::Value list(Json::arrayValue);
    std::lock_guard lock(mutex);
    for (std::string const& line : lines)
        list.append(line);
    return answer(method, list);
}

} // namespace Velmora
