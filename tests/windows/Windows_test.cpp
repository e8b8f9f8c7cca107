// Windows over real processes.
#include "WindowBox.h"

#include "FdCount.h"
#include "ReturnCodeOf.h"

#include <algorithm>

using namespace Velmora;
using namespace WindowTest;

TEST(Windows, ALaunchIsAuthorizedFocusedAndEndsBackOnTheMasterWindowAFullTableEvictsTheOldestAndFailuresLeaveNothing)
{
    WindowBox box;
    std::string const master = box.master;
    ASSERT_FALSE(master.empty());
    IWindowManager::LaunchParameters const home = box.windows->getLaunchParameters(master);
    EXPECT_EQ(home.getAuthorizationToken(), master);
    EXPECT_EQ(home.getApplicationURL(), "home?sessionIndex=0");
    EXPECT_EQ(home.getCompositingParameters().zOrder, 12u);
    EXPECT_FALSE(home.getCompositingParameters().overlay);
    // The token reached the running service through the service manager.
    EXPECT_TRUE(box.appLogged("service", "IServiceManager.authorizationTokenCreation " + master));

    // Launches that cannot start leave nothing behind.
    std::filesystem::remove(box.bin / "start_air3.x.sh");
    std::filesystem::permissions(box.bin / "start_wfd_player.sh", std::filesystem::perms::owner_read);
    int const descriptors = openDescriptorCount();
    box.journal.clear();
    Lines failures;
    for (char const* type : {"BOGUS", IWindowManager::APPLICATION_TYPE_ANDROID, IWindowManager::APPLICATION_TYPE_INVALID,
                             IWindowManager::APPLICATION_TYPE_AIR, IWindowManager::APPLICATION_TYPE_WFDPLAYER}) {
        EXPECT_EQ(box.launch(type, "broken"), "") << type;
        failures.push_back(std::string("error :") + type + " not supported by Velmora build");
    }
    // Each failure tells the focused window with the synthetic key; the focus stays.
    EXPECT_EQ(box.journal.all(), failures);
    EXPECT_TRUE(awaitFile(box.logOf("home"), [](Lines const& home) { return countOf(home, "event") == 5; }));
    EXPECT_EQ(openDescriptorCount(), descriptors);
    EXPECT_EQ(zombieChildren(), 0);
    EXPECT_EQ(box.windows->windowCount(), 1u);

    box.journal.clear();
    std::string const app = box.launchFocused("app");
    // The focus left the master window at the launch, and came to the new one when it ran.
    EXPECT_EQ(box.journal.all(), (Lines{"focus " + master + ">", "focus >" + app}));
    EXPECT_TRUE(box.appLogged("home", "visible 0"));
    EXPECT_TRUE(box.appLogged("app", "visible 1"));
    IWindowManager::LaunchParameters const launched = box.windows->getLaunchParameters(app);
    EXPECT_EQ(launched.getAuthorizationToken(), app);
    EXPECT_EQ(launched.getCompositingParameters().zOrder, 11u);
    EXPECT_TRUE(launched.getCompositingParameters().overlay);
    EXPECT_TRUE(launched.getGiveFocus());
    Lines expected{app, master};
    std::sort(expected.begin(), expected.end());
    VectorObject<std::string> const list = box.windows->getWindowList();
    EXPECT_EQ(Lines(list.begin(), list.end()), expected);

    // Focus requests blur the window that has the focus first, even when it is the same one.
    box.journal.clear();
    EXPECT_FALSE(box.windows->setFocus("nobody"));
    EXPECT_EQ(box.windows->getWindowLayout(), "");
    EXPECT_TRUE(box.windows->setFocus(app));
    EXPECT_TRUE(box.windows->setFocus(app));
    EXPECT_EQ(box.windows->getWindowLayout(), app);
    box.windows->setWindowLayout("grid");
    EXPECT_EQ(box.journal.all(), (Lines{"focus " + app + ">", "focus >" + app, "focus " + app + ">" + app,
                                        "layout INVALID>INVALID"}));
    EXPECT_TRUE(box.appLogged("app", "focus 0"));
    EXPECT_EQ(readLines(box.logOf("app")).back(), "focus 1");

    // The window ends: no blur goes to it, and the master window comes back.
    box.journal.clear();
    box.windows->terminate(app);
    ASSERT_TRUE(box.journal.await("focus >" + master));
    EXPECT_EQ(box.journal.all(), (Lines{"focus >", "focus >" + master}));
    // The key that tells it it came up, after the five of the failed launches.
    EXPECT_TRUE(awaitFile(box.logOf("home"), [](Lines const& home) { return countOf(home, "event") == 6; }));
    EXPECT_EQ(countOf(readLines(box.logOf("home")), "visible 1"), 2);
    Lines const media = box.simulatorRecord("QEN");
    EXPECT_TRUE(contains(media, "releaseClient " + app));
    EXPECT_TRUE(contains(media, "releaseClient RPC"));
    EXPECT_TRUE(contains(box.simulatorRecord("HUX"), "unregisterClient " + app));
    // The master window and one application fill the table: the oldest
    // window is evicted, and only the latest waiting launch starts.
    box.launchFocused("stubborn", "export VELMORA_TEST_APP_ON_TERMINATE=ignore");
    EXPECT_EQ(box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "second"), "");
    EXPECT_EQ(box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "third"), "");
    EXPECT_EQ(box.windows->pending(), 1u);
    EXPECT_TRUE(awaitFile(box.logOf("stubborn"), [](Lines const& lines) { return countOf(lines, "terminate") == 2; }));
    EXPECT_EQ(box.windows->windowCount(), 2u);

    // It ignored both requests: the collection ends it, and the waiting launch starts.
    box.collectAfter(Entry::RUNNING_TIMEOUT_DELAY + 1);
    EXPECT_TRUE(box.appLogged("third", "focus 1"));
    EXPECT_FALSE(fs::exists(box.logOf("second")));
    EXPECT_EQ(box.windows->pending(), 0u);
    EXPECT_EQ(box.windows->windowCount(), 2u);
    EXPECT_EQ(box.windows->master(), box.master);

    // "singleton" ends every window but the master window. A window evicted
    // before its program has connected is told to end at its first report,
    // and the waiting launch then starts.
    box.windows->terminate("singleton");
    ASSERT_TRUE(eventually([&] { return box.windows->windowCount() == 1; }));
    EXPECT_FALSE(contains(readLines(box.logOf("home")), "terminate"));
    std::string const late = box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "late",
                                        "export VELMORA_TEST_APP_DELAY_MS=1000");
    ASSERT_FALSE(late.empty());
    EXPECT_EQ(box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "fourth"), "");
    EXPECT_TRUE(box.appLogged("late", "terminate"));
    EXPECT_TRUE(box.appLogged("fourth", "focus 1"));
    EXPECT_EQ(zombieChildren(), 0);

    // Without a holder certificate the window starts without a token: its pid is its uid.
    box.windows->terminate("singleton");
    ASSERT_TRUE(eventually([&] { return box.windows->windowCount() == 1; }));
    std::filesystem::remove(box.etc / "DORICProtected.crt");
    std::string const plain = box.launchFocused("plain");
    ASSERT_FALSE(plain.empty());
    EXPECT_EQ(box.windows->pidOf(plain), plain);
    EXPECT_EQ(box.windows->getLaunchParameters(plain).getAuthorizationToken(), "");
}

// The collection's work: it settles launches and terminations made from
// several threads at once, and collects programs that never report, one a pass.
TEST(Windows, ConcurrentLaunchesSettleAndProgramsThatNeverReportAreCollectedOneAPass)
{
    WindowBox box(NO_MASTER);
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 4; ++i) {
                std::string const uid = box.windows->launch(
                    IWindowManager::LaunchParameters("", IWindowManager::APPLICATION_TYPE_OTHER, "crowd", "", {}, false, false));
                box.windows->getWindowList();
                box.windows->getFocus();
                if (!uid.empty())
                    returnCodeOf([&] { box.windows->terminate(uid); });
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(eventually([&] {
        returnCodeOf([&] { box.windows->terminate("singleton"); });
        box.collectAfter(Entry::INITIAL_TIMEOUT_DELAY + 1);
        return box.windows->windowCount() == 0 && box.windows->pending() == 0;
    }));
    EXPECT_EQ(zombieChildren(), 0);

    char const* const quiet = "export VELMORA_TEST_APP_SILENT=1";
    std::string const silent = box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "silent", quiet);
    std::string const mute = box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "mute", quiet);
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

// A trailing option without its value is ignored.
TEST(WindowRecords, TheMasterWindowsCommandLine)
{
    char const* words[] = {"host", "--velmora:masterURL", "page", "--velmora:masterType", "WEBPAGE", "--velmora:masterParameters"};
    IWindowManager::LaunchParameters const fromLine(6, const_cast<char**>(words));
    EXPECT_EQ(fromLine.getApplicationURL(), "page");
    EXPECT_EQ(fromLine.getApplicationType(), "WEBPAGE");
    EXPECT_EQ(fromLine.getApplicationParameters(), "");
}
