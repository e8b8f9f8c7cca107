// The service command layer and the boot sequencer over fakes; the listeners'
// walk is the listener list's own test, the power manager's end the boot
// tests', cycles the graph test's.
#include "MasterServiceManager.h"
#include "PlatformHelper.h"
#include "ServiceFakes.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Velmora;
using namespace ServiceTest;

namespace {

IServiceManager::Rights const TWO_RIGHTS{{"IWindowManager", {{"launch", 1}}}, {"ISettingsDB", {{"getValue", 1}}}};

struct ServiceTable : testing::Test {
    void SetUp() override { manager.init(); }
    FakeClients clients;
    FakeFactory factory;
    OnThread<ServiceManager> manager{&factory, 0, nullptr};
};

TEST_F(ServiceTable, ListHoldsEveryUidAndIsSentOnEveryNewState)
{
    ServiceListener listener;
    manager.addListener(&listener);
    std::string const first = manager.create("one");
    std::string const second = manager.create("two");
    EXPECT_EQ((Names{first, second}), Names(manager.getServiceList()));

    manager.onStateChange(second, "UNINITIALIZED", "INITIALIZING");
    manager.onStateChange(second, "INITIALIZING", "RUNNING");
    manager.onStateChange(second, "RUNNING", "RUNNING"); // no news: no list
    manager.onThread([] {}); // everything queued before has run
    std::string const both = "list " + first + " " + second;
    EXPECT_EQ((Names{both, both}), listener.journal.all());

    manager.onStateChange(first, "UNINITIALIZED", "CRASHED");
    manager.onThread([] {});
    EXPECT_EQ("list " + second, listener.journal.all().back());
    EXPECT_EQ((Names{second}), Names(manager.getServiceList()));
    manager.removeListener(&listener);
}

TEST_F(ServiceTable, TokensReachEveryServiceInKeyOrderWithoutMemory)
{
    manager.authorizationTokenCreation(7, TWO_RIGHTS); // an empty table: nowhere to go
    std::string const a = manager.create("a");
    std::string const b = manager.create("b");
    manager.authorizationTokenCreation(42, TWO_RIGHTS);
    manager.authorizationTokenDeletion(99); // unknown to all, passed on all the same
    manager.create("late");
    EXPECT_EQ((Names{"create " + a + " 42 2", "create " + b + " 42 2", "delete " + a + " 99", "delete " + b + " 99"}),
              clients.journal.take());

    // A failing client stops the walk and reaches the caller, without
    // rollback: the service before keeps the token, the ones after never hear.
    clients.refusing = b;
    EXPECT_THROW(manager.authorizationTokenCreation(5, TWO_RIGHTS), Exception);
    EXPECT_EQ((Names{"create " + a + " 5 2"}), clients.journal.all());
}

class TestMaster : public OnThread<MasterServiceManager> {
public:
    TestMaster(ApplicationFactory* factory, std::vector<char const*> const& args)
        : OnThread(factory, static_cast<int>(args.size()), const_cast<char**>(args.data()))
    {
    }

    // What init() does after reading the catalogue, with the given edges.
    void boot(std::vector<std::pair<std::string, std::string>> const& edges)
    {
        ApplicationManager::init();
        for (auto const& [first, second] : edges)
            serviceGraph.newEdge(StringObject(first), StringObject(second));
        inputDriver = Singleton<InputDriver>::getInstance<FakeInputDriver>();
        onThread([this] { _sequenceBootup(); });
    }
};

std::vector<char const*> const ONE_SESSION{"server", "--velmora:session0"};

struct Boot : testing::Test {
    Boot()
    {
        WEBClient::setFactory([this](Client::Type, std::string const&) -> WEBClient* {
            return refuseWeb ? nullptr : new FakeWeb(web, webDead);
        });
        manager.addListener(&listener);
        input.journal.take(); // the driver outlives a test when several run in one process
    }
    ~Boot() override
    {
        manager.removeListener(&listener);
        WEBClient::setFactory(nullptr);
        delete &input;
    }

    // As the client would report it for the newest process of `name`.
    void report(std::string const& name, std::string const& state)
    {
        std::string const uid = factory.newestPid(name);
        ASSERT_FALSE(uid.empty()) << name;
        manager.onStateChange(uid, "", state);
        manager.onThread([] {});
    }
    std::size_t boots() const { return listener.journal.count("boot complete"); }

    FakeClients clients;
    FakeFactory factory;
    Journal web;
    bool refuseWeb = false;
    bool webDead = false;
    ServiceListener listener;
    TestMaster manager{&factory, ONE_SESSION};
    FakeInputDriver& input = static_cast<FakeInputDriver&>(*Singleton<InputDriver>::getInstance<FakeInputDriver>());
};

TEST(Sessions, OnlyTheHighestIndexRightBehindTheWordCounts)
{
    FakeFactory factory;
    auto count = [&](std::vector<char const*> args) {
        args.insert(args.begin(), "server");
        return TestMaster(&factory, args).getSessionCount();
    };
    EXPECT_EQ(0u, count({"--velmora:gcInitDelay", "3"}));
    EXPECT_EQ(1u, count({"--velmora:session"}));
    EXPECT_EQ(2u, count({"--velmora:session1", "--velmora:session0"}));
    EXPECT_EQ(13u, count({"--velmora:session12"}));
    EXPECT_EQ(1u, count({"--velmora:session=2"}));
}

TEST_F(Boot, EachTreeStartsOneServiceAtATimeInWalkOrder)
{
    // Tree 1: start -> a -> (b, c). Tree 2: start2 -> d -> b, sharing b: whichever
    // tree reaches b first starts it, the other waits. Tree 3, start nodes alone, is complete.
    manager.boot({{"start_velmora", "svc-a"}, {"svc-a", "svc-b"}, {"svc-a", "svc-c"}, {"start_velmora_2", "svc-d"},
                  {"svc-d", "svc-b"}, {"start_velmora_3", "start_velmora_4"}});
    EXPECT_EQ((Names{"svc-a", "svc-d"}), factory.startedNames());
    EXPECT_EQ("svc-a|1", factory.started[0]);

    report("svc-a", "INITIALIZING");
    EXPECT_EQ(2u, factory.started.size());
    report("svc-a", "RUNNING");
    EXPECT_EQ((Names{"svc-a", "svc-d", "svc-b"}), factory.startedNames());
    report("svc-d", "RUNNING");
    report("svc-b", "RUNNING");
    EXPECT_EQ((Names{"svc-a", "svc-d", "svc-b", "svc-c"}), factory.startedNames());
    EXPECT_EQ(0u, boots());
    report("svc-c", "RUNNING");
    EXPECT_EQ(1u, boots());

    // Any new state with all trees up completes the boot again.
    report("svc-b", "SUSPENDED");
    EXPECT_EQ(1u, boots());
    report("svc-b", "RUNNING");
    EXPECT_EQ(2u, boots());
}

TEST_F(Boot, MissingServiceIsStartedAgainBeforeAnythingBehindIt)
{
    factory.failing.insert("broken");
    manager.boot({{"start_velmora", "first"}, {"first", "second"}, {"second", "third"}, {"start_velmora_2", "broken"}});
    report("first", "RUNNING");
    std::string const oldFirst = factory.newestPid("first");
    report("first", "CRASHED");
    EXPECT_EQ((Names{"first", "broken", "second", "broken", "first", "broken"}), factory.startedNames());
    EXPECT_NE(oldFirst, factory.newestPid("first"));
    EXPECT_EQ((Names{oldFirst}), factory.destroyed);
    report("second", "RUNNING"); // the second is up but waits behind the first
    EXPECT_EQ(7u, factory.started.size());
    report("first", "RUNNING");
    EXPECT_EQ("third", factory.startedNames().at(7));
    EXPECT_EQ(0u, boots()); // the tree whose service can't start stays pending
}

TEST_F(Boot, WebServiceHearsTheServerThenThePendingFacilitiesInOrder)
{
    manager.boot({{"start_velmora", "NETd"}, {"start_velmora", "VelmoraQENExec"}, {"start_velmora", "WEBd"},
                  {"start_velmora", "DIAGd"}});
    report("NETd", "RUNNING");
    report("VelmoraQENExec", "RUNNING");
    // A refused client loses the report: the state isn't recorded, so the next one connects.
    refuseWeb = true;
    report("WEBd", "RUNNING");
    EXPECT_TRUE(web.all().empty());
    refuseWeb = false;
    report("WEBd", "RUNNING");
    EXPECT_EQ((Names{"web init", "add ZAV", "add NET", "add MediaStore", "add MediaPlayer", "add FastChannelChange",
                     "add Frontend", "add TV"}),
              web.take());

    report("DIAGd", "RUNNING");
    report("DIAGd", "TERMINATED");
    report("NETd", "CRASHED");
    EXPECT_EQ((Names{"add DIAG", "remove DIAG", "remove NET"}), web.take());
    EXPECT_EQ((Names{"enableHotplug", "disableHotplug"}), input.journal.all());

    // The web service's end drops the client; its return hears only what was pending since.
    report("WEBd", "CRASHED");
    report("NETd", "RUNNING"); // the new network process
    report("WEBd", "RUNNING");
    EXPECT_EQ((Names{"web gone", "web init", "add ZAV", "add NET"}), web.all());
}

TEST_F(Boot, MediaEngineLossIsAFailureAndRestartsItEvenWithTheWebServiceGone)
{
    manager.boot({{"start_velmora", "VelmoraQENExec"}, {"start_velmora", "WEBd"}});
    report("VelmoraQENExec", "RUNNING");
    report("VelmoraQENExec", "CRASHED"); // before the web service: nothing withdrawn
    EXPECT_EQ(1u, listener.journal.count("failure QEN"));
    EXPECT_EQ("VelmoraQENExec|", factory.started.back());
    report("VelmoraQENExec", "RUNNING");
    report("WEBd", "RUNNING");
    // Announced twice: once per coming up while the web service was away.
    Names const heard = web.take();
    EXPECT_EQ(2, std::count(heard.begin(), heard.end(), "add TV"));

    // The web service dies or stalls: its failed calls are logged, the
    // engine's end is still recorded, its process reaped and the engine
    // restarted. (Its withdrawal from a live web service is the boot tests'.)
    std::size_t const destroyed = factory.destroyed.size();
    std::string const engine = factory.newestPid("VelmoraQENExec");
    webDead = true;
    report("VelmoraQENExec", "CRASHED");
    EXPECT_EQ(2u, listener.journal.count("failure QEN"));
    EXPECT_EQ(engine, factory.destroyed.back());
    EXPECT_NE(engine, factory.newestPid("VelmoraQENExec"));
    report("VelmoraQENExec", "RUNNING"); // announced to the dead service: logged, and recorded
    webDead = false;
    report("VelmoraQENExec", "TERMINATED");
    EXPECT_EQ(3u, listener.journal.count("failure QEN"));
    EXPECT_EQ(destroyed + 2, factory.destroyed.size());
}

TEST_F(Boot, OnlyNewUpAndDownStatesOfKnownServicesAct)
{
    manager.boot({{"start_velmora", "WEB-NET"}, {"start_velmora", "plain"}, {"start_velmora", "velmora-hux"},
                  {"start_velmora", "WEBd"}});
    report("WEB-NET", "INITIALIZING");
    EXPECT_TRUE(input.journal.all().empty());
    report("WEB-NET", "RUNNING"); // network, not web service: the earlier row wins
    report("WEB-NET", "RUNNING"); // a repeat acts no more
    EXPECT_TRUE(web.all().empty());
    report("plain", "RUNNING");
    // An unknown uid is passed on and nothing else.
    manager.onStateChange("424242", "", "RUNNING");
    manager.onThread([] {});
    // The power manager starts the platform and the remote.
    report("velmora-hux", "RUNNING");
    EXPECT_EQ((Names{"enableHotplug", "enableIr"}), input.journal.all());
    report("WEBd", "RUNNING");
    EXPECT_EQ((Names{"web init", "add ZAV", "add NET", "add HUX"}), web.all());
    PlatformHelper* platform = Singleton<PlatformHelper>::getInstance<PlatformHelper>();
    EXPECT_EQ(1u, platform->getStartCount());
    delete platform; // ours and the manager's, which it never drops: a repeated run starts afresh
    delete platform;
}

} // namespace
