// The demonstration mode, in a binary of its own: VELMORA_DEMO is read once per process, at the first key.
#include "WindowBox.h"

using namespace Velmora;
using namespace WindowTest;

namespace {

using KeyEvent = IWindowEvent::KeyEvent;

long powerRequests(WindowBox& box, std::string const& state)
{
    return countOf(readLines(box.sandbox.root / "sim.log"), "setPowerState " + state);
}

// Waits until the power manager was asked for `state` `times` times in all.
bool awaitPowerRequest(WindowBox& box, std::string const& state, long times)
{
    return awaitFile(box.sandbox.root / "sim.log",
                     [&](Lines const& lines) { return countOf(lines, "setPowerState " + state) >= times; });
}

struct Demo : ::testing::Test {
    ScopedEnvironment demo{"VELMORA_DEMO", ""};
};

} // namespace

TEST_F(Demo, ThePowerKeyWalksThePowerStatesWithTheFilterAndThePowerManagerMayDieOnTheWay)
{
    WindowBox box;
    std::string const master = box.master;

    // A remote power key before a session's start-up finds no power manager
    // to ask yet: it is ignored, and the session goes on.
    Windows early(1, &box.factory, static_cast<int>(box.argv.size()), box.argv.data());
    early.init();
    early.dispatchEvent(KeyEvent(KeyEvent::KEY_POWER, true));
    EXPECT_TRUE(early.getWindowList().empty()); // queued behind the key
    early.uninit();

    // The power key during a launch: every window's media is released, the
    // one still starting too, and the deepest sleep without DMS is asked for.
    std::string const slow = box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "slow", "export VELMORA_TEST_APP_DELAY_MS=300");
    ASSERT_FALSE(slow.empty());
    box.press("Power");
    ASSERT_TRUE(awaitPowerRequest(box, "3", 1));
    ASSERT_TRUE(box.awaitPowerState("3"));
    Lines const released = box.simulatorRecord("QEN");
    for (std::string const& uid : {master, slow})
        EXPECT_TRUE(contains(released, "releaseClient " + uid)) << uid;
    EXPECT_TRUE(box.journal.await("focus >" + slow));

    // Asleep, only the power key passes the filter; from state 3 it asks for
    // 4, the start-up, which the power manager follows with a wake-up: that
    // asks for the running state and lifts the filter.
    box.press("OK");
    box.press("Power");
    ASSERT_TRUE(awaitPowerRequest(box, "4", 1));
    ASSERT_TRUE(awaitPowerRequest(box, "0", 1));
    ASSERT_TRUE(box.awaitPowerState("0"));
    box.press("OK");
    ASSERT_TRUE(box.appLogged("slow", "key 608 0"));
    EXPECT_EQ(countOf(readLines(box.logOf("slow")), "key 608 1"), 1);

    // A state out of range is refused; in light sleep the manager's request
    // leads to the deeper state with the filter, and the power key wakes.
    ASSERT_TRUE(box.inject("HUX", "powerStateChange", object({{"state", 9}})));
    ASSERT_TRUE(box.inject("HUX", "powerStateChange", object({{"state", 1}})));
    ASSERT_TRUE(box.awaitPowerState("1"));
    EXPECT_FALSE(box.windows->powerStates.has("9"));
    ASSERT_TRUE(box.inject("HUX", "powerChangeRequest", object({{"state", 3}})));
    ASSERT_TRUE(awaitPowerRequest(box, "2", 1));
    ASSERT_TRUE(box.inject("HUX", "wakeUp", object({{"reason", 1}})));
    ASSERT_TRUE(box.awaitPowerState("1"));
    long const wakes = powerRequests(box, "0");
    box.press("Power");
    ASSERT_TRUE(awaitPowerRequest(box, "0", wakes + 1));
    ASSERT_TRUE(box.awaitPowerState("0"));

    // The power manager dies: the power key's request fails and is logged,
    // the filter it armed is lifted, and the next key is handled. (The key
    // goes through the remote method so that the manager has handled it
    // before OK is read.) Once the power manager is back, the key works again.
    box.crashSimulator("HUX");
    long const before = powerRequests(box, "3");
    box.windows->dispatchEvent(KeyEvent(KeyEvent::KEY_POWER, true));
    box.windows->master(); // queued behind the key
    box.press("OK");
    ASSERT_TRUE(awaitFile(box.logOf("slow"), [](Lines const& lines) { return countOf(lines, "key 608 1") == 2; }));
    box.startSimulator("HUX");
    box.press("Power");
    ASSERT_TRUE(awaitPowerRequest(box, "3", before + 1));
    ASSERT_TRUE(box.awaitPowerState("3"));
}

TEST_F(Demo, WithPowerDemoTheDemonstrationKeysTakeThePowerKeysPlace)
{
    ScopedEnvironment powerDemo("pm_demo", "y");
    WindowBox box;
    box.launchFocused("app");

    // 1 and 35 (DMS is off) are swallowed, 38 outside the client mode and a
    // code past the tables go to the focus, 36 asks for sleep.
    for (unsigned int code : {1u, 35u, 38u, 36u, 608u})
        box.windows->dispatchEvent(KeyEvent(static_cast<KeyEvent::Code>(code), true));
    ASSERT_TRUE(box.appLogged("app", "key 608 1"));
    Lines const keys = readLines(box.logOf("app"));
    EXPECT_TRUE(contains(keys, "key 38 1"));
    for (char const* swallowed : {"key 1 1", "key 35 1", "key 36 1"})
        EXPECT_FALSE(contains(keys, swallowed)) << swallowed;
    EXPECT_TRUE(awaitPowerRequest(box, "3", 1));
    EXPECT_EQ(powerRequests(box, "3"), 1);
}
