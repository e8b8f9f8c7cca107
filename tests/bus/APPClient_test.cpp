#include "BusTestSupport.h"
#include "TestApp.h"

#include "APPClient.h"
#include "Exception.h"
#include "ILifecycleManagement.h"
#include "IWindowEvent.h"
#include "RPCServer.h"

#include <gtest/gtest.h>

#include <fstream>
#include <mutex>
#include <vector>

using namespace Velmora;
using BusTest::TestApp;
using BusTest::waitFor;

namespace {

struct StateRecorder : IApplication::IApplicationListener {
    void onKeepAlive(std::string const& uid, std::string const& state) override
    {
        std::lock_guard lock(mutex);
        reports.push_back("keepalive " + uid + " " + state);
    }
    void onStateChange(std::string const& uid, std::string const&, std::string const& newState) override
    {
        std::lock_guard lock(mutex);
        reports.push_back(uid + " " + newState);
    }
    bool has(std::string const& report)
    {
        std::lock_guard lock(mutex);
        for (auto const& seen : reports)
            if (seen == report)
                return true;
        return false;
    }
    std::vector<std::string> all()
    {
        std::lock_guard lock(mutex);
        return reports;
    }
    std::mutex mutex;
    std::vector<std::string> reports;
};

std::vector<std::string> readLines(std::string const& path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    return lines;
}

class APPClientTest : public ::testing::Test {
protected:
    APPClientTest() : server("ZAV") { server.init(); }

    std::map<std::string, std::string> appEnvironment(std::string const& uid)
    {
        return {{"VELMORA_APP_PARAMETERS", "{\"authorizationToken\":\"" + uid + "\"}"},
                {"VELMORA_APP_HOSTNAME", "ZAV"},
                {"VELMORA_TEST_APP_LOG", log}};
    }

    BusTest::RuntimeDir runtime;
    std::string log = runtime.path + "/app.log";
    RPCServer server;
    StateRecorder recorder;
};

int getStateFailure(APPClient& client, std::string const& uid)
{
    try {
        client.getState(uid);
    } catch (Exception const& e) {
        return e.getCode();
    }
    return -1;
}

} // namespace

TEST_F(APPClientTest, ProgramRegistersReportsAndAnswersServerCalls)
{
    APPClient client(Client::Master, "5001");
    client.addListener(&recorder);
    client.init();
    EXPECT_EQ(ReturnGenericFailure, getStateFailure(client, "5001")); // not dialled in yet

    // Tokens given before the program is there arrive in order once it registers.
    IServiceManager::Rights rights;
    rights["IWindowManager"]["launch"] = 1;
    client.authorizationTokenCreation(11, rights);
    client.authorizationTokenDeletion(11);
    client.authorizationTokenCreation(12, rights);

    auto environment = appEnvironment("5001");
    environment["VELMORA_TEST_APP_STATES"] = "INITIALIZING,RUNNING";
    TestApp app(environment);
    ASSERT_TRUE(waitFor([&] { return recorder.has("5001 RUNNING"); }));
    EXPECT_EQ((std::vector<std::string>{"5001 INITIALIZING", "5001 RUNNING"}), recorder.all());

    EXPECT_EQ("RUNNING", client.getState("5001"));
    client.handleFocus("5001", true);
    EXPECT_TRUE(client.isFocused("5001"));
    client.setVisibility("5001", true);
    EXPECT_TRUE(client.getVisibility("5001"));
    EXPECT_TRUE(client.handleEvent("5001", IWindowEvent::KeyEvent(IWindowEvent::KeyEvent::KEY_SYSTEM, true)));
    EXPECT_THROW(client.getOpacity("5001"), Exception); // the program doesn't serve it

    client.terminate("5001");
    EXPECT_EQ(0, app.wait());
    EXPECT_TRUE(recorder.has("5001 TERMINATED"));
    EXPECT_TRUE(waitFor([&] { return getStateFailure(client, "5001") == ReturnGenericFailure; }));

    auto const lines = readLines(log);
    // The queued tokens go out as the registration is accepted, before its answer.
    std::vector<std::string> const expected{"IServiceManager.authorizationTokenCreation 11",
                                            "IServiceManager.authorizationTokenDeletion 11",
                                            "IServiceManager.authorizationTokenCreation 12",
                                            "registered 5001",
                                            "focus 1",
                                            "visible 1",
                                            "event",
                                            "terminate"};
    EXPECT_EQ(expected, lines);
}

TEST_F(APPClientTest, AProgramThatCrashesWhileCalledFailsTheCall)
{
    APPClient client(Client::Master, "5002");
    client.addListener(&recorder);
    client.init();
    auto environment = appEnvironment("5002");
    environment["VELMORA_TEST_APP_ON_TERMINATE"] = "crash";
    TestApp app(environment);
    ASSERT_TRUE(waitFor([&] { return recorder.has("5002 RUNNING"); }));

    EXPECT_THROW(client.terminate("5002"), Exception);
    EXPECT_TRUE(WIFSIGNALED(app.wait()));
    EXPECT_TRUE(waitFor([&] { return getStateFailure(client, "5002") == ReturnGenericFailure; }));
}

TEST_F(APPClientTest, AHungProgramMissesTheDeadlineAndOthersAreNotHeldUp)
{
    ::setenv("VELMORA_RPC_TIMEOUT_MS", "300", 1);
    APPClient hung(Client::Master, "5003");
    APPClient healthy(Client::Master, "5004");
    hung.addListener(&recorder);
    healthy.addListener(&recorder);
    hung.init();
    healthy.init();
    auto hungEnvironment = appEnvironment("5003");
    hungEnvironment["VELMORA_TEST_APP_HANG"] = "ILifecycleManagement.getState";
    TestApp hungApp(hungEnvironment);
    TestApp healthyApp(appEnvironment("5004"));
    ASSERT_TRUE(waitFor([&] { return recorder.has("5003 RUNNING") && recorder.has("5004 RUNNING"); }));

    std::thread blocked([&] { EXPECT_EQ(ReturnTimedOut, getStateFailure(hung, "5003")); });
    EXPECT_EQ("RUNNING", healthy.getState("5004"));
    blocked.join();
    // An application that ignores terminate stays up and answers.
    ::unsetenv("VELMORA_RPC_TIMEOUT_MS");
}

TEST_F(APPClientTest, ASecondRegistrationOfAUidTakesOver)
{
    APPClient client(Client::Master, "5005");
    client.addListener(&recorder);
    client.init();
    auto first = appEnvironment("5005");
    first["VELMORA_TEST_APP_ON_TERMINATE"] = "ignore";
    TestApp old(first);
    ASSERT_TRUE(waitFor([&] { return recorder.has("5005 RUNNING"); }));
    client.terminate("5005"); // ignored: it stays
    EXPECT_EQ("RUNNING", client.getState("5005"));

    auto second = appEnvironment("5005");
    second["VELMORA_TEST_APP_STATES"] = "SUSPENDED";
    TestApp replacement(second);
    ASSERT_TRUE(waitFor([&] { return recorder.has("5005 SUSPENDED"); }));
    EXPECT_EQ("SUSPENDED", client.getState("5005"));

    // The old program going away doesn't cut the new one off.
    ::kill(old.pid, SIGKILL);
    old.wait();
    EXPECT_EQ("SUSPENDED", client.getState("5005"));
}

TEST_F(APPClientTest, ASilentProgramIsConnectedButReportsNothing)
{
    APPClient client(Client::Master, "5006");
    client.addListener(&recorder);
    client.init();
    auto environment = appEnvironment("5006");
    environment["VELMORA_TEST_APP_SILENT"] = "1";
    environment["VELMORA_TEST_APP_DELAY_MS"] = "50";
    TestApp app(environment);
    ASSERT_TRUE(waitFor([&] { return getStateFailure(client, "5006") == -1; }));
    EXPECT_EQ("UNINITIALIZED", client.getState("5006"));
    EXPECT_TRUE(recorder.all().empty());
}
