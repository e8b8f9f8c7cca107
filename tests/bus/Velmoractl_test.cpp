#include "BusTestSupport.h"

#include "rpc/RPCServer.h"

#include <gtest/gtest.h>

#include <tuple>

using namespace Velmora;

namespace {

FILE* start(std::string const& arguments)
{
    return ::popen((std::string(VELMORA_CTL) + " --endpoint " + arguments).c_str(), "r");
}

class VelmoractlTest : public ::testing::Test {
protected:
    VelmoractlTest() { server.init(); }
    BusTest::RuntimeDir runtime;
    BusTest::Observed<> server{"ctl"};
};

} // namespace

// Exit status 0 for a result, 1 for an error answer, 2 when the call can't be
// made; error texts readable on the output.
TEST_F(VelmoractlTest, CallsPrintResultsAndReadableErrors)
{
    // Arguments, exit status, and the whole output or ("...") a part of it.
    std::tuple<char const*, int, std::string> const cases[] = {
        {"ctl call RPC.ping", 0, "true\n"},
        {"ctl --json call RPC.subscribe '{\"events\":[\"X\"]}'", 0, "{\"result\":null}\n"},
        {"ctl call INone.method", 1, "...Method not found"},
        {"ctl call RPC.ping 'not json'", 2, "..."},
        {"nobody call RPC.ping", 2, "...cannot reach endpoint nobody"},
    };
    for (auto const& [arguments, status, text] : cases) {
        BusTest::Output const output = BusTest::finish(start(std::string(arguments) + " 2>&1"));
        EXPECT_EQ(status, output.status) << arguments;
        if (text.starts_with("..."))
            EXPECT_NE(std::string::npos, output.text.find(text.substr(3))) << arguments;
        else
            EXPECT_EQ(text, output.text) << arguments;
    }
}

TEST_F(VelmoractlTest, WatchFollowsTheNotificationsAskedFor)
{
    FILE* pipe = start("ctl watch IX::a");
    ASSERT_TRUE(BusTest::waitFor([&] { return server.served.has("RPC.subscribe"); }));
    server.handleRPCNotification("IX::b", "{}");
    server.handleRPCNotification("IX::a", "{\"n\":1}");
    std::string line;
    char buffer[256];
    if (std::fgets(buffer, sizeof(buffer), pipe))
        line = buffer;
    server.shutdown(); // ends the watch
    ::pclose(pipe);
    EXPECT_EQ("IX::a {\"n\":1}\n", line);
}
