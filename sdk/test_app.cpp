// A program on the SDK whose behaviour a test picks through its environment:
//   VELMORA_TEST_APP_DELAY_MS     wait this long before dialling in
//   VELMORA_TEST_APP_SILENT=1     register but never report a state
//   VELMORA_TEST_APP_STATES       states to report, comma-separated (default RUNNING)
//   VELMORA_TEST_APP_ON_TERMINATE exit (default) or ignore, the request and the server's going
//   VELMORA_TEST_APP_HANG         a method ("ILifecycleManagement.getState") that never answers
//   VELMORA_TEST_APP_FAIL         a method that answers with an error
//   VELMORA_TEST_APP_LOG          a file that gets one line per call or token received
//   VELMORA_TEST_APP_KEYS=1       the log also gets "key <code> <0|1>" after the "event" of a key
// In a demo box (VELMORA_BOX_RUN set) it is the native demo program: it keeps
// $VELMORA_BOX_RUN/cards/<uid>.json, {"name", "state", "lastKey"}, up to date
// for the screen page, with the name VELMORA_DEMO_APP_NAME, removes it at the
// end, and ends on the Back key.
#include "AppConnection.h"
#include "KeyNames.h"
#include "frame/Exception.h"
#include "interfaces/IRPC.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>
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

// The window's card for the screen page; written whole and renamed into place,
// so that a reader never sees half of it. Callers come from the connection's
// threads and main.
class Card {
public:
    Card()
    {
        std::string const run = environment("VELMORA_BOX_RUN");
        if (!run.empty())
            folder = std::filesystem::path(run) / "cards";
        std::string const given = environment("VELMORA_DEMO_APP_NAME");
        name = given.empty() ? "velmora-test-app" : given;
    }
    ~Card()
    {
        std::error_code ignored;
        if (!path.empty())
            std::filesystem::remove(path, ignored);
    }
    Card(Card const&) = delete;
    Card& operator=(Card const&) = delete;

    void open(std::string const& uid)
    {
        std::lock_guard lock(mutex);
        if (!folder.empty())
            path = folder / (uid + ".json");
        write();
    }
    // A card is kept only in a demo box (VELMORA_BOX_RUN set).
    bool inBox() const { return !folder.empty(); }
    void setState(std::string const& value) { change(state, value); }
    // A box code: 1 power, 30 home, 34 menu; 256 plus a Linux code for the rest.
    void setKey(unsigned int code)
    {
        std::string const known = code == 1    ? "Power"
                                  : code == 30 ? "Home"
                                  : code == 34 ? "Menu"
                                  : code >= 256 ? KeyNames::nameOf(static_cast<unsigned short>(code - 256))
                                                : "";
        change(lastKey, known.empty() ? std::to_string(code) : known);
    }

private:
    void change(std::string& field, std::string const& value)
    {
        std::lock_guard lock(mutex);
        field = value;
        write();
    }
    void write() const
    {
        if (path.empty())
            return;
        Json::Value card;
        card["name"] = name;
        card["state"] = state;
        card["lastKey"] = lastKey;
        std::filesystem::path const staging = path.string() + ".new";
        std::ofstream(staging) << IRPC::write(card);
        std::error_code ignored;
        std::filesystem::rename(staging, path, ignored);
    }

    std::mutex mutex;
    std::filesystem::path folder;
    std::filesystem::path path;
    std::string name;
    std::string state;
    std::string lastKey;
};

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

    Card card;
    AppConnection app;
    std::string const onTerminate = environment("VELMORA_TEST_APP_ON_TERMINATE");
    app.onTerminate([&] {
        logLine("terminate");
        if (onTerminate == "ignore")
            return;
        app.reportState("TERMINATED");
        requestExit(); // the answer to terminate goes out as the connection closes
    });
    app.onExitRequested([&] {
        if (onTerminate != "ignore")
            requestExit();
    });
    app.onFocus([](bool focus) { logLine(std::string("focus ") + (focus ? "1" : "0")); });
    app.onVisibility([](bool visible) { logLine(std::string("visible ") + (visible ? "1" : "0")); });
    bool const logKeys = environment("VELMORA_TEST_APP_KEYS") == "1";
    // In a box the program leaves on Back, as the box's pages do, unless it is
    // the master window (whose URL names its session), which stays as the home
    // screen does. It leaves on the key's release: no event of it comes later.
    unsigned int const back = 256 + *KeyNames::linuxCode("Back");
    Json::Value const launch = IRPC::parse(environment("VELMORA_APP_PARAMETERS"));
    bool const master = launch.isObject() && launch["applicationURL"].isString() &&
                        launch["applicationURL"].asString().find("sessionIndex=") != std::string::npos;
    bool const leavesOnBack = card.inBox() && !master;
    app.onEvent([logKeys, back, leavesOnBack, &card, &app](Json::Value const& event) {
        logLine("event");
        bool const pressed = event["pressed"].asBool();
        if (event.isMember("code") && pressed)
            card.setKey(event["code"].asUInt());
        if (logKeys && event.isMember("code"))
            logLine("key " + std::to_string(event["code"].asUInt()) + (pressed ? " 1" : " 0"));
        if (leavesOnBack && event.isMember("code") && !pressed && event["code"].asUInt() == back) {
            app.reportState("TERMINATED");
            requestExit(); // the answer to the event goes out as the connection closes
        }
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

    if (auto const fail = environment("VELMORA_TEST_APP_FAIL"); !fail.empty())
        app.setMethod(fail, [](Json::Value const&) -> Json::Value { throw std::runtime_error("failed on purpose"); });

    try {
        app.connect();
    } catch (Exception const& e) {
        std::fprintf(stderr, "test app: cannot connect: %s\n", e.what());
        return 2;
    }
    logLine("registered " + app.getUid());
    card.open(app.getUid());
    if (environment("VELMORA_TEST_APP_SILENT") != "1") {
        std::string states = environment("VELMORA_TEST_APP_STATES");
        std::istringstream list(states.empty() ? "RUNNING" : states);
        for (std::string state; std::getline(list, state, ',');) {
            app.reportState(state);
            card.setState(state);
        }
    }
    std::unique_lock lock(exitMutex);
    exitSignal.wait(lock, [] { return exitRequested; });
    return 0;
}
