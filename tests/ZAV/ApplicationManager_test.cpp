// The application table on the test clock over a fake factory and fake clients.
#include "ApplicationManager.h"
#include "ServiceFakes.h"
#include "frame/Exception.h"
#include "ReturnCodeOf.h"
#include "frame/TestClock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

using namespace Velmora;
using namespace ServiceTest;

namespace {

class TestManager : public OnThread<ApplicationManager> {
public:
    TestManager(ApplicationFactory* factory, std::vector<char const*> args)
        : OnThread(factory, "TestManager", 0, nullptr), args(std::move(args))
    {
        argc = static_cast<int>(this->args.size());
        argv = const_cast<char**>(this->args.data());
    }
    // The thread stops before this class goes: its commands call this class's overrides.
    ~TestManager() override { uninit(); }
    ApplicationMapEntry entry(std::string const& uid)
    {
        return fetch([&] { return _getApplicationEntry(uid) ? *_getApplicationEntry(uid) : ApplicationMapEntry(); });
    }
    bool has(std::string const& uid) { return !entry(uid).getPid().empty(); }
    std::atomic<int> listChanges{0};

protected:
    void _onApplicationListChange() override { ++listChanges; }

private:
    std::vector<char const*> args;
};

struct ApplicationTable : testing::Test {
    TestClock clock;
    FakeClients clients;
    FakeFactory factory;
    // The clients deleted so far.
    long gone() { return std::ranges::count_if(clients.journal.all(), [](auto const& line) { return line.starts_with("gone "); }); }
};

} // namespace

TEST_F(ApplicationTable, OptionsSetTheFirstDelayAndTheHostname)
{
    TestManager manager(&factory, {"host", "--velmora:applicationHostname", "Box", "--other",
                                   "--velmora:gcInitDelay", "30"});
    manager.init();
    EXPECT_EQ(manager.getInitialTimeoutDelay(), 30000u);
    EXPECT_EQ(manager.getApplicationHostname(), "Box");
    manager.create("app", "{}");
    EXPECT_EQ(factory.lastHostname, "Box");

    TestManager trailing(&factory, {"host", "--velmora:gcInitDelay"});
    trailing.init();
    EXPECT_EQ(trailing.getInitialTimeoutDelay(), 10000u);
    EXPECT_EQ(trailing.getApplicationHostname(), "Host");
}

TEST_F(ApplicationTable, UidIsTheTokenOrTheProcessIdAndTerminateMarksTheEntry)
{
    TestManager manager(&factory, {});
    manager.init();
    // A token that isn't text fails the launch before any process exists.
    EXPECT_THROW(manager.create("app", R"({"authorizationToken":5})"), Exception);
    std::string byPid = manager.create("app", "");
    EXPECT_EQ(byPid, "1000");
    EXPECT_EQ(manager.entry(byPid).getPid(), "1000");
    EXPECT_EQ(manager.entry(byPid).getLastReportedState(), ILifecycleManagement::STATE_UNINITIALIZED);

    std::string byToken = manager.create("app", R"({"authorizationToken":"4242"})");
    EXPECT_EQ(byToken, "4242");
    EXPECT_EQ(manager.entry(byToken).getPid(), "1001");

    // A second launch with the same token replaces the entry; the first process stays.
    EXPECT_EQ(manager.create("app", R"({"authorizationToken":"4242"})"), "4242");
    EXPECT_EQ(manager.entry("4242").getPid(), "1002");
    EXPECT_EQ(clients.journal.all(), std::vector<std::string>{"gone 4242"});
    EXPECT_EQ(factory.destroyed.size(), 0u);

    factory.failing.insert("missing");
    EXPECT_EQ(manager.create("missing", "{}"), "");
    EXPECT_EQ(manager.getState(byPid), "RUNNING");

    // Terminate marks the entry; unknown uids are invalid parameters.
    clock.advance(9999);
    manager.terminate(byPid);
    EXPECT_EQ(clients.journal.all(), (std::vector<std::string>{"gone 4242", "terminate " + byPid}));
    EXPECT_TRUE(manager.entry(byPid).getDeathMark());
    clock.advance(10000);
    EXPECT_TRUE(manager.entry(byPid).getKeepAlive()); // the mark restarted the delay

    EXPECT_EQ(returnCodeOf([&] { manager.getState("nobody"); }), ReturnInvalidParameter);
    EXPECT_EQ(returnCodeOf([&] { manager.terminate("nobody"); }), ReturnInvalidParameter);
    EXPECT_EQ(returnCodeOf([&] { manager.activate("nobody"); }), ReturnInvalidParameter);
    EXPECT_EQ(returnCodeOf([&] { manager.getRuntimeStatistics("nobody"); }), ReturnInvalidParameter);

    clients.refusing = byPid;
    EXPECT_EQ(returnCodeOf([&] { manager.getState(byPid); }), ReturnGenericFailure);
    // The default client, with no program behind it, fails calls the same way.
    EXPECT_EQ(returnCodeOf([&] { manager.suspend(byPid); }), ReturnGenericFailure);
}

TEST_F(ApplicationTable, ReportsMoveTheStateAndTerminalStatesEndTheEntry)
{
    TestManager manager(&factory, {});
    manager.init();
    std::string uid = manager.create("app", "");

    clients.report(uid, "", "INITIALIZING");
    manager.entry(uid); // sync with the manager's thread
    EXPECT_EQ(manager.entry(uid).getLastReportedState(), "INITIALIZING");
    EXPECT_EQ(manager.listChanges, 1);

    clock.advance(9000);
    clients.keepAlive(uid, "INITIALIZING"); // same state: a sign of life, no list change
    manager.entry(uid);
    EXPECT_EQ(manager.listChanges, 1);
    clock.advance(9000);
    EXPECT_TRUE(manager.entry(uid).getKeepAlive());
    clock.advance(1001);
    EXPECT_FALSE(manager.entry(uid).getKeepAlive());

    clients.report(uid, "INITIALIZING", ILifecycleManagement::STATE_RUNNING);
    EXPECT_TRUE(manager.entry(uid).getKeepAlive());
    clock.advance(6001); // RUNNING shortened the delay to six seconds
    EXPECT_FALSE(manager.entry(uid).getKeepAlive());

    // A report that ends the entry goes to the manager directly: the manager
    // deletes the client it came through, which may not be still delivering.
    manager.onStateChange(uid, ILifecycleManagement::STATE_RUNNING, ILifecycleManagement::STATE_TERMINATED);
    EXPECT_FALSE(manager.has(uid));
    EXPECT_EQ(manager.listChanges, 3);
    ASSERT_EQ(factory.destroyed.size(), 1u);
    EXPECT_EQ(factory.destroyed[0], "1000");
    EXPECT_FALSE(factory.forcefully[0]);
    EXPECT_EQ(gone(), 1);

    // Reports for a uid that is gone are ignored without a word.
    manager.onStateChange(uid, "", ILifecycleManagement::STATE_RUNNING);
    manager.onKeepAlive("nobody", ILifecycleManagement::STATE_RUNNING);
    EXPECT_FALSE(manager.has(uid));
}

// The manager going destroys every live entry once, also with reports still
// queued: its thread stops before the table empties. A runaway's entry is gone
// already: the host stops calling in before it destroys.
TEST_F(ApplicationTable, ARunawayIsKilledAtOnceAndDestroyingTheManagerDestroysEveryLiveEntryOnce)
{
    {
        TestManager manager(&factory, {});
        manager.init();
        std::vector<std::string> uids;
        for (int i = 0; i < 5; ++i)
            uids.push_back(manager.create("app", ""));
        // A runaway is killed at once, and loses its entry even when the factory fails.
        std::string const runaway = manager.create("app", "");
        factory.failDestroy = true;
        std::string const log = VelmoraTest::stderrOf([&] {
            manager.onStateChange(runaway, "", ILifecycleManagement::STATE_RUNAWAY);
            EXPECT_FALSE(manager.has(runaway)); // a round trip: the kill has been logged
        });
        EXPECT_NE(log.find("_destroyApplication(): caught unknown exception"), std::string::npos) << log;
        ASSERT_EQ(factory.destroyed.size(), 1u);
        EXPECT_TRUE(factory.forcefully[0]);
        factory.failDestroy = false;
        for (int round = 0; round < 50; ++round)
            for (std::string const& uid : uids)
                manager.onStateChange(uid, "", round % 2 ? "RUNNING" : "SUSPENDED");
    }
    EXPECT_EQ(gone(), 6);
    EXPECT_EQ(factory.destroyed.size(), 6u);
}
