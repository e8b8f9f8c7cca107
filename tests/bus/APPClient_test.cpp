#include "BusTestSupport.h"
#include "ReturnCodeOf.h"
#include "ServerProcess.h"
#include "Signal.h"

#include "APPClient.h"
#include "frame/Exception.h"
#include "interfaces/IWindowEvent.h"
#include "rpc/RPCClient.h"
#include "rpc/RPCRegistry.h"
#include "rpc/RPCServer.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

using namespace Velmora;
using BusTest::waitFor;

namespace {

// The programs' server; it serves WebSocket too, for pages.
class ZAVServer : public BusTest::Observed {
public:
    ZAVServer() : Observed("ZAV") { init(); }
    ~ZAVServer() override { shutdown(); }
    std::string getFixedRPCAddress() override { return "127.0.0.1:0"; }
};

class APPClientTest : public ::testing::Test {
protected:
    // A client of `uid`, initialised, whose listener is `reports`.
    APPClient& client(std::string const& uid)
    {
        clients.push_back(std::make_unique<APPClient>(Client::Master, uid));
        clients.back()->addListener(&reports);
        clients.back()->init();
        return *clients.back();
    }

    // Starts the SDK's test program dialling in as `uid`, its behaviour set by
    // `extra` environment, logging what it is asked to `log`.
    HostTest::ServerProcess& start(std::string const& uid, std::map<std::string, std::string> extra = {})
    {
        extra.insert({{"VELMORA_APP_PARAMETERS", "{\"authorizationToken\":\"" + uid + "\"}"},
                      {"VELMORA_APP_HOSTNAME", "ZAV"},
                      {"VELMORA_TEST_APP_LOG", log}});
        std::string const output = runtime.directory.file(std::to_string(programs.size()) + ".out");
        programs.push_back(
            std::make_unique<HostTest::ServerProcess>(VELMORA_TEST_APP, std::vector<std::string>{}, extra, output));
        EXPECT_GT(programs.back()->pid, 0) << "the test program did not start";
        return *programs.back();
    }

    BusTest::RuntimeDir runtime;
    std::string const log = runtime.path + "/app.log";
    ZAVServer server;
    BusTest::ReportLog reports;
    std::vector<std::unique_ptr<APPClient>> clients;
    std::vector<std::unique_ptr<HostTest::ServerProcess>> programs; // killed and reaped at the end
};

} // namespace

TEST_F(APPClientTest, ProgramRegistersReportsAndAnswersServerCalls)
{
    APPClient& app = client("5001");
    EXPECT_EQ(ReturnGenericFailure, returnCodeOf([&] { app.getState("5001"); })); // not dialled in yet

    // Tokens given before the program is there arrive in order once it registers.
    IServiceManager::Rights rights;
    rights["IWindowManager"]["launch"] = 1;
    app.authorizationTokenCreation(11, rights);
    app.authorizationTokenDeletion(11);
    app.authorizationTokenCreation(12, rights);

    HostTest::ServerProcess& program = start("5001", {{"VELMORA_TEST_APP_STATES", "INITIALIZING,RUNNING"}});
    ASSERT_TRUE(waitFor([&] { return reports.has("5001 RUNNING"); }));
    EXPECT_EQ((std::vector<std::string>{"5001 INITIALIZING", "5001 RUNNING"}), reports.all());

    EXPECT_EQ("RUNNING", app.getState("5001"));
    app.handleFocus("5001", true);
    EXPECT_TRUE(app.isFocused("5001"));
    app.setVisibility("5001", true);
    EXPECT_TRUE(app.getVisibility("5001"));
    EXPECT_TRUE(app.handleEvent("5001", IWindowEvent::KeyEvent(IWindowEvent::KeyEvent::KEY_SYSTEM, true)));
    EXPECT_THROW(app.getOpacity("5001"), Exception); // the program doesn't serve it

    app.terminate("5001");
    EXPECT_EQ(0, program.stop(0));
    EXPECT_TRUE(reports.has("5001 TERMINATED"));
    EXPECT_TRUE(waitFor([&] { return returnCodeOf([&] { app.getState("5001"); }) == ReturnGenericFailure; }));

    // The queued tokens go out as the registration is accepted, before its answer.
    EXPECT_EQ("IServiceManager.authorizationTokenCreation 11\n"
              "IServiceManager.authorizationTokenDeletion 11\n"
              "IServiceManager.authorizationTokenCreation 12\n"
              "registered 5001\nfocus 1\nvisible 1\nevent\nterminate\n",
              contentsOf(log));
}

// A posted event leaves without waiting for the program; one that it fails,
// or never answers within the deadline, fails the next post, and only that
// one: the window still gets the keys after it.
TEST_F(APPClientTest, PostedEventsDoNotWaitAndAFailedOneFailsOnlyTheNext)
{
    BusTest::ScopedEnv timeout("VELMORA_RPC_TIMEOUT_MS", "300");
    APPClient& hung = client("5006");
    APPClient& failing = client("5007");
    start("5006", {{"VELMORA_TEST_APP_HANG", "IWindowEvent.handleEvent"}});
    start("5007", {{"VELMORA_TEST_APP_FAIL", "IWindowEvent.handleEvent"}});
    ASSERT_TRUE(waitFor([&] { return reports.has("5006 RUNNING") && reports.has("5007 RUNNING"); }));
    IWindowEvent::KeyEvent const key(IWindowEvent::KeyEvent::KEY_SYNTHETIC, true);
    hung.postEvent("5006", key);
    failing.postEvent("5007", key);
    EXPECT_EQ(ReturnTimedOut, returnCodeOf([&] { hung.handleEvent("5006", key); })); // the deadline passes
    // Answered in order: the posted event's failure has come back before this one's.
    EXPECT_EQ(ReturnGenericFailure, returnCodeOf([&] { failing.handleEvent("5007", key); }));
    for (auto [app, uid] : {std::pair{&hung, "5006"}, std::pair{&failing, "5007"}}) {
        EXPECT_EQ(ReturnGenericFailure, returnCodeOf([&] { app->postEvent(uid, key); })) << uid;
        EXPECT_EQ(ReturnSuccess, returnCodeOf([&] { app->postEvent(uid, key); })) << uid;
    }
}

// A program that registers with its reading side shut: the tokens queued for
// it cannot go out, and the server hangs up on it without ceasing to read.
// (The failed write ends the connection while the registration still holds
// the client's lock, which the hang-up takes too.)
TEST_F(APPClientTest, AProgramThatCannotBeWrittenToIsHungUpOnAndReadingGoesOn)
{
    APPClient& app = client("5008");
    app.authorizationTokenCreation(13, {});
    BusTest::RawPeer peer(runtime.socket("ZAV"));
    ASSERT_EQ(0, ::shutdown(peer.fd, SHUT_RD));
    ASSERT_TRUE(peer.send(BusTest::request("RPC.register", R"({"uid":"5008"})") + "\n"));
    EXPECT_TRUE(waitFor([] { return !RPCRegistry::getInstance().find("5008"); }));
    RPCClient other;
    other.connect("ZAV");
    EXPECT_EQ(ReturnSuccess, returnCodeOf([&] { other.call("RPC.ping", Json::Value()); }));
}

// The newer connection of a uid serves it, even one that never reports a
// state, and the older one going away doesn't cut it off.
TEST_F(APPClientTest, ASecondRegistrationOfAUidTakesOverEvenWithoutReports)
{
    APPClient& app = client("5005");
    HostTest::ServerProcess& old = start("5005", {{"VELMORA_TEST_APP_ON_TERMINATE", "ignore"}});
    ASSERT_TRUE(waitFor([&] { return reports.has("5005 RUNNING"); }));
    app.terminate("5005"); // ignored: it stays
    EXPECT_EQ("RUNNING", app.getState("5005"));

    start("5005", {{"VELMORA_TEST_APP_SILENT", "1"}});
    ASSERT_TRUE(waitFor([&] { return app.getState("5005") == "UNINITIALIZED"; }));
    old.stop(SIGKILL);
    EXPECT_EQ("UNINITIALIZED", app.getState("5005"));
    EXPECT_EQ((std::vector<std::string>{"5005 RUNNING"}), reports.all());
}

// A web page on the SDK's JavaScript module, run by node over WebSocket.
TEST_F(APPClientTest, APageRegistersReportsRunningAndAnswersTheServer)
{
    APPClient& app = client("6001");
    std::string const command = std::string("node --experimental-websocket --no-warnings ") + VELMORA_PAGE_APP + " " +
                                std::to_string(server.getPort()) + " '{\"authorizationToken\":\"6001\"}'";
    FILE* page = ::popen(command.c_str(), "r");
    ASSERT_TRUE(waitFor([&] { return reports.size() == 2; }));
    EXPECT_EQ((std::vector<std::string>{"6001 RUNNING", "6001 alive RUNNING"}), reports.all());
    EXPECT_EQ("RUNNING", app.getState("6001"));
    app.handleFocus("6001", true);
    EXPECT_TRUE(app.isFocused("6001"));
    app.terminate("6001");

    BusTest::Output const output = BusTest::finish(page);
    EXPECT_EQ(0, output.status);
    EXPECT_EQ("ping true\nerror Method not found\nfocus true\nterminate\n", output.text);
}

// The SDK's page module on its own, against a socket the script plays.
TEST(PageModule, RefusesNonMethodsAnswersEveryThrowAndWaitsForItsSocket)
{
    FILE* script = ::popen((std::string("node --no-warnings ") + VELMORA_PAGE_MODULE_TEST + " 2>&1").c_str(), "r");
    BusTest::Output const output = BusTest::finish(script);
    EXPECT_EQ(0, output.status) << output.text;
    EXPECT_EQ("ok\n", output.text);
}

// A manager may delete a client from inside the reaction to its report, on
// the bus thread that delivers it.
TEST_F(APPClientTest, AClientDeletedFromItsOwnReportGoesQuietly)
{
    struct Deleter : IApplication::IApplicationListener {
        void onKeepAlive(std::string const&, std::string const&) override {}
        void onStateChange(std::string const&, std::string const&, std::string const& state) override
        {
            if (state != "RUNNING")
                return;
            delete doomed;
            gone.raise();
        }
        APPClient* doomed = nullptr;
        VelmoraTest::Signal gone;
    } deleter;
    deleter.doomed = new APPClient(Client::Master, "5007");
    deleter.doomed->addListener(&deleter);
    deleter.doomed->init();
    start("5007", {{"VELMORA_TEST_APP_STATES", "RUNNING,SUSPENDED"}});
    EXPECT_TRUE(deleter.gone.waitFor(1));
}
