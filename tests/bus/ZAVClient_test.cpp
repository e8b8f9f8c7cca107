#include "BusTestSupport.h"

#include "Exception.h"
#include "IApplication.h"
#include "IWindowEvent.h"
#include "RPCServer.h"
#include "IApplicationManager.h"
#include "ZAVClient.h"

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

using namespace Velmora;
using BusTest::waitFor;

namespace {

// A second server instance that plays the slave: it launches, answers states
// and records the events dispatched to it.
class SlaveServer : public RPCServer {
public:
    SlaveServer() : RPCServer("slave0")
    {
        interfaces["IWindowManager"]["launch"] = static_cast<RPCMethod>(&SlaveServer::launch);
        interfaces["IWindowManager"]["dispatchEvent"] = static_cast<RPCMethod>(&SlaveServer::dispatchEvent);
        interfaces["IApplicationManager"]["getState"] = static_cast<RPCMethod>(&SlaveServer::getState);
    }
    ~SlaveServer() override { shutdown(); }

    std::mutex mutex;
    std::vector<Json::Value> received;

private:
    std::string launch(IRPC::RPCSynchronousMethodObject const& method)
    {
        remember(method);
        return IRPC::RPCResultObject(method.getMethod(), std::string("900")).serialize();
    }
    std::string dispatchEvent(IRPC::RPCSynchronousMethodObject const& method)
    {
        remember(method);
        return IRPC::RPCReturnObject(method.getMethod()).serialize();
    }
    std::string getState(IRPC::RPCSynchronousMethodObject const& method)
    {
        Json::Value const params = IRPC::parse(method.getParameters());
        if (params["uid"].asString() != "900")
            return IRPC::RPCErrorObject(method.getMethod(), "invalid interface").serialize();
        return IRPC::RPCResultObject(method.getMethod(), std::string("RUNNING")).serialize();
    }
    void remember(IRPC::RPCSynchronousMethodObject const& method)
    {
        std::lock_guard lock(mutex);
        received.push_back(IRPC::parse(method.getParameters()));
    }
};

struct Recorder : IApplication::IApplicationListener {
    void onKeepAlive(std::string const& uid, std::string const& state) override { add(uid + " alive " + state); }
    void onStateChange(std::string const& uid, std::string const&, std::string const& state) override
    {
        add(uid + " " + state);
    }
    void add(std::string const& report)
    {
        std::lock_guard lock(mutex);
        reports.push_back(report);
    }
    std::size_t count()
    {
        std::lock_guard lock(mutex);
        return reports.size();
    }
    std::mutex mutex;
    std::vector<std::string> reports;
};

} // namespace

TEST(ZAVClientTest, TalksToAnotherServerInstanceAndHearsItsReports)
{
    BusTest::RuntimeDir runtime;
    std::unique_ptr<ZAVClient> client(ZAVClient::create(Client::Master, "slave0"));
    Recorder recorder;
    client->addListener(&recorder);
    client->init(); // the slave is not up yet: calls fail, nothing hangs
    EXPECT_THROW(client->getState("900"), Exception);

    SlaveServer slave;
    slave.init();
    EXPECT_EQ("slave0", client->getServerUid());
    EXPECT_EQ("900", client->launch(IApplicationManager::LaunchParameters()));
    client->dispatchEvent(IWindowEvent::KeyEvent(IWindowEvent::KeyEvent::KEY_SYSTEM, true));
    {
        std::lock_guard lock(slave.mutex);
        ASSERT_EQ(2u, slave.received.size());
        EXPECT_EQ(0u, slave.received[0]["proxy"].asUInt());
        EXPECT_EQ("KeyEvent", slave.received[1]["event"]["@type"].asString());
    }
    EXPECT_EQ("RUNNING", client->getState("900"));
    EXPECT_THROW(client->getState("901"), Exception); // the slave's error text fails the call

    slave.handleRPCNotification("IApplicationManager::onStateChange",
                                "{\"uid\":\"900\",\"oldState\":\"INITIALIZING\",\"newState\":\"RUNNING\"}");
    slave.handleRPCNotification("IApplicationManager::onKeepAlive", "{\"uid\":\"900\",\"state\":\"RUNNING\"}");
    slave.handleRPCNotification("IWindowManager::onFocusChange", "{}"); // not asked for
    ASSERT_TRUE(waitFor([&] { return recorder.count() == 2; }));
    EXPECT_EQ((std::vector<std::string>{"900 RUNNING", "900 alive RUNNING"}), recorder.reports);

    slave.shutdown();
    EXPECT_THROW(client->getState("900"), Exception);
}
