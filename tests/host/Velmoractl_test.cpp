#include "HostWorld.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <tuple>

using namespace HostTest;

// Exit status 0 for a result, 1 for a failed call (an install included, whose
// failure comes only with its end), 2 for bad usage or no server; an empty list
// prints nothing. watch prints the notifications asked for, one line each, and
// ends with 1 and a line on stderr when the server goes.
TEST(Velmoractl, PrintsResultsAndFailuresPressesKeysAndWatchesUntilTheServerGoes)
{
    HostWorld world;
    ServerProcess server = world.server({});
    ASSERT_TRUE(world.notify.awaitMessage("READY=1")) << server.log();
    Velmora::RPCClient watcher{1}; // wakes waitFor() when a window list changes
    connectWatching(watcher);
    std::string const uid = world.ctl("launch OTHER first").text;
    ASSERT_FALSE(uid.empty());
    ASSERT_TRUE(BusTest::waitFor([&] { return world.ctl("windows").text == uid; }));

    // Arguments, exit status, and the whole output or ("...") a part of it.
    std::tuple<std::string, int, std::string> const cases[] = {
        {"state " + uid, 0, "RUNNING\n"},
        {"--json windows", 0, "{\"result\":[\"" + uid.substr(0, uid.size() - 1) + "\"]}\n"},
        {"services", 0, ""},
        {"journal --limit 0", 0, ""}, // the server reads a limit of 0 as none
        {"notify IX::c", 0, "ok\n"},
        {"params " + uid, 0, "...\"applicationURL\" : \"first\""},
        {"windows --session 3", 1, "...invalid proxy (-32000): no display session 3 on this server, which has 1 "
                                   "display session (--session 0)\n"},
        {"state 999999", 1, "velmoractl: IApplicationManager.getState failed: invalid interface (-32000): no window or "
                            "service has the uid 999999 (velmoractl windows and velmoractl services list them, a "
                            "window once its program has reported; velmoractl journal --uid 999999 tells how one "
                            "ended)\n"},
        {"params 999999", 1, "...invalid uid (-32000): no window has the uid 999999 ("},
        {"focus 999999 --json", 1, "{\"error\":{\"code\":-32000,\"message\":\"invalid uid\"}}\n"},
        {"install /nowhere.rpm --timeout 60", 1,
         "velmoractl: install failed: Generic failure (7): /nowhere.rpm is not in the box's repository "
         "(velmoractl packages --manifest)\n"},
        {"remove nothing --timeout 60", 1, "...: nothing is not installed\n"},
        {"package nothing", 1, "velmoractl: nothing is not installed\n"},
        {"call INone.method", 1, "...Method not found"},
        {"call RPC.ping 'not json'", 2, "...must be a JSON object"},
        {"state", 2, "...uid is required"},
        // Only the box's states, spelt as it does.
        {"state " + uid.substr(0, uid.size() - 1) + " running", 2, "...running not in {RUNNING,"},
        {"bogus", 2, "...not expected: bogus"},
        {"launch --help", 0, "...--session"},
        {"--endpoint nobody services", 2, "...: cannot reach endpoint nobody in "},
    };
    for (auto const& [arguments, status, text] : cases) {
        BusTest::Output const output = world.ctl(arguments);
        EXPECT_EQ(status, output.status) << arguments << ": " << output.text;
        if (text.starts_with("..."))
            EXPECT_NE(std::string::npos, output.text.find(text.substr(3))) << arguments << ": " << output.text;
        else
            EXPECT_EQ(text, output.text) << arguments;
    }

    // At the window limit a launch is put off until the oldest window has
    // ended: the uid printed is the one of the window that then starts. A type
    // without a launch script fails, put off or not.
    ASSERT_EQ(0, world.ctl("launch OTHER second").status);
    BusTest::Output const third = world.ctl("launch OTHER third");
    ASSERT_EQ(0, third.status) << third.text;
    // The uid is known to the RPC surface once the window has reported.
    EXPECT_TRUE(BusTest::waitFor([&] { return world.ctl("windows").text.find(third.text) != std::string::npos; }));
    EXPECT_NE(std::string::npos, world.ctl("params " + third.text).text.find("\"applicationURL\" : \"third\""));
    BusTest::Output const unknown = world.ctl("launch NOTYPE fourth");
    EXPECT_EQ(1, unknown.status);
    EXPECT_NE(std::string::npos, unknown.text.find("velmoractl: the launch failed: ")) << unknown.text;
    EXPECT_TRUE(BusTest::waitFor([&] { return world.ctl("windows").text == third.text; }));

    EXPECT_EQ(0, world.ctl("terminate " + third.text).status);
    EXPECT_TRUE(BusTest::waitFor([&] { return world.ctl("windows").text.empty(); }));

    fs::path const fifo = world.base / "keys";
    ASSERT_EQ(0, ::mkfifo(fifo.c_str(), 0600));
    EXPECT_EQ(2, world.ctl("key OK --device " + fifo.string()).status);

    int const keys = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    BusTest::ScopedEnv devices("VELMORA_INPUT_DEVICES", "/nowhere@1:" + fifo.string());
    EXPECT_EQ(2, world.ctl("key Sideways").status);
    EXPECT_EQ(0, world.ctl("key ok").status); // the demo's test sees a program take the keys
    ::close(keys);

    FILE* watch = ::popen((std::string(VELMORA_CTL) + " watch IX::a 2>&1").c_str(), "r");
    // The watch's subscription can't be seen from here: send until it shows.
    std::string line;
    char buffer[256];
    int const reader = ::fileno(watch);
    for (int attempt = 0; attempt < 300 && line.empty(); ++attempt) {
        world.ctl("notify IX::b");
        world.ctl("notify IX::a '{\"n\":1}'");
        pollfd poller{reader, POLLIN, 0};
        if (::poll(&poller, 1, 100) > 0 && std::fgets(buffer, sizeof(buffer), watch))
            line = buffer;
    }
    EXPECT_EQ("IX::a {\"event\":\"IX::a\",\"n\":1}\n", line);
    EXPECT_EQ(0, server.stop(SIGTERM));
    BusTest::Output const end = BusTest::finish(watch);
    EXPECT_EQ(1, end.status);
    EXPECT_TRUE(end.text.ends_with("velmoractl: the server went away (its connection closed)\n")) << end.text;
}
