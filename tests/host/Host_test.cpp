#include "DirectoryWatch.h"
#include "HostWorld.h"

#include "frame/Exception.h"
#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"
#include "rpc/RuntimeDirectory.h"

#include <boost/asio/ip/tcp.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

using namespace HostTest;

namespace {

std::vector<std::string> windowList(Velmora::RPCClient& client)
{
    std::vector<std::string> uids;
    for (Json::Value const& listed : callManager(client, "IWindowManager.getWindowList", Velmora::IRPC::parse(R"({"proxy":0})")))
        uids.push_back(listed.asString());
    return uids;
}

// The uid of a launched window once it is in the window list (it has reported
// a state); empty when it does not get there or a call to the manager misses
// its deadline (a failure of its own).
std::string launchRunning(Velmora::RPCClient& client, std::string const& url)
{
    try {
        std::string const uid = launch(client, url);
        return BusTest::waitFor([&] { return std::ranges::count(windowList(client), uid) == 1; }) ? uid : "";
    } catch (Velmora::Exception const& e) {
        ADD_FAILURE() << url << ": " << e.what();
        return std::string();
    }
}

class HostLifecycle : public ::testing::TestWithParam<char const*> {};

} // namespace

// Ready only once the endpoint accepts; SIGTERM with windows running ends
// every child, removes the socket and exits 0. Master and stub classes alike.
TEST_P(HostLifecycle, ReadyWhenServingAndSigtermEndsEveryChild)
{
    HostWorld world;
    std::vector<std::string> arguments{"--velmora:masterType", "OTHER", "--velmora:masterURL", "home"};
    if (*GetParam())
        arguments.push_back(GetParam());
    ServerProcess server = world.server(arguments);
    ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << server.log();
    Velmora::RPCClient client(1);
    connectWatching(client);

    // A launch before the master window has connected would lose the new
    // window's first state: hiding the master window fails and that failure
    // is not caught. A box's user launches from a home screen that is up.
    if (!*GetParam()) {
        ASSERT_TRUE(BusTest::waitFor([&] { return windowList(client).size() == 1; })) << server.log();
    }
    ASSERT_FALSE(launchRunning(client, "one").empty()) << server.log();
    std::vector<pid_t> children; // the master window too, where there is one
    for (std::string const& uid : windowList(client))
        children.push_back(std::stoi(uid));
    EXPECT_EQ(*GetParam() ? 1u : 2u, children.size()) << server.log();
    client.disconnect();

    EXPECT_EQ(0, server.stop(SIGTERM)) << server.log();
    for (pid_t child : children)
        EXPECT_TRUE(::kill(child, 0) < 0 && errno == ESRCH) << child << " outlived the server";
    EXPECT_FALSE(fs::exists(Velmora::RuntimeDirectory::endpointPath("ZAV")));
}

INSTANTIATE_TEST_SUITE_P(Classes, HostLifecycle, ::testing::Values("", "--stub"));

// A window manager blocked in a call to a program that never answers stops
// the watchdog pings; they come again once the call ends.
TEST(Host, WedgedManagerStopsTheWatchdogUntilItRunsAgain)
{
    HostWorld world;
    ServerProcess server = world.server({}, {{"WATCHDOG_USEC", "200000"},
                                             {"VELMORA_RPC_TIMEOUT_MS", "60000"},
                                             {"VELMORA_TEST_APP_HANG", "ILifecycleManagement.getState"}});
    ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << server.log();
    ASSERT_TRUE(world.notify.awaitMessage("WATCHDOG=1")) << server.log();
    // A supervisor that has fallen behind in its reading holds up no manager:
    // with its queue full, the launch still runs.
    world.notify.fill();

    Velmora::RPCClient client(1);
    connectWatching(client);
    std::string const uid = launchRunning(client, "stuck");
    ASSERT_FALSE(uid.empty()) << server.log();
    Json::Value params;
    params["uid"] = uid;
    // Our side gives up at once; the server's call to the program waits a minute.
    EXPECT_THROW(client.call("IApplicationManager.getState", params, 100), Velmora::Exception);
    // The wedge begins once the call reaches the manager's thread, which a
    // loaded machine may delay. A live server pings every 50 ms, some forty
    // times in two seconds; a wedged one at most once more (a round stamped
    // before the wedge), so one quiet two-second window shows the wedge.
    bool quiet = false;
    for (int window = 0; window < 15 && !quiet; ++window) {
        int pings = 0;
        auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        for (auto now = std::chrono::steady_clock::now(); now < end; now = std::chrono::steady_clock::now()) {
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(end - now).count();
            pings += world.notify.receive(static_cast<int>(left)).find("WATCHDOG=1") != std::string::npos;
        }
        quiet = pings <= 1;
    }
    EXPECT_TRUE(quiet) << server.log();

    ::kill(std::stoi(uid), SIGKILL); // the server's call fails at once
    EXPECT_TRUE(world.notify.awaitMessage("WATCHDOG=1")) << server.log();
    EXPECT_EQ(0, server.stop(SIGTERM)) << server.log();
}

// A program started before the endpoint accepts (a service of the first boot
// pass) registers once it does. A second server on a live endpoint's name, or
// on a taken TCP port, fails cleanly and leaves the first serving.
TEST(Host, EarlyProgramsRegisterOnceTheEndpointOpensAndASecondServerLeavesTheFirst)
{
    HostWorld world;
    VelmoraTest::DirectoryWatch watch(world.base);
    ServerProcess early(std::string(VELMORA_TEST_APP_DIR) + "/velmora-test-app", {}, world.environment(),
                        world.base / "early.log");
    ASSERT_TRUE(watch.waitFor([&] { return contentsOf(world.base / "early.log").find("ZAV.sock") != std::string::npos; }))
        << "the program never dialled";

    ServerProcess first = world.server({});
    ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << first.log();
    std::string const registered = "registered " + std::to_string(early.pid);
    EXPECT_TRUE(watch.waitFor([&] { return contentsOf(world.base / "apps.log").find(registered) != std::string::npos; }))
        << contentsOf(world.base / "early.log");

    ServerProcess second = world.server({});
    EXPECT_EQ(1, second.stop(0));
    EXPECT_NE(std::string::npos, second.log().find("the endpoint ZAV is served by another process")) << second.log();

    boost::asio::io_context io;
    boost::asio::ip::tcp::acceptor taken(io, {boost::asio::ip::make_address("127.0.0.1"), 0});
    ServerProcess third = world.server({"--endpoint", "other", "--port", std::to_string(taken.local_endpoint().port())});
    EXPECT_EQ(1, third.stop(0)) << third.log();
    EXPECT_NE(std::string::npos, third.log().find("Address already in use")) << third.log();
    EXPECT_FALSE(fs::exists(Velmora::RuntimeDirectory::endpointPath("other")));

    BusTest::Output const ping = world.ctl("call RPC.ping");
    EXPECT_EQ(0, ping.status);
    EXPECT_EQ("true\n", ping.text);
    EXPECT_EQ(0, first.stop(SIGINT)) << first.log();
}
