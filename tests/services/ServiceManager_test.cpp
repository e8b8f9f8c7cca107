// The service command layer over fake clients; the listeners' walk is the listener list's own test.
#include "ServiceFakes.h"
#include "ServiceManager.h"

#include <gtest/gtest.h>

using namespace Velmora;
using namespace ServiceTest;

namespace {

using TestServiceManager = OnThread<ServiceManager>;

IServiceManager::Rights const TWO_RIGHTS{{"IWindowManager", {{"launch", 1}}}, {"ISettingsDB", {{"getValue", 1}}}};

struct ServiceTable : testing::Test {
    void SetUp() override { manager.init(); }
    FakeClients clients;
    FakeFactory factory;
    TestServiceManager manager{&factory, 0, nullptr};
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
    manager.onThread([] {}); // everything queued before has run
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

} // namespace
