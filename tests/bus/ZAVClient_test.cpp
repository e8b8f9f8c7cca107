#include "BusTestSupport.h"

#include "frame/Exception.h"
#include "interfaces/IWindowEvent.h"
#include "rpc/RPCServer.h"
#include "interfaces/IApplicationManager.h"
#include "ZAVClient.h"

#include <gtest/gtest.h>

#include <memory>
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

    BusTest::Log received; // the parameters of launch and dispatchEvent, in order

private:
    std::string launch(IRPC::RPCSynchronousMethodObject const& method)
    {
        received.add(method.getParameters());
        return IRPC::RPCResultObject(method.getMethod(), std::string("900")).serialize();
    }
    std::string dispatchEvent(IRPC::RPCSynchronousMethodObject const& method)
    {
        received.add(method.getParameters());
        return IRPC::RPCReturnObject(method.getMethod()).serialize();
    }
    std::string getState(IRPC::RPCSynchronousMethodObject const& method)
    {
        Json::Value const params = IRPC::parse(method.getParameters());
        if (params["uid"].asString() != "900")
            return IRPC::RPCErrorObject(method.getMethod(), "invalid interface").serialize();
        return IRPC::RPCResultObject(method.getMethod(), std::string("RUNNING")).serialize();
    }
};

} // namespace

TEST(ZAVClientTest, TalksToAnotherServerInstanceAndHearsItsReports)
{
    BusTest::RuntimeDir runtime;
    BusTest::ReportLog recorder; // outlives the client, which may report until it is gone
    std::unique_ptr<ZAVClient> client(ZAVClient::create(Client::Master, "slave0"));
    client->addListener(&recorder);
    client->init(); // the slave is not up yet: calls fail, nothing hangs
    EXPECT_THROW(client->getState("900"), Exception);

    SlaveServer slave;
    slave.init();
    EXPECT_EQ("900", client->launch(IApplicationManager::LaunchParameters()));
    client->dispatchEvent(IWindowEvent::KeyEvent(IWindowEvent::KeyEvent::KEY_SYSTEM, true));
    auto const received = slave.received.all();
    ASSERT_EQ(2u, received.size());
    EXPECT_EQ(0u, IRPC::parse(received[0])["proxy"].asUInt());
    EXPECT_EQ("KeyEvent", IRPC::parse(received[1])["event"]["@type"].asString());
    EXPECT_EQ("RUNNING", client->getState("900"));
    EXPECT_THROW(client->getState("901"), Exception); // the slave's error text fails the call

    slave.handleRPCNotification("IApplicationManager::onStateChange",
                                R"({"uid":"900","oldState":"INITIALIZING","newState":"RUNNING"})");
    slave.handleRPCNotification("IApplicationManager::onKeepAlive", R"({"uid":"900","state":"RUNNING"})");
    slave.handleRPCNotification("IWindowManager::onFocusChange", "{}"); // not asked for
    ASSERT_TRUE(waitFor([&] { return recorder.size() == 2; }));
    EXPECT_EQ((std::vector<std::string>{"900 RUNNING", "900 alive RUNNING"}), recorder.all());

    slave.shutdown();
    EXPECT_THROW(client->getState("900"), Exception);
}
