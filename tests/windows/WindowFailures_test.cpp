// Windows that can't start or die at the wrong moment, and a holder
// certificate that is missing.
#include "WindowBox.h"

#include "FdCount.h"

#include <csignal>

using namespace Velmora;
using namespace WindowTest;

TEST(WindowFailures, LaunchesThatCannotStartOrDieWhileFocusedLeaveNothingBehind)
{
    WindowBox box;
    std::string const master = box.master;
    std::filesystem::remove(box.bin / "start_air3.x.sh");
    std::filesystem::permissions(box.bin / "start_wfd_player.sh", std::filesystem::perms::owner_read);
    int const descriptors = openDescriptorCount();
    box.journal.clear();
    Lines expected;
    for (char const* type : {"BOGUS", IWindowManager::APPLICATION_TYPE_ANDROID, IWindowManager::APPLICATION_TYPE_INVALID,
                             IWindowManager::APPLICATION_TYPE_AIR, IWindowManager::APPLICATION_TYPE_WFDPLAYER}) {
        EXPECT_EQ(box.launch(type, "broken"), "") << type;
        expected.push_back(std::string("error :") + type + " not supported by Velmora build");
    }
    // Each failure tells the focused window with the synthetic key; the focus stays.
    EXPECT_EQ(box.journal.all(), expected);
    EXPECT_TRUE(awaitFile(box.logOf("home"), [](Lines const& home) {
        return std::count(home.begin(), home.end(), "event") == 5;
    }));
    EXPECT_EQ(openDescriptorCount(), descriptors);
    EXPECT_EQ(zombieChildren(), 0);
    EXPECT_EQ(box.windows->windowCount(), 1u);

    // A window killed while focused: its end is noticed at once, with no
    // collection; the focus empties and the master window takes it.
    std::string const doomed = box.launchFocused("doomed");
    box.journal.clear();
    ::kill(std::stoi(box.windows->pidOf(doomed)), SIGKILL);
    EXPECT_TRUE(box.journal.await("focus >" + master));
    EXPECT_EQ(box.windows->windowCount(), 1u);
    EXPECT_TRUE(contains(box.simulatorRecord("QEN"), "releaseClient " + doomed));
    EXPECT_EQ(zombieChildren(), 0);

    // Without a holder certificate the window starts without a token: its pid is its uid.
    std::filesystem::remove(box.etc / "DORICProtected.crt");
    std::string const plain = box.launchFocused("plain");
    ASSERT_FALSE(plain.empty());
    EXPECT_EQ(box.windows->pidOf(plain), plain);
    EXPECT_EQ(box.windows->getLaunchParameters(plain).getAuthorizationToken(), "");
}
