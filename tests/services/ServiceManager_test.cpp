// The service command layer over fake clients: the uid list and its
// notification, token hand-off to every client, listener fan-out while the
// list changes, and the stub.
#include "FunctionCommand.h"
#include "ServiceFakes.h"
#include "ServiceManager.h"
#include "StubServiceManager.h"

#include <gtest/gtest.h>

#include <functional>

using namespace Velmora;
using namespace ServiceTest;

namespace {

class TestServiceManager : public ServiceManager {
public:
    explicit TestServiceManager(ApplicationFactory* factory) : ServiceManager(factory, 0, nullptr) {}
    Client::Type getClientType() override { return Client::Master; }

    void onThread(std::function<void()> body) { FunctionCommand::run(*this, std::move(body)); }
    std::string create(std::string const& name)
    {
        std::string uid;
        onThread([&] { uid = _createApplication(name, ""); });
        return uid;
    }
    // Waits until everything queued before has run.
    void settle() { onThread([] {}); }
};

IServiceManager::Rights someRights()
{
    IServiceManager::Rights rights;
    rights["IWindowManager"]["launch"] = 1;
    rights["ISettingsDB"]["getValue"] = 1;
    return rights;
}

struct ServiceTable : testing::Test {
    void SetUp() override { manager.init(); }
    FakeClients clients;
    FakeFactory factory;
    TestServiceManager manager{&factory};
};

TEST_F(ServiceTable, EmptyTableListsNothingAndTokensGoNowhere)
{
    EXPECT_TRUE(manager.getServiceList().empty());
    manager.authorizationTokenCreation(7, someRights());
    manager.authorizationTokenDeletion(7);
    EXPECT_TRUE(clients.journal.all().empty());
}

TEST_F(ServiceTable, ListHoldsEveryUidAndIsSentOnEveryNewState)
{
    ServiceListener listener;
    manager.addListener(&listener);
    std::string const first = manager.create("one");
    std::string const second = manager.create("two");
    EXPECT_EQ((std::vector<std::string>{first, second}), std::vector<std::string>(manager.getServiceList()));

    manager.onStateChange(second, "UNINITIALIZED", "INITIALIZING");
    manager.onStateChange(second, "INITIALIZING", "RUNNING");
    manager.onStateChange(second, "RUNNING", "RUNNING"); // no news: no list
    manager.settle();
    std::string const both = "list " + first + " " + second;
    EXPECT_EQ((std::vector<std::string>{both, both}), listener.journal.all());

    manager.onStateChange(first, "UNINITIALIZED", "CRASHED");
    manager.settle();
    EXPECT_EQ("list " + second, listener.journal.all().back());
    EXPECT_EQ((std::vector<std::string>{second}), std::vector<std::string>(manager.getServiceList()));
    manager.removeListener(&listener);
}

TEST_F(ServiceTable, TokensReachEveryServiceInKeyOrderWithoutMemory)
{
    std::string const a = manager.create("a");
    std::string const b = manager.create("b");
    manager.authorizationTokenCreation(42, someRights());
    manager.authorizationTokenDeletion(99); // unknown to all, passed on all the same
    std::string const late = manager.create("late");
    EXPECT_EQ((std::vector<std::string>{"create " + a + " 42 2", "create " + b + " 42 2", "delete " + a + " 99",
                                        "delete " + b + " 99"}),
              clients.journal.all());
    (void)late;
}

TEST_F(ServiceTable, FailingClientStopsTheWalkAndReachesTheCaller)
{
    std::string const a = manager.create("a");
    std::string const b = manager.create("b");
    std::string const c = manager.create("c");
    clients.get(b)->failTokens = true;
    EXPECT_THROW(manager.authorizationTokenCreation(5, someRights()), Exception);
    // No rollback: the service before keeps the token, the one after never hears.
    EXPECT_EQ((std::vector<std::string>{"create " + a + " 5 2"}), clients.journal.all());
    (void)c;
}

// A listener that adds another one from inside its call.
struct Adder : ServiceListener {
    explicit Adder(ServiceManager& manager, IListener* extra) : manager(manager), extra(extra) {}
    void onBootComplete() override
    {
        ServiceListener::onBootComplete();
        if (extra)
            manager.addListener(std::exchange(extra, nullptr));
    }
    ServiceManager& manager;
    IListener* extra;
};

TEST_F(ServiceTable, AddingDuringFanOutRestartsTheWalk)
{
    ServiceListener first;
    ServiceListener late;
    Adder second(manager, &late);
    manager.addListener(&first);
    manager.addListener(&second);
    manager.onBootComplete();
    EXPECT_EQ(1u, first.journal.count("boot complete"));
    EXPECT_EQ(2u, second.journal.count("boot complete"));
    EXPECT_EQ(1u, late.journal.count("boot complete"));

    manager.removeListener(&second);
    manager.onServiceFailure("QEN");
    EXPECT_EQ(0u, second.journal.count("failure QEN"));
    EXPECT_EQ(1u, late.journal.count("failure QEN"));
    manager.removeListener(&first);
    manager.removeListener(&late);
}

TEST(StubServiceManager, TableWithoutPolicyAndStubClients)
{
    FakeClients clients;
    FakeFactory factory;
    StubServiceManager stub(&factory);
    stub.init();
    EXPECT_EQ(Client::Stub, stub.getClientType());
    EXPECT_TRUE(stub.getServiceList().empty());
    stub.authorizationTokenCreation(1, IServiceManager::Rights());
    EXPECT_TRUE(factory.started.empty());
    EXPECT_TRUE(clients.journal.all().empty());
}

} // namespace
