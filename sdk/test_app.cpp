// A program on the SDK whose behaviour a test picks through its environment:
//   VELMORA_TEST_APP_DELAY_MS     wait this long before dialling in
//   VELMORA_TEST_APP_SILENT=1     register but never report a state
//   VELMORA_TEST_APP_STATES       states to report, comma-separated (default RUNNING)
//   VELMORA_TEST_APP_ON_TERMINATE exit (default) or ignore
//   VELMORA_TEST_APP_HANG         a method ("ILifecycleManagement.getState") that never answers
//   VELMORA_TEST_APP_LOG          a file that gets one line per call or token received
//   VELMORA_TEST_APP_KEYS=1       the log also gets "key <code> <0|1>" after the "event" of a key
#include "AppConnection.h"
#include "frame/Exception.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>

using namespace Velmora;

namespace {

std::string environment(char const* name)
{
    char const* value = std::getenv(name);
    return value ? value : "";
}

void logLine(std::string const& line)
{
    std::string const path = environment("VELMORA_TEST_APP_LOG");
    if (path.empty())
        return;
    if (FILE* file = std::fopen(path.c_str(), "a")) {
        std::fprintf(file, "%s\n", line.c_str());
        std::fclose(file);
    }
}

std::mutex exitMutex;
std::condition_variable exitSignal;
bool exitRequested = false;

void requestExit()
{
    std::lock_guard lock(exitMutex);
    exitRequested = true;
    exitSignal.notify_all();
}

} // namespace

int main()
{
    if (auto const delay = environment("VELMORA_TEST_APP_DELAY_MS"); !delay.empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(delay.c_str())));

    AppConnection app;
    std::string const onTerminate = environment("VELMORA_TEST_APP_ON_TERMINATE");
    app.onTerminate([&] {
        logLine("terminate");
        if (onTerminate == "ignore")
            return;
        app.reportState("TERMINATED");
        requestExit(); // the answer to terminate goes out as the connection closes
    });
    app.onFocus([](bool focus) { logLine(std::string("focus ") + (focus ? "1" : "0")); });
    app.onVisibility([](bool visible) { logLine(std::string("visible ") + (visible ? "1" : "0")); });
    bool const logKeys = environment("VELMORA_TEST_APP_KEYS") == "1";
    app.onEvent([logKeys](Json::Value const& event) {
        logLine("event");
        if (logKeys && event.isMember("code"))
            logLine("key " + std::to_string(event["code"].asUInt()) + (event["pressed"].asBool() ? " 1" : " 0"));
        return true;
    });
    app.onToken([](std::string const& method, Json::Value const& params) {
        logLine(method + " " + std::to_string(params["token"].asUInt()));
    });
    if (auto const hang = environment("VELMORA_TEST_APP_HANG"); !hang.empty())
        app.setMethod(hang, [](Json::Value const&) -> Json::Value {
            std::unique_lock lock(exitMutex);
            exitSignal.wait(lock, [] { return exitRequested; });
            return Json::Value();
        });

    try {
        app.connect();
    } catch (Exception const& e) {
        std::fprintf(stderr, "test app: cannot connect: %s\n", e.what());
        return 2;
    }
    logLine("registered " + app.getUid());
    if (environment("VELMORA_TEST_APP_SILENT") != "1") {
        std::string states = environment("VELMORA_TEST_APP_STATES");
        std::istringstream list(states.empty() ? "RUNNING" : states);
        for (std::string state; std::getline(list, state, ',');)
            app.reportState(state);
    }
    std::unique_lock lock(exitMutex);
    exitSignal.wait(lock, [] { return exitRequested; });
    return 0;
}
