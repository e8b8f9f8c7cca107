// The platform's events from their real entries (the input FIFO, the simulators) down to real windows.
#include "WindowBox.h"
#include "Signal.h"

#include <thread>

using namespace Velmora;
using namespace WindowTest;

namespace {

// Every media engine notice sent before has been handled once the animation
// notice for the master window has moved the focus. The client redials a
// restarted simulator unannounced, so the sentinel is sent again each half second.
void awaitNoticesHandled(WindowBox& box)
{
    auto const heard = [&](std::string const& told) { return told.ends_with(">" + box.master); };
    for (int attempt = 0; attempt < 60; ++attempt) {
        box.journal.clear();
        box.inject("QEN", "animationFinished", object({{"uid", box.master}}));
        if (!box.journal.awaitLine(heard, std::chrono::milliseconds(500)).empty())
            return;
    }
    FAIL() << "the media engine's notices were not heard";
}

} // namespace

TEST(Platform, KeysReachTheFocusWhileItMovesAndVoiceLaunchesEvictAndSurviveTheMediaEnginesRestart)
{
    ScopedEnvironment site("VELMORA_SEARCH_URL", "http://search.test/");
    WindowBox box;
    std::string const master = box.master;
    std::string const app = box.launchFocused("app");

    // OK and a code in no table go to the focus, press and release; Home is an
    // ordinary key outside the demonstration mode; Menu goes to the master alone.
    box.press("OK");
    box.press(700);
    box.press("Home");
    box.press("Menu");
    // Each window's keys come in order, but windows are told independently.
    EXPECT_TRUE(box.appLogged("home", "key 34 0"));
    EXPECT_TRUE(box.appLogged("app", "key 30 0"));
    Lines const keys = readLines(box.logOf("app"));
    for (char const* line : {"key 608 1", "key 608 0", "key 956 1", "key 30 1", "key 30 0"})
        EXPECT_TRUE(contains(keys, line)) << line;
    EXPECT_FALSE(contains(keys, "key 34 1"));

    // Keys pressed while the focus moves back and forth: each reaches exactly one window.
    constexpr int PRESSES = 20;
    std::thread mover([&] {
        for (int i = 0; i < PRESSES; ++i)
            box.windows->setFocus(i % 2 ? app : master);
    });
    for (int i = 0; i < PRESSES; ++i)
        box.press("Right");
    mover.join();
    box.windows->setFocus(app);
    box.press("9");
    box.press("Menu");
    ASSERT_TRUE(box.appLogged("app", "key 266 0"));
    ASSERT_TRUE(awaitFile(box.logOf("home"), [](Lines const& lines) { return countOf(lines, "key 34 0") == 2; }));
    EXPECT_EQ(countOf(readLines(box.logOf("app")), "key 362 1") + countOf(readLines(box.logOf("home")), "key 362 1"),
              PRESSES);

    // A voice launch into the full table evicts the application. Refused
    // without a launch: a transcript too long for a child's environment.
    box.inject("QEN", "speak", object({{"transcript", "search " + std::string(5000, 'x')}}));
    box.inject("QEN", "speak", object({{"transcript", "weather  london"}}));
    EXPECT_TRUE(box.appLogged("app", "terminate"));
    std::string const page = box.awaitNewFocus({master, app});
    ASSERT_FALSE(page.empty());
    EXPECT_EQ(box.windows->getLaunchParameters(page).getApplicationURL(),
              "http://search.test/search?hl=en&q=weather  london");
    EXPECT_EQ(box.windows->getLaunchParameters(page).getApplicationType(), IWindowManager::APPLICATION_TYPE_WEBAPP);

    // The media engine crashes and starts again; the manager hears it again.
    box.crashSimulator("QEN");
    box.startSimulator("QEN");
    awaitNoticesHandled(box);
    box.journal.clear();
    box.inject("QEN", "speak", object({{"transcript", "start the media player"}}));
    std::string const player = box.awaitNewFocus({master, app, page});
    ASSERT_FALSE(player.empty());
    EXPECT_EQ(box.windows->getLaunchParameters(player).getApplicationURL(),
              "file:///usr/local/html_root/velmoraLauncher/../qenclient.html");
}

TEST(Platform, MediaEngineNoticesOpenMediaWindowsMoveTheFocusAndGiveMiracastPeersThePlayer)
{
    WindowBox box;
    std::string const master = box.master;

    // The last URI announced wins; other events are ignored.
    for (auto const& [event, text] : std::vector<std::pair<unsigned, char const*>>{
             {0, "first"}, {0, "mediaPlayer-a"}, {7, "ignored"}, {1, IWindowManager::APPLICATION_TYPE_OTHER}})
        ASSERT_TRUE(box.inject("QEN", "renderer", object({{"event", event}, {"text", text}})));
    std::string const media = box.awaitNewFocus({master});
    ASSERT_FALSE(media.empty());
    EXPECT_EQ(box.windows->getLaunchParameters(media).getApplicationURL(), "mediaPlayer-a");
    EXPECT_EQ(box.windows->getLaunchParameters(media).getApplicationType(), IWindowManager::APPLICATION_TYPE_OTHER);

    // While a media window is open a request opens nothing, and notices that
    // don't fit their family are dropped; the next notice is still handled.
    box.inject("QEN", "renderer", object({{"event", 0}, {"text", "other"}}));
    box.inject("QEN", "renderer", object({{"event", 1}, {"text", IWindowManager::APPLICATION_TYPE_OTHER}}));
    box.inject("QEN", "renderer", object({{"event", "one"}, {"text", 5}}));
    box.inject("QEN", "speak", object({}));
    box.inject("QEN", "connectPeer", object({{"ipAddress", 7}}));
    awaitNoticesHandled(box);
    EXPECT_EQ(box.windows->windowCount(), 2u);

    // An animation of a window that has gone empties the focus.
    box.journal.clear();
    box.inject("QEN", "animationFinished", object({{"uid", "gone"}}));
    EXPECT_TRUE(box.journal.await("focus " + master + ">"));

    // A service that fails ends every window but the master. The failure
    // comes on the service manager's thread, here while the window manager's
    // thread waits for that thread (as a launch does for its token): neither
    // may wait for the other.
    VelmoraTest::Signal failing;
    std::thread serviceThread([&] {
        box.services.onThread([&] {
            failing.raise();
            failing.waitFor(2);
            box.windows->onServiceFailure("VelmoraQENExec");
        });
    });
    ASSERT_TRUE(failing.waitFor(1));
    box.windows->onThread([&] {
        failing.raise();
        box.services.onThread([] {});
    });
    serviceThread.join();
    EXPECT_TRUE(box.appLogged("mediaPlayer-a", "terminate"));
    EXPECT_FALSE(contains(readLines(box.logOf("home")), "terminate"));

    // The media window goes with the failed service; Miracast peers get the
    // player one after the other, and unreachable peers nothing.
    ASSERT_TRUE(eventually([&] { return box.windows->windowCount() == 1; }));
    box.journal.clear();
    auto const peer = [&](Json::Value address, bool miraCast, Json::Value port) {
        ASSERT_TRUE(box.inject("QEN", "connectPeer",
                               object({{"ipAddress", address}, {"miraCast", miraCast}, {"rtspPort", port}})));
    };

    peer("192.168.49.2", true, 7236);
    std::string const first = box.awaitNewFocus({master, media});
    ASSERT_FALSE(first.empty());
    IWindowManager::LaunchParameters const launched = box.windows->getLaunchParameters(first);
    EXPECT_EQ(launched.getApplicationType(), IWindowManager::APPLICATION_TYPE_WFDPLAYER);
    EXPECT_EQ(launched.getApplicationParameters(), "-w rtsp://192.168.49.2:7236 -t -b 2");
    EXPECT_EQ(launched.getApplicationURL(), "");

    // A second peer: the table is full, the first player is evicted and the second follows.
    peer("192.168.49.3", true, 7237);
    EXPECT_TRUE(box.appLogged("", "terminate"));
    std::string const second = box.awaitNewFocus({master, media, first});
    ASSERT_FALSE(second.empty());
    EXPECT_EQ(box.windows->getLaunchParameters(second).getApplicationParameters(), "-w rtsp://192.168.49.3:7237 -t -b 2");

    // Peers that no player could reach, or without Miracast, start nothing.
    peer("999.1.1.1", true, 7236);
    peer("192.168.49.4", true, 0);
    peer("192.168.49.4", true, 70000);
    peer("192.168.49.4", false, 7236);
    awaitNoticesHandled(box);
    EXPECT_EQ(box.windows->windowCount(), 2u);

    // The demonstration opens the media page whatever the peer.
    {
        ScopedEnvironment demo("MSFT_DEMO", "");
        box.journal.clear();
        peer("bogus", false, 0);
        std::string const page = box.awaitNewFocus({master, media, first, second});
        ASSERT_FALSE(page.empty());
        EXPECT_EQ(box.windows->getLaunchParameters(page).getApplicationURL(),
                  "file:///usr/local/html_root/velmoraLauncher/../qenclient.html");
    }
}

TEST(Platform, VoiceFollowsItsGrammar)
{
    ScopedEnvironment site("VELMORA_SEARCH_URL", "http://search.test");
    std::string const media = "file:///usr/local/html_root/velmoraLauncher/../qenclient.html";
    std::string const dialog = "file:///usr/local/html_root/velmoraLauncher/velmora-dialog-box.html";
    for (auto const& [transcript, page] : std::vector<std::pair<std::string, std::string>>{
             {"", dialog},
             {"hello there", dialog},
             {"weather london", "http://search.test/search?hl=en&q=weather  london"},
             {"map of  paris", "http://search.test/maps?hl=en&q= of paris"},
             {"searchmap x", "http://search.test/maps?hl=en&q= x"},
             {"Search x", dialog},
             {"maplaunch browser", "http://search.test/maps?hl=en&q= browser"},
             {"launch", ""},
             {"run the thing", ""},
             {"launch the  media \t player now", media},
             {"restart browser", "http://search.test"}})
        EXPECT_EQ(MasterWindowManager::voicePage(transcript), page) << transcript;
    ScopedEnvironment bare("VELMORA_SEARCH_URL", "http://bare.test/base/");
    EXPECT_EQ(MasterWindowManager::voicePage("search x"), "http://bare.test/base/search?hl=en&q= x");
}
