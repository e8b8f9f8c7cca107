// The lifecycle journal of a real server.
#include "HostWorld.h"
#include "PackageWorld.h"

#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"
#include "rpc/RuntimeDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include <sys/resource.h>

using namespace HostTest;

namespace {

// The entries whose `member` is `value`.
Json::Value query(Velmora::RPCClient& client, char const* member, std::string const& value)
{
    Json::Value request;
    request[member] = value;
    return client.callOrThrow("ILifecycleJournal.query", request);
}

// The first entry of `uid` of that kind; null when there is none yet.
Json::Value entry(Velmora::RPCClient& client, std::string const& uid, std::string const& kind)
{
    for (Json::Value const& found : query(client, "uid", uid))
        if (found["kind"] == kind)
            return found;
    return Json::Value();
}

// The uid of the program started for `name`; empty while none is.
std::string startedFor(Velmora::RPCClient& client, std::string const& name)
{
    for (Json::Value const& found : query(client, "kind", "started"))
        if (found["name"] == name)
            return found["uid"].asString();
    return std::string();
}

pid_t pidOf(Velmora::RPCClient& client, std::string const& uid)
{
    return std::stoi(entry(client, uid, "started")["cause"].asString().substr(4)); // "pid N, script ..."
}

std::string launchRunning(Velmora::RPCClient& client, std::string const& url)
{
    std::string const uid = launch(client, url);
    EXPECT_TRUE(BusTest::waitFor([&] { return !entry(client, uid, "focus").isNull(); }));
    return uid;
}

// The box's services (the start of the system and the media engine's
// simulator) and two applications, "notes" and "clock".
void installPackages(VelmoraTest::PackageWorld const& packages, HostWorld const& world)
{
    packages.installMany(
        "journal-with-applications",
        {{"velmora-start", "1.0", "Velmora/Service", "{\"applicationURL\":\"start_velmora\"}", {}},
         {"velmora-qen", "1.0", "Velmora/Service", "{\"applicationURL\":\"VelmoraQENExec\"}", {"velmora-start"}},
         {"velmora-notes", "1.0", "Applications", R"({"applicationType":"OTHER","applicationURL":"notes"})", {}},
         {"velmora-clock", "1.0", "Applications", R"({"applicationType":"OTHER","applicationURL":"clock"})", {}}});
    // The packager finds its settings, and with them the RPM root, in the server's sysroot.
    fs::create_directories(world.sysroot / "usr/local/var");
    fs::create_directory_symlink(packages.root().parent_path() / "sysroot/usr/local/var/velmora",
                                 world.sysroot / "usr/local/var/velmora");
}

// Why the journal must say a window went on `path`: the entry of `kind` names `reason` and its cause holds `cause`.
struct Why {
    char const* path;
    std::string uid;
    std::string kind;
    std::string reason;
    std::string cause;
};

} // namespace

TEST(Journal, NamesWhyEachWindowWentAwayAndKeepsItOverARestart)
{
    HostWorld world;
    VelmoraTest::PackageWorld packages;
    installPackages(packages, world);
    rlimit core{};
    ::getrlimit(RLIMIT_CORE, &core);
    core.rlim_cur = 0; // the crash below dumps nothing, and the server's grace stays short
    ::setrlimit(RLIMIT_CORE, &core);
    std::map<std::string, std::string> const withSimulators{
        {"PATH", std::string(VELMORA_TEST_APP_DIR) + ":" + VELMORA_SIM_DIR + ":" + std::getenv("PATH")}};
    std::vector<Why> whys;
    std::string bystander;
    {
        ServerProcess server = world.server({}, withSimulators);
        ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << server.log();
        Velmora::RPCClient client(1);
        connectWatching(client, "ILifecycleJournal::onEntry"); // wakes waitFor() at every new entry
        auto const ended = [&](std::string const& uid) {
            EXPECT_TRUE(BusTest::waitFor([&] { return !entry(client, uid, "ended").isNull(); })) << uid << "\n" << server.log();
        };

        // A full table: the oldest window is evicted for the third launch, which waits for its end.
        std::string const first = launchRunning(client, "first");
        std::string const second = launchRunning(client, "second");
        EXPECT_EQ("", launch(client, "third")); // put off: it has no uid yet
        ended(first);
        whys.push_back({"eviction", first, "evicted", "oldest window at the limit",
                        "for the launch of OTHER third requested by IWindowManager.launch"});
        std::string third;
        ASSERT_TRUE(BusTest::waitFor([&] { return !(third = startedFor(client, "third")).empty(); }));
        ASSERT_TRUE(BusTest::waitFor([&] { return !entry(client, third, "focus").isNull(); })) << server.log();

        // Over the bus, as a user asks.
        EXPECT_EQ(0, world.ctl("terminate " + second).status);
        ended(second);
        whys.push_back({"terminate over the bus", second, "terminate", "terminate requested",
                        "IApplicationManager.terminate"});

        // Killed, or crashed, behind the server's back: the end is noticed at once.
        ::kill(pidOf(client, third), SIGKILL);
        ended(third);
        whys.push_back({"SIGKILL", third, "exited", "signal 9 (Killed)", "ended in state RUNNING"});
        whys.push_back({"SIGKILL", third, "focus", "the focused window ended (TERMINATED)", "from \"" + third});
        std::string const crasher = launchRunning(client, "crasher");
        ::kill(pidOf(client, crasher), SIGABRT); // as a failed assertion does; sanitizers leave it be
        ended(crasher);
        whys.push_back({"crash", crasher, "exited", "signal 6 (Aborted)", "ended in state RUNNING"});

        // The media engine's end ends every window; it is started again.
        std::string const victim = launchRunning(client, "victim");
        std::string const engine = startedFor(client, "VelmoraQENExec");
        ::kill(pidOf(client, engine), SIGKILL);
        ended(victim);
        whys.push_back({"service failure", victim, "terminate", "the service QEN failed", "every window but the master"});
        whys.push_back({"service failure", engine, "exited", "signal 9 (Killed)", "ended in state RUNNING"});
        // Booted once, and once more when the restarted engine runs, however often the service manager says so.
        EXPECT_TRUE(BusTest::waitFor([&] { return query(client, "kind", "boot-complete").size() == 2; }));
        EXPECT_EQ("again, after a service ended", query(client, "kind", "boot-complete")[1]["cause"].asString());

        // Alive but deaf: a stopped window can't answer the request to end; the collection kills it.
        std::string const deaf = launchRunning(client, "deaf");
        ::kill(pidOf(client, deaf), SIGSTOP);
        world.ctl("terminate " + deaf); // fails once its answer is overdue
        ended(deaf);
        whys.push_back({"run-away", deaf, "runaway", "ignored a terminate request or could not be reached",
                        "silent for over 6000 ms"});
        whys.push_back({"run-away", deaf, "ended", "RUNAWAY", "killed: signal 9 (Killed)"});

        // Removing a package ends its windows, and only those.
        std::string const notes = launchRunning(client, "notes");
        bystander = launchRunning(client, "clock"); // of another package
        Velmora::RPCClient lists(1);
        connectWatching(lists);
        ASSERT_EQ(0, world.ctl("remove velmora-notes --timeout 60").status) << server.log();
        EXPECT_TRUE(BusTest::waitFor([&] { return world.ctl("windows").text == bystander + "\n"; })) << server.log();
        whys.push_back({"package removed", notes, "terminate", "its package velmora-notes was removed",
                        "every window launched as OTHER notes"});

        // A window at the server's stop ends by itself once its server has gone; it is not killed.
        client.disconnect();
        EXPECT_EQ(0, server.stop(SIGTERM)) << server.log();
    }

    // A second server reads the file back: each path's reason and cause are there.
    ServerProcess again = world.server({}, withSimulators);
    ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << again.log();
    Velmora::RPCClient client(1);
    client.connect("ZAV");
    for (Why const& why : whys) {
        Json::Value const all = query(client, "uid", why.uid);
        auto const found = std::find_if(all.begin(), all.end(), [&](Json::Value const& one) {
            return one["kind"] == why.kind && one["reason"] == why.reason;
        });
        ASSERT_NE(found, all.end()) << why.path << ": " << all;
        EXPECT_NE((*found)["cause"].asString().find(why.cause), std::string::npos) << why.path << ": " << *found;
    }
    EXPECT_NE(entry(client, bystander, "ended")["cause"].asString().find("exit status 0"), std::string::npos)
        << query(client, "uid", bystander);
}

// A journal path that is a directory can never be opened, and a subscriber
// never reads its socket while 10,000 changes happen: the server serves all
// the same, keeps the entries in memory and says why once. velmoractl prints
// the whole ring, which is more than one message can carry.
TEST(Journal, AnUnwritableFileOrASubscriberThatNeverReadsCostsNothing)
{
    HostWorld world;
    fs::create_directories(world.sysroot / "usr/local/var/velmora/journal");
    ServerProcess server = world.server({});
    ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << server.log();

    // Subscribes with a small buffer that fills at once, and never reads.
    BusTest::RawPeer stalled(Velmora::RuntimeDirectory::endpointPath("ZAV"));
    int const small = 4096;
    ::setsockopt(stalled.fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
    ASSERT_TRUE(stalled.send(BusTest::request("RPC.subscribe", R"({"events":["ILifecycleJournal::onEntry"]})") + "\n"));

    Velmora::RPCClient client(1);
    connectWatching(client, "ILifecycleJournal::onEntry");
    Json::Value unknown = Velmora::IRPC::parse(R"({"proxy":0,"applicationType":"NONE"})");
    unknown["applicationURL"] = "nowhere/" + std::string(200, 'x'); // a whole ring then passes a message's size
    for (int i = 0; i < 10000; ++i)
        client.callOrThrow("IWindowManager.launch", unknown); // a launch-failed entry each
    std::string const uid = launchRunning(client, "still served");
    EXPECT_EQ("requested by IWindowManager.launch", entry(client, uid, "started")["reason"].asString());
    BusTest::Output const recent = world.ctl("journal --since 1h --kind started");
    EXPECT_EQ(0, recent.status);
    EXPECT_NE(recent.text.find("  s0  started " + uid + " OTHER still served: requested by IWindowManager.launch"),
              std::string::npos)
        << recent.text;
    EXPECT_EQ(2, world.ctl("journal --since yesterday").status);
    BusTest::Output const all = world.ctl("journal --json");
    EXPECT_EQ(0, all.status);
    EXPECT_EQ(4096, std::count(all.text.begin(), all.text.end(), '\n'));
    EXPECT_GT(all.text.size(), Velmora::RPCConnection::MAX_MESSAGE_SIZE);
    client.disconnect();
    EXPECT_EQ(0, server.stop(SIGTERM)) << server.log();
    std::string const log = server.log();
    std::string const complaint = "the journal file fails, entries stay in memory only: open ";
    ASSERT_NE(log.find(complaint), std::string::npos) << log;
    EXPECT_EQ(log.find(complaint), log.rfind(complaint)) << log;
    EXPECT_NE(log.find("Is a directory"), std::string::npos) << log;
}
