// Windows that can't start, won't report or die at the wrong moment, a holder
// certificate that is missing, and the slave route against a second endpoint
// that answers, is down or hangs.
#include "WindowBox.h"

#include "FdCount.h"
#include "ReturnCodeOf.h"

#include <csignal>

using namespace Velmora;
using namespace WindowTest;

namespace {

using Entry = ApplicationManager::ApplicationMapEntry;

// A slave server for session 0: launches answer `uid` (or hang until
// released), window calls are recorded, and report() sends the lifecycle
// notifications that the master follows.
class FakeSlave : public RPCServer {
public:
    FakeSlave() : RPCServer("Slave0")
    {
        interfaces["IWindowManager"]["launch"] = static_cast<RPCMethod>(&FakeSlave::launch);
        interfaces["IWindowManager"]["handleFocus"] = static_cast<RPCMethod>(&FakeSlave::note);
        interfaces["IWindowManager"]["setVisibility"] = static_cast<RPCMethod>(&FakeSlave::note);
        interfaces["IWindowManager"]["dispatchEvent"] = static_cast<RPCMethod>(&FakeSlave::note);
    }
    ~FakeSlave() override
    {
        release();
        shutdown();
    }
    void report(std::string const& uid, std::string const& newState)
    {
        Json::Value params;
        params["uid"] = uid;
        params["oldState"] = "";
        params["newState"] = newState;
        handleRPCNotification(IRPC::RPCNotificationObject("IApplicationManager::onStateChange", IRPC::write(params)));
    }
    void hangLaunches()
    {
        std::lock_guard lock(mutex);
        hang = true;
    }
    void release()
    {
        std::lock_guard lock(mutex);
        hang = false;
        released.notify_all();
    }
    VelmoraTest::Signal called; // rises with each call recorded
    Lines calls()
    {
        std::lock_guard lock(mutex);
        return seen;
    }
private:
    std::string launch(IRPC::RPCSynchronousMethodObject const& method)
    {
        Json::Value const params = IRPC::parse(method.getParameters());
        std::unique_lock lock(mutex);
        seen.push_back("launch " + params["applicationType"].asString() + " " +
                       std::to_string(params["compositingParameters"]["zOrder"].asUInt()));
        called.raise();
        released.wait(lock, [this] { return !hang; });
        return IRPC::RPCResultObject(method.getMethod(), Json::Value(uid)).serialize();
    }
    std::string note(IRPC::RPCSynchronousMethodObject const& method)
    {
        Json::Value const params = IRPC::parse(method.getParameters());
        {
            std::lock_guard lock(mutex);
            seen.push_back(method.getMethod() + " " + params["uid"].asString());
        }
        called.raise();
        return IRPC::RPCReturnObject(method.getMethod()).serialize();
    }

    std::mutex mutex;
    std::condition_variable released;
    Lines seen;
    bool hang = false;
    std::string const uid = "android-1";
};

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

TEST(WindowFailures, AndroidWindowsLiveOnTheSlaveWhichMayBeDownOrHang)
{
    WindowBox box({"--velmora:zavSlaveName", "Slave", "--velmora:zavSlaveAppSupport", "ANDROID"});
    auto slave = std::make_unique<FakeSlave>();
    slave->init();
    std::string const android = box.launch(IWindowManager::APPLICATION_TYPE_ANDROID, "game");
    EXPECT_EQ(android, "android-1");
    EXPECT_TRUE(box.windows->getWindowList().empty());
    slave->report(android, ILifecycleManagement::STATE_RUNNING);
    ASSERT_TRUE(box.journal.await("focus >" + android));
    EXPECT_TRUE(slave->called.waitFor(3));
    EXPECT_EQ(slave->calls(), (Lines{"launch ANDROID 12", "IWindowManager.handleFocus " + android,
                                     "IWindowManager.setVisibility " + android}));
    // Its end comes from the slave; there is no process of ours to reap.
    box.journal.clear();
    slave->report(android, ILifecycleManagement::STATE_TERMINATED);
    ASSERT_TRUE(box.journal.await("focus >"));
    EXPECT_EQ(box.windows->windowCount(), 0u);
    // A key with the focus empty reaches no window here, yet the slave mirrors it: press and release.
    box.press("OK");
    EXPECT_TRUE(slave->called.waitFor(5));
    EXPECT_EQ(countOf(slave->calls(), "IWindowManager.dispatchEvent "), 2);

    // A slave that hangs costs the caller one bus deadline, then an error.
    slave->hangLaunches();
    EXPECT_EQ(returnCodeOf([&] { box.launch(IWindowManager::APPLICATION_TYPE_ANDROID, "stuck"); }), ReturnTimedOut);
    slave.reset();
    EXPECT_EQ(returnCodeOf([&] { box.launch(IWindowManager::APPLICATION_TYPE_ANDROID, "late"); }),
              ReturnGenericFailure);
    // Other types still start here.
    EXPECT_FALSE(box.launch(IWindowManager::APPLICATION_TYPE_OTHER, "local").empty());
    EXPECT_EQ(box.windows->windowCount(), 1u);
}
