// The Android slave in its own process, behind a master window manager and on its own.
#include "WindowBox.h"
#include "Journal.h"
#include "frame/Exception.h"
#include "rpc/RPCClient.h"
#include "ReturnCodeOf.h"
#include "ServerProcess.h"

using namespace Velmora;
using namespace WindowTest;

namespace {

// A box with a master window whose Android windows go to the slave "android".
std::vector<std::string> const SLAVE_OPTIONS = {
    "--velmora:masterType", "OTHER", "--velmora:masterURL", "home",
    "--velmora:zavSlaveName", "android", "--velmora:zavSlaveAppSupport", "ANDROID"};

// The slave as the box starts it, serving "android0" in `runtime`, ready; its
// applications log to `appLog` and find programs in `programs` first.
class Slave {
public:
    Slave(fs::path const& runtime, fs::path const& appLog, std::string const& programs = VELMORA_TEST_APP_DIR)
        : endpoint(runtime / "android0.sock"),
          notify(runtime.parent_path() / ("slave" + std::to_string(++started) + ".notify")),
          process(VELMORA_ANDROID_SLAVE, {"--name", "android", "--sessions", "1"},
                  {{"VELMORA_RUNTIME_DIR", runtime.string()},
                   {"VELMORA_TEST_APP_LOG", appLog.string()},
                   {"VELMORA_TEST_APP_KEYS", "1"},
                   {"PATH", programs + ":" + std::getenv("PATH")},
                   {"NOTIFY_SOCKET", notify.path.string()}},
                  runtime.parent_path() / "slave.log")
    {
        EXPECT_TRUE(notify.awaitMessage("READY=1")) << process.log();
    }
    // The processes the slave started and that still run.
    std::vector<pid_t> children() const { return childrenOf(process.pid, false); }

    static inline int started = 0; // each slave has a notify socket of its own
    fs::path const endpoint;
    HostTest::NotifySocket notify;
    HostTest::ServerProcess process;
};

std::string launchAndroid(WindowBox& box, std::string const& url) { return box.launch(IWindowManager::APPLICATION_TYPE_ANDROID, url); }

} // namespace

// An Android window runs, takes the focus, hears each key once and ends when
// evicted, terminated or killed; a slave that ends or dies takes its windows
// out of the master's table.
TEST(AndroidSlave, AnAndroidWindowLivesAsAnyOtherAndGoesWithItsApplicationOrItsSlave)
{
    WindowBox box(SLAVE_OPTIONS);
    Slave slave(box.runtime, box.logOf("android"));
    std::string const master = box.master;
    // `end` ends the focused window: true once the focus is back on the master window, which is then alone.
    auto const endFocused = [&](auto const& end) {
        box.journal.clear();
        end();
        bool const back = box.journal.await("focus >" + master);
        EXPECT_EQ(box.windows->windowCount(), 1u);
        return back;
    };

    std::string const uid = launchAndroid(box, "com.example.droid");
    ASSERT_FALSE(uid.empty());
    ASSERT_TRUE(box.journal.await("focus >" + uid));
    EXPECT_EQ(box.windows->windowCount(), 2u);
    EXPECT_TRUE(box.appLogged("android", "registered " + uid)); // the launch's token is the program's uid
    EXPECT_TRUE(box.appLogged("android", "focus 1"));
    EXPECT_EQ(box.windows->getState(uid), "RUNNING");

    // The focused window gets the key from the master, and the slave's mirror does not repeat it.
    box.press("OK");
    ASSERT_TRUE(box.appLogged("android", "key 608 0"));
    EXPECT_EQ(countOf(readLines(box.logOf("android")), "key 608 1"), 1);

    // A second launch finds the table full: the first window is evicted through the slave, then the second runs.
    EXPECT_EQ(launchAndroid(box, "com.example.next"), "");
    std::string const next = box.awaitNewFocus({uid, master});
    ASSERT_FALSE(next.empty());
    EXPECT_TRUE(box.appLogged("android", "terminate"));
    EXPECT_EQ(box.windows->windowCount(), 2u);

    ASSERT_TRUE(endFocused([&] { box.windows->terminate(next); }));
    EXPECT_EQ(countOf(readLines(box.logOf("android")), "terminate"), 2);
    EXPECT_TRUE(eventually([&] { return slave.children().empty(); }));

    // An application killed outright is reported gone by the slave.
    std::string const killed = launchAndroid(box, "com.example.killed");
    ASSERT_TRUE(box.journal.await("focus >" + killed));
    ASSERT_EQ(slave.children().size(), 1u);
    ASSERT_TRUE(endFocused([&] { ::kill(slave.children()[0], SIGKILL); }));

    // The slave ends while a window runs: the window goes, and so does every trace of the slave.
    std::string const running = launchAndroid(box, "com.example.running");
    ASSERT_TRUE(box.journal.await("focus >" + running));
    std::vector<pid_t> const second = slave.children();
    ASSERT_EQ(second.size(), 1u);
    ASSERT_TRUE(endFocused([&] { EXPECT_EQ(slave.process.stop(), 0) << slave.process.log(); }));
    EXPECT_FALSE(fs::exists(slave.endpoint));
    EXPECT_NE(::kill(second[0], 0), 0) << "an application outlived its slave";

    // Without a slave an Android launch fails at once, and keys still reach the master window. The
    // outage is logged once: a key then costs no dial of the slave and no line in the log.
    EXPECT_ANY_THROW(launchAndroid(box, "com.example.late"));
    std::string const log = VelmoraTest::stderrOf([&] {
        box.press("OK");
        EXPECT_TRUE(box.appLogged("home", "key 608 1"));
        box.windows->getWindowList(); // after the key's forwarding to the slave
    });
    EXPECT_EQ(log, "");

    // A slave that dies unannounced takes its windows with it all the same; the master redials its successor.
    Slave successor(box.runtime, box.logOf("android"));
    std::string const orphan = launchAndroid(box, "com.example.orphan");
    ASSERT_TRUE(box.journal.await("focus >" + orphan));
    ASSERT_TRUE(endFocused([&] { ::kill(successor.process.pid, SIGKILL); }));
}

TEST(AndroidSlave, OneSlavePerNameTheURLPicksTheProgramKeysFollowTheFocusAStubbornOneIsKilledAndNoneOutlivesTheSlave)
{
    VelmoraTest::Sandbox sandbox;
    fs::path const runtime = sandbox.root / "run";
    fs::path const bin = sandbox.root / "bin";
    fs::create_directories(runtime);
    fs::create_directories(bin);
    std::ofstream(bin / "droid-stubborn") << "#!/bin/sh\necho stubborn >> \"$VELMORA_TEST_APP_LOG\"\n"
                                          << "export VELMORA_TEST_APP_ON_TERMINATE=ignore\nexec velmora-test-app\n";
    fs::permissions(bin / "droid-stubborn", fs::perms::owner_all);
    ScopedEnvironment directory("VELMORA_RUNTIME_DIR", runtime.string());
    Slave slave(runtime, sandbox.root / "app.log", bin.string() + ":" + VELMORA_TEST_APP_DIR);

    VelmoraTest::Journal heard;
    RPCClient master(1);
    master.setNotificationHandler([&](std::string const& name, Json::Value const& params) {
        heard.add(name + " " + params["uid"].asString() + " " + params["newState"].asString());
    });
    master.connect("android0");
    master.callOrThrow("RPC.subscribe", IRPC::parse(R"({"events":["*"]})"));
    auto const launch = [&](std::string const& url, std::string const& token) {
        Json::Value record = IRPC::parse(R"({"proxy":0,"applicationType":"ANDROID"})");
        record["applicationURL"] = url;
        record["authorizationToken"] = token;
        return master.call("IWindowManager.launch", record);
    };
    auto const heardState = [&](std::string const& uid, std::string const& state) {
        return heard.waitFor([&] { return heard.has("IApplicationManager::onStateChange " + uid + " " + state); });
    };

    // A second slave of the same name leaves the endpoint to the first one.
    HostTest::ServerProcess second(VELMORA_ANDROID_SLAVE, {"--name", "android"},
                                   {{"VELMORA_RUNTIME_DIR", runtime.string()}}, sandbox.root / "second.log");
    EXPECT_EQ(second.stop(0), 1) << second.log();

    EXPECT_EQ(master.call("IApplicationManager.terminate", IRPC::parse(R"({"uid":"7"})")).message, "invalid uid");
    EXPECT_EQ(launch("droid-stubborn", "7").result, "7");
    ASSERT_TRUE(heardState("7", "RUNNING"));
    // A mirrored key goes to the application that the master focused, and to nobody once it has blurred.
    Json::Value const key = IRPC::parse(R"({"proxy":0,"event":{"code":608,"pressed":true}})");
    EXPECT_TRUE(master.call("IWindowManager.handleFocus", IRPC::parse(R"({"uid":"7","focus":true})")).ok);
    EXPECT_TRUE(master.call("IWindowManager.dispatchEvent", key).ok);
    EXPECT_TRUE(master.call("IWindowManager.handleFocus", IRPC::parse(R"({"uid":"7","focus":false})")).ok);
    EXPECT_TRUE(master.call("IWindowManager.dispatchEvent", key).ok);
    EXPECT_TRUE(master.call("IApplicationManager.terminate", IRPC::parse(R"({"uid":"7"})")).ok);
    EXPECT_TRUE(heardState("7", "TERMINATED")); // it ignored the request: the slave ended it
    EXPECT_EQ(readLines(sandbox.root / "app.log"),
              (Lines{"stubborn", "registered 7", "focus 1", "event", "key 608 1", "focus 0", "terminate"}));

    EXPECT_EQ(launch("file:///droid-stubborn", "8").result, "8"); // not a bare name: the default program
    ASSERT_TRUE(heardState("8", "RUNNING"));
    EXPECT_EQ(countOf(readLines(sandbox.root / "app.log"), "stubborn"), 1);
    std::vector<pid_t> const running = slave.children();
    ASSERT_EQ(running.size(), 1u);
    ::kill(slave.process.pid, SIGKILL);
    EXPECT_TRUE(HostTest::awaitEnd(running[0])) << "the application outlived its slave";
}
