// A display session of real pieces: a sysroot with the launch scripts and a
// holder certificate, the bus endpoint, the media and power simulators and a
// token-hearing service, the authorization manager with test keys, the input
// driver reading the FIFO that press() writes, and a MasterWindowManager with
// the real process factory. Time is the test clock; the garbage collection
// runs when a test calls collect().
#pragma once

#include "AuthorizationFixture.h"
#include "DirectoryWatch.h"
#include "FileDescriptor.h"
#include "Journal.h"
#include "KeyNames.h"
#include "MultiInputDriver.h"
#include "NullWindowManagerListener.h"
#include "OnThread.h"
#include "ScopedEnv.h"
#include "ServerProcess.h"
#include "ScratchDirectory.h"
#include "HWPApplicationFactory.h"
#include "MasterWindowManager.h"
#include "rpc/RPCClient.h"
#include "rpc/RPCServer.h"
#include "ServiceManager.h"
#include "frame/TestClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace WindowTest {

namespace fs = std::filesystem;
using Velmora::IWindowManager;
using Lines = std::vector<std::string>;

// For conditions that no notice announces (a table that empties as real
// processes die): tries `condition` every 10 ms for up to 30 s.
template <class Condition>
bool eventually(Condition condition)
{
    for (int i = 0; i < 3000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return condition();
}

// Waits until `condition` holds for the lines of the file at `path`, which another process writes.
template <class Condition>
bool awaitFile(fs::path const& path, Condition condition)
{
    return VelmoraTest::DirectoryWatch(path.parent_path()).waitFor([&] { return condition(readLines(path)); });
}

// A JSON object of the given members, as the simulators' commands take them.
inline Json::Value object(std::vector<std::pair<char const*, Json::Value>> const& members)
{
    Json::Value value(Json::objectValue);
    for (auto const& [key, member] : members)
        value[key] = member;
    return value;
}

inline long countOf(Lines const& lines, std::string const& line) { return std::ranges::count(lines, line); }
inline bool contains(Lines const& lines, std::string const& line) { return countOf(lines, line) > 0; }

// The children of `parent` that have ended and not been reaped (`zombies`), or those that still run.
inline std::vector<pid_t> childrenOf(pid_t parent, bool zombies)
{
    std::vector<pid_t> found;
    for (auto const& entry : fs::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string pid, name, state, of;
        if (stat >> pid >> name >> state >> of && of == std::to_string(parent) && (state == "Z") == zombies)
            found.push_back(static_cast<pid_t>(std::stol(pid)));
    }
    return found;
}

inline int zombieChildren() { return static_cast<int>(childrenOf(::getpid(), true).size()); }

using Entry = Velmora::ApplicationManager::ApplicationMapEntry;

// What the window manager tells its listeners, one line each:
// "focus <old>><new>", "error <uid>:<text>", "layout <old>><new>".
class Journal : public VelmoraTest::NullWindowManagerListener, public VelmoraTest::Journal {
public:
    void onError(std::string const& uid, std::string const& type) override { add("error " + uid + ":" + type); }
    void onFocusChange(IWindowManager&, std::string const& oldFocus, std::string const& newFocus) override
    {
        add("focus " + oldFocus + ">" + newFocus);
    }
    void onLayoutChange(IWindowManager&, std::string const& oldLayout, std::string const& newLayout) override
    {
        add("layout " + oldLayout + ">" + newLayout);
    }

    // Waits until a line told satisfies `condition`; that line, or empty after the deadline.
    template <class Condition>
    std::string awaitLine(Condition condition, std::chrono::milliseconds deadline = std::chrono::seconds(30))
    {
        std::string found;
        waitFor([&] {
            Lines const lines = all();
            auto const match = std::ranges::find_if(lines, condition);
            found = match == lines.end() ? "" : *match;
            return !found.empty();
        }, deadline);
        return found;
    }
    // Waits until `line` has been told.
    bool await(std::string const& line) { return waitFor([&] { return has(line); }); }
    void clear() { take(); }
};

// The process factory of the box, whose grace periods the test clock passes
// in milliseconds: a process asked to end is first given a moment of real
// time, then killed and waited for, so that the factory reaps it at its first look.
class PatientFactory : public Velmora::HWPApplicationFactory {
public:
    std::string destroyApplication(std::string const& pid, bool forceful) override
    {
        pid_t const process = static_cast<pid_t>(std::stol(pid));
        if (forceful || !HostTest::awaitEnd(process, 200))
            ::kill(process, SIGKILL);
        HostTest::awaitEnd(process);
        return HWPApplicationFactory::destroyApplication(pid, forceful);
    }
};

// The manager with its table opened to the test, on the manager's thread. The
// garbage collection runs only when the test calls collect().
class Windows : public VelmoraTest::OnThread<Velmora::MasterWindowManager> {
public:
    using OnThread::OnThread;
    void init() override
    {
        MasterWindowManager::init();
        unregisterPeriodicCommand(&garbageCollectionCommand);
    }
    void collect() { onThread([this] { _garbageCollection(); }); }
    std::string master() { return fetch([this] { return masterUid; }); }
    std::size_t windowCount() { return fetch([this] { return applications.size(); }); }
    std::size_t pending() { return fetch([this] { return pendingLaunches.size(); }); }
    VelmoraTest::Journal powerStates; // each power state reported, in order
    std::string pidOf(std::string const& uid)
    {
        return fetch([&] { return _getApplicationEntry(uid) ? _getApplicationEntry(uid)->getPid() : std::string(); });
    }

protected:
    void _powerStateChange(unsigned int state) override
    {
        MasterWindowManager::_powerStateChange(state);
        powerStates.add(std::to_string(state));
    }
};

using ScopedEnvironment = VelmoraTest::ScopedEnv;

// Host options of a box without a master window.
inline std::vector<std::string> const NO_MASTER;

class WindowBox {
public:
    // `options` follow the host's name, as on its command line.
    explicit WindowBox(std::vector<std::string> options = {"--velmora:masterType", "OTHER", "--velmora:masterURL", "home"})
        : arguments(std::move(options))
    {
        arguments.insert(arguments.begin(), "velmora-server");
        for (std::string& word : arguments)
            argv.push_back(word.data());
        fs::create_directories(bin);
        fs::create_directories(etc);
        fs::create_directories(runtime);
        for (auto const& script : fs::directory_iterator(VELMORA_LAUNCH_SCRIPTS))
            fs::copy_file(script.path(), bin / script.path().filename());
        writeFile(etc / "DORICProtected.crt", VelmoraTest::toPem(VelmoraTest::TestPki::get().doricHolder.get()));
        installProgram();
        host.init();
        services.init();
        {
            ScopedEnvironment log("VELMORA_TEST_APP_LOG", (sandbox.root / "service.log").string());
            services.create("velmora-test-app", "{}");
        }
        startSimulator("QEN");
        startSimulator("HUX");
        ::mkfifo(keys.c_str(), 0600);
        input = Velmora::Singleton<Velmora::InputDriver>::getInstance<Velmora::MultiInputDriver>();
        input->enableIr();
        keyWriter = Velmora::FileDescriptor(::open(keys.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        authorization = Velmora::AuthorizationAttributesManager::getInstance();
        authorization->initialize(sandbox.issuerCertificate, sandbox.issuerKey, &services);
        windows = std::make_unique<Windows>(0, &factory, static_cast<int>(argv.size()), argv.data());
        windows->addListener(&journal);
        windows->init();
        windows->onBootComplete();
        master = windows->master(); // waits for the start-up
        EXPECT_TRUE(master.empty() || journal.await("focus >" + master)) << "the master window never took the focus";
    }
    ~WindowBox()
    {
        windows->removeListener(&journal);
        windows->uninit();
        windows.reset();
        services.uninit(); // its thread may still be following a simulator's end
        // The box's reference and the one the driver's creation counts: the
        // next box reads its own FIFO.
        delete input;
        delete input;
        delete authorization; // getInstance() and the constructor each hold a reference
        delete authorization;
    }

    // Launches `type` at `url`; the test program behind it logs to logOf(url)
    // and first runs `behaviour`, shell lines kept by URL (so a put-off launch keeps them).
    std::string launch(std::string const& type, std::string const& url, std::string const& behaviour = "")
    {
        std::ofstream(sandbox.root / (url + ".env")) << behaviour << "\n";
        return windows->launch(IWindowManager::LaunchParameters("", type, url, "", {}, false, false));
    }
    // A launch of an OTHER window as launch() makes it, once the window has taken the focus.
    std::string launchFocused(std::string const& url, std::string const& behaviour = "")
    {
        std::string const uid = launch(IWindowManager::APPLICATION_TYPE_OTHER, url, behaviour);
        EXPECT_TRUE(!uid.empty() && journal.await("focus >" + uid)) << url << " never took the focus";
        return uid;
    }
    // A window that the journal saw take the focus, other than those in `known`; empty if none does in time.
    std::string awaitNewFocus(Lines const& known)
    {
        std::string const line = journal.awaitLine([&](std::string const& told) {
            return told.rfind("focus ", 0) == 0 && told.back() != '>' && !contains(known, told.substr(told.find('>') + 1));
        });
        return line.empty() ? line : line.substr(line.find('>') + 1);
    }
    fs::path logOf(std::string const& url) const { return sandbox.root / (url + ".log"); }
    bool appLogged(std::string const& url, std::string const& line) const
    {
        return awaitFile(logOf(url), [&](Lines const& lines) { return contains(lines, line); });
    }
    // Presses a key of the remote through the input driver's FIFO: a Linux code, or a name of KeyNames.
    void press(unsigned short linuxCode) { ASSERT_TRUE(Velmora::KeyNames::writePress(keyWriter.get(), linuxCode)); }
    void press(std::string const& name) { press(Velmora::KeyNames::linuxCode(name).value()); }
    // Sends Sim.<command> to a simulator; false when it failed the call.
    bool inject(std::string const& endpoint, std::string const& command, Json::Value const& params)
    {
        Velmora::RPCClient client(1);
        client.connect(endpoint);
        return client.call("Sim." + command, params).ok;
    }
    // Waits until the manager has taken `state` as the last power state reported.
    bool awaitPowerState(std::string const& state)
    {
        return windows->powerStates.waitFor([&] {
            Lines const states = windows->powerStates.all();
            return !states.empty() && states.back() == state;
        });
    }
    // Makes the simulator of `endpoint` crash, and waits until its process has ended.
    void crashSimulator(std::string const& endpoint)
    {
        Lines const log = readLines(sandbox.root / "sim.log");
        auto const up = std::find_if(log.rbegin(), log.rend(), [&](std::string const& line) {
            return line.rfind("up " + endpoint + " ", 0) == 0;
        });
        ASSERT_NE(up, log.rend());
        ASSERT_TRUE(inject(endpoint, "die", object({{"how", "crash"}})));
        ASSERT_TRUE(HostTest::awaitEnd(static_cast<pid_t>(std::stol(up->substr(endpoint.size() + 4)))));
    }
    // Starts the simulator of `endpoint` ("QEN", "HUX") as a service and waits until it serves.
    void startSimulator(std::string const& endpoint)
    {
        auto const ups = [&](Lines const& lines) {
            return std::ranges::count_if(lines, [&](std::string const& line) { return line.starts_with("up " + endpoint + " "); });
        };
        fs::path const log = sandbox.root / "sim.log";
        long const before = ups(readLines(log));
        services.create(endpoint == "QEN" ? "VelmoraQENExec" : "velmora-hux", "{}");
        EXPECT_TRUE(awaitFile(log, [&](Lines const& lines) { return ups(lines) > before; })) << endpoint;
    }
    // What a simulator was asked, by its own record.
    Lines simulatorRecord(std::string const& endpoint)
    {
        Velmora::RPCClient client(1);
        client.connect(endpoint);
        Lines lines;
        for (Json::Value const& line : client.callOrThrow("Sim.record", Json::Value(Json::objectValue)))
            lines.push_back(line.asString());
        return lines;
    }
    // Runs the garbage collection after `ticks` of silence.
    void collectAfter(unsigned int ticks) { clock.advance(ticks); windows->collect(); }

    Velmora::TestClock clock;
    VelmoraTest::Sandbox sandbox;
    fs::path const bin = sandbox.root / "usr/local/bin";
    fs::path const etc = sandbox.root / "usr/local/etc/velmora";
    fs::path const runtime = sandbox.root / "run";
    fs::path const keys = sandbox.root / "keys";
    // The box's environment, which the programs it starts inherit.
    ScopedEnvironment const runtimeDirectory{"VELMORA_RUNTIME_DIR", runtime.string()};
    ScopedEnvironment const simulatorLog{"VELMORA_SIM_LOG", (sandbox.root / "sim.log").string()};
    ScopedEnvironment const appKeys{"VELMORA_TEST_APP_KEYS", "1"};
    ScopedEnvironment const inputDevices{"VELMORA_INPUT_DEVICES", keys.string()};
    ScopedEnvironment const appProgram{"VELMORA_APP_PROGRAM", (sandbox.root / "test-program").string()};
    ScopedEnvironment const path{"PATH", ScopedEnvironment::pathBefore(bin.string() + ":" + VELMORA_TEST_APP_DIR + ":" + VELMORA_SIM_DIR)};
    std::vector<std::string> arguments;
    std::vector<char*> argv;
    Velmora::RPCServer host{"Host"};
    PatientFactory factory;
    VelmoraTest::OnThread<Velmora::ServiceManager> services{&factory, 0, nullptr}; // its services hear every new token
    Velmora::AuthorizationAttributesManager* authorization = nullptr;
    Velmora::InputDriver* input = nullptr;
    Velmora::FileDescriptor keyWriter;
    Journal journal;
    std::unique_ptr<Windows> windows;
    std::string master; // the master window's uid, which has had the focus; empty without one

private:
    // What the launch scripts start: the test program, its log and behaviour picked by the URL up to any query.
    void installProgram()
    {
        fs::path const program = sandbox.root / "test-program";
        std::ofstream(program) << "#!/bin/sh\n"
                               << "url=$(printf '%s' \"$VELMORA_APP_PARAMETERS\" | sed -n "
                               << "'s/.*\"applicationURL\":\"\\([^\"?]*\\).*/\\1/p')\n"
                               << "export VELMORA_TEST_APP_LOG=\"" << sandbox.root.string() << "/$url.log\"\n"
                               << "[ -f \"" << sandbox.root.string() << "/$url.env\" ] && . \"" << sandbox.root.string()
                               << "/$url.env\"\n"
                               << "exec velmora-test-app\n";
        fs::permissions(program, fs::perms::owner_all);
    }
};

} // namespace WindowTest
