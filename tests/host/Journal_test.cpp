// The lifecycle journal of a real server: for each way a window goes away the
// journal names the reason and the cause, keeps them over a restart, and a
// journal file that cannot be written costs the server nothing.
#include "HostWorld.h"

#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

using namespace HostTest;

namespace {

std::vector<std::string> const NO_MASTER{};

// A client that wakes waitFor() at every new journal entry.
void connectFollowing(Velmora::RPCClient& client)
{
    client.setNotificationHandler([](std::string const&, Json::Value const&) { BusTest::notifyChanged(); });
    client.connect("ZAV");
    Json::Value events;
    events["events"].append("ILifecycleJournal::onEntry");
    client.callOrThrow("RPC.subscribe", events);
}

Json::Value entriesOf(Velmora::RPCClient& client, std::string const& uid)
{
    Json::Value query;
    query["uid"] = uid;
    return client.callOrThrow("ILifecycleJournal.query", query);
}

// The first entry of `uid` of that kind; null when there is none yet.
Json::Value entry(Velmora::RPCClient& client, std::string const& uid, std::string const& kind)
{
    for (Json::Value const& found : entriesOf(client, uid))
        if (found["kind"] == kind)
            return found;
    return Json::Value();
}

// The uid of the window started for `url`; empty while none is.
std::string startedFor(Velmora::RPCClient& client, std::string const& url)
{
    Json::Value query;
    query["kind"] = "started";
    for (Json::Value const& found : client.callOrThrow("ILifecycleJournal.query", query))
        if (found["name"] == url)
            return found["uid"].asString();
    return std::string();
}

bool hasEnded(Velmora::RPCClient& client, std::string const& uid) { return !entry(client, uid, "ended").isNull(); }

std::string launch(Velmora::RPCClient& client, std::string const& url)
{
    Json::Value params;
    params["proxy"] = 0;
    params["applicationType"] = "OTHER";
    params["applicationURL"] = url;
    return client.callOrThrow("IWindowManager.launch", params).asString();
}

std::string launchRunning(Velmora::RPCClient& client, std::string const& url)
{
    std::string const uid = launch(client, url);
    EXPECT_TRUE(BusTest::waitFor([&] { return !entry(client, uid, "focus").isNull(); }));
    return uid;
}

} // namespace

TEST(Journal, NamesWhyEachWindowWentAwayAndKeepsItOverARestart)
{
    HostWorld world;
    std::string evicted, terminated, killed;
    {
        HostServer server(world, NO_MASTER);
        ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << server.log();
        Velmora::RPCClient client(1);
        connectFollowing(client);

        // A full table: the oldest window is evicted for the third launch, which waits for its end.
        evicted = launchRunning(client, "first");
        terminated = launchRunning(client, "second");
        EXPECT_EQ("", launch(client, "third")); // put off: it has no uid yet
        ASSERT_TRUE(BusTest::waitFor([&] { return hasEnded(client, evicted); })) << server.log();
        Json::Value const eviction = entry(client, evicted, "evicted");
        EXPECT_EQ("first", eviction["name"].asString());
        EXPECT_NE(eviction["cause"].asString().find("for the launch of OTHER third"), std::string::npos) << eviction;
        EXPECT_EQ("TERMINATED", entry(client, evicted, "ended")["reason"].asString());
        EXPECT_EQ("process " + evicted + " reaped: exit status 0", entry(client, evicted, "ended")["cause"].asString());
        ASSERT_TRUE(BusTest::waitFor([&] { return !(killed = startedFor(client, "third")).empty(); }));
        ASSERT_TRUE(BusTest::waitFor([&] { return !entry(client, killed, "focus").isNull(); })) << server.log();
        EXPECT_NE(entry(client, killed, "started")["reason"].asString().find("the put-off launch, after " + evicted),
                  std::string::npos);

        // Over the bus, as a user asks.
        EXPECT_EQ(0, world.ctl("terminate " + terminated).status);
        ASSERT_TRUE(BusTest::waitFor([&] { return hasEnded(client, terminated); })) << server.log();
        EXPECT_EQ("IApplicationManager.terminate", entry(client, terminated, "terminate")["cause"].asString());

        // Killed behind the server's back: the next focus change can't reach it,
        // and the collection ends it as a runaway.
        ::kill(std::stoi(entry(client, killed, "started")["cause"].asString().substr(4)), SIGKILL);
        launchRunning(client, "fourth");
        ASSERT_TRUE(BusTest::waitFor([&] { return hasEnded(client, killed); })) << server.log();
        EXPECT_EQ("ignored a terminate request or could not be reached",
                  entry(client, killed, "runaway")["reason"].asString());
        EXPECT_EQ("RUNAWAY", entry(client, killed, "ended")["reason"].asString());
        EXPECT_EQ("process " + killed + " killed: signal 9 (Killed)", entry(client, killed, "ended")["cause"].asString());
        client.disconnect();
        EXPECT_EQ(0, server.stop(SIGTERM)) << server.log();
    }

    // A second server reads the file back: the readable form answers the question.
    HostServer again(world, NO_MASTER);
    ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << again.log();
    BusTest::Output const history = world.ctl("journal --uid " + evicted);
    EXPECT_EQ(0, history.status);
    EXPECT_NE(history.text.find("s0  evicted " + evicted + " OTHER first: oldest window at the limit (for the launch "
                                "of OTHER third requested by IWindowManager.launch)"),
              std::string::npos)
        << history.text;
    EXPECT_NE(history.text.find("ended " + evicted + " OTHER first: TERMINATED"), std::string::npos) << history.text;
}

// A journal path that is a directory can never be opened: the server serves
// all the same, keeps the entries in memory and says why once.
TEST(Journal, AnUnwritableFileCostsOnlyTheFileCopy)
{
    HostWorld world;
    fs::create_directories(world.sysroot / "usr/local/var/velmora/journal");
    HostServer server(world, NO_MASTER);
    ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << server.log();
    Velmora::RPCClient client(1);
    connectFollowing(client);
    std::string const uid = launchRunning(client, "still served");
    EXPECT_EQ("requested by IWindowManager.launch", entry(client, uid, "started")["reason"].asString());
    BusTest::Output const recent = world.ctl("journal --since 1h --kind started");
    EXPECT_EQ(0, recent.status);
    EXPECT_NE(recent.text.find("  s0  started " + uid + " OTHER still served: requested by IWindowManager.launch"),
              std::string::npos)
        << recent.text;
    EXPECT_EQ(2, world.ctl("journal --since yesterday").status);
    client.disconnect();
    EXPECT_EQ(0, server.stop(SIGTERM)) << server.log();
    std::string const log = server.log();
    std::string const complaint = "the journal file fails, entries stay in memory only: open ";
    ASSERT_NE(log.find(complaint), std::string::npos) << log;
    EXPECT_EQ(log.find(complaint), log.rfind(complaint)) << log;
    EXPECT_NE(log.find("Is a directory"), std::string::npos) << log;
}
