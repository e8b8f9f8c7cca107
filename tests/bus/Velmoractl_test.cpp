#include "BusTestSupport.h"

#include "RPCServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <sys/wait.h>

using namespace Velmora;

namespace {

struct Output {
    std::string text;
    int status = -1;
};

Output run(std::string const& arguments)
{
    Output output;
    FILE* pipe = ::popen((std::string(VELMORA_CTL) + " " + arguments + " 2>&1").c_str(), "r");
    char chunk[4096];
    for (std::size_t n; (n = std::fread(chunk, 1, sizeof(chunk), pipe)) > 0;)
        output.text.append(chunk, n);
    output.status = WEXITSTATUS(::pclose(pipe));
    return output;
}

} // namespace

TEST(VelmoractlTest, CallsPrintResultsAndReadableErrors)
{
    BusTest::RuntimeDir runtime;
    RPCServer server("ctl");
    server.init();

    Output ping = run("--endpoint ctl call RPC.ping");
    EXPECT_EQ(0, ping.status);
    EXPECT_EQ("true\n", ping.text);

    Output json = run("--endpoint ctl --json call RPC.subscribe '{\"events\":[\"X\"]}'");
    EXPECT_EQ(0, json.status);
    EXPECT_EQ("{\"result\":null}\n", json.text);

    Output unknown = run("--endpoint ctl call INone.method");
    EXPECT_EQ(1, unknown.status);
    EXPECT_NE(std::string::npos, unknown.text.find("Method not found"));

    Output badParams = run("--endpoint ctl call RPC.ping 'not json'");
    EXPECT_EQ(2, badParams.status);

    Output absent = run("--endpoint nobody call RPC.ping");
    EXPECT_EQ(2, absent.status);
    EXPECT_NE(std::string::npos, absent.text.find("cannot reach endpoint nobody"));
}

TEST(VelmoractlTest, WatchFollowsTheNotificationsAskedFor)
{
    BusTest::RuntimeDir runtime;
    RPCServer server("ctl");
    server.init();
    FILE* pipe = ::popen((std::string(VELMORA_CTL) + " --endpoint ctl watch IX::a").c_str(), "r");
    ASSERT_TRUE(BusTest::waitFor([&] { return server.getConnectionCount() == 1; }));
    // The subscription lands just after the connection; repeat until a line shows.
    std::string line;
    std::atomic<bool> seen{false};
    std::thread sender([&] {
        for (int i = 0; i < 200 && !seen; ++i) {
            server.handleRPCNotification("IX::b", "{}");
            server.handleRPCNotification("IX::a", "{\"n\":1}");
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        server.shutdown(); // ends the watch
    });
    char buffer[256];
    if (std::fgets(buffer, sizeof(buffer), pipe))
        line = buffer;
    seen = true;
    sender.join();
    ::pclose(pipe);
    EXPECT_EQ("IX::a {\"n\":1}\n", line);
}
