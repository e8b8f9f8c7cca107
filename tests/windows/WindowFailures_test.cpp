// Windows that can't start, won't report or die at the wrong moment, and a
// holder certificate that is missing.
#include "WindowBox.h"

#include "FdCount.h"
#include "ReturnCodeOf.h"

#include <csignal>

using namespace Velmora;
using namespace WindowTest;

namespace {

using Entry = ApplicationManager::ApplicationMapEntry;

} // namespace

TEST(WindowFailures, LaunchesThatCannotStartReportAnErrorAndLeaveNothingBehind)
{
    WindowBox box;
    std::string const master = box.windows->master();
    ASSERT_TRUE(box.journal.await("focus >" + master));
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

    // Without a holder certificate the window starts without a token: its pid is its uid.
    std::filesystem::remove(box.etc / "DORICProtected.crt");
    std::string const plain = box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "plain");
    ASSERT_FALSE(plain.empty());
    EXPECT_EQ(box.windows->pidOf(plain), plain);
    EXPECT_EQ(box.windows->getLaunchParameters(plain).getAuthorizationToken(), "");
    EXPECT_TRUE(box.journal.await("focus >" + plain));
}

TEST(WindowFailures, ProgramsThatNeverReportAreCollectedOneAPassAndReaped)
{
    WindowBox box(NO_MASTER);
    std::string const silent =
        box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "silent", "export VELMORA_TEST_APP_SILENT=1");
    std::string const mute =
        box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "mute", "export VELMORA_TEST_APP_SILENT=1");
    ASSERT_FALSE(silent.empty());
    ASSERT_FALSE(mute.empty());
    ASSERT_TRUE(box.appLogged("silent", "registered " + silent));
    ASSERT_TRUE(box.appLogged("mute", "registered " + mute));
    EXPECT_TRUE(box.windows->getWindowList().empty()); // neither has reported a state
    EXPECT_EQ(box.windows->windowCount(), 2u);

    // One pass collects the first; the walk then goes on from the second entry.
    box.collectAfter(Entry::INITIAL_TIMEOUT_DELAY + 1);
    EXPECT_EQ(box.windows->windowCount(), 1u);
    box.windows->collect();
    EXPECT_EQ(box.windows->windowCount(), 0u);
    EXPECT_EQ(zombieChildren(), 0);
}

TEST(WindowFailures, AWindowKilledWhileFocusedIsCollectedAndTheMasterComesBack)
{
    WindowBox box;
    std::string const master = box.windows->master();
    ASSERT_TRUE(box.journal.await("focus >" + master));
    std::string const doomed = box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "doomed");
    ASSERT_TRUE(box.journal.await("focus >" + doomed));
    box.journal.clear();
    ::kill(std::stoi(box.windows->pidOf(doomed)), SIGKILL);

    // Its end is noticed at once, with no collection: the focus empties and the master window takes it.
    EXPECT_TRUE(box.journal.await("focus >" + master));
    EXPECT_EQ(box.windows->windowCount(), 1u);
    EXPECT_TRUE(contains(box.simulatorRecord("QEN"), "releaseClient " + doomed));
    EXPECT_EQ(zombieChildren(), 0);
}
