// The package command layers and their null objects: calls reach the manager's
// thread, failures come back as Exception, notifications reach listeners,
// the installer stub never ends a request.
#include "frame/Exception.h"
#include "ReturnCodeOf.h"
#include "StubPackageInstaller.h"
#include "StubPackageManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace Velmora;

namespace {

class FailingManager : public StubPackageManager {
public:
    PackageInfo _getPackageInfo(std::string const& name) override
    {
        caller = std::this_thread::get_id();
        if (name == "bad")
            throw Exception(ReturnInvalidParameter);
        return StubPackageManager::_getPackageInfo(name);
    }
    std::thread::id caller;
};

struct ManifestRecorder : IPackageManager::IPackageManagerListener {
    int onPackageInfoChanged() override { return ++info, 0; }
    int onPackageManifestChanged(std::string const& e, std::string const& a, std::string const& v) override
    {
        last = e + "/" + a + "/" + v;
        return 0;
    }
    int onPackageRepositoryChanged() override { return ++repository, 0; }
    int info = 0;
    int repository = 0;
    std::string last;
};

struct EndRecorder : IPackageInstaller::IPackageInstallerListener {
    int onRequestEnd(VectorObject<std::string> const&, std::string const&, ReturnCode) override
    {
        return ++ends, 0;
    }
    std::atomic<int> ends{0};
};

TEST(PackageManagerLayer, RunsOnItsThreadAndThrowsFailuresToTheCaller)
{
    FailingManager manager;
    manager.init();
    EXPECT_EQ("", manager.getPackageInfo("x").getName());
    EXPECT_NE(std::this_thread::get_id(), manager.caller);
    EXPECT_EQ(ReturnInvalidParameter, returnCodeOf([&] { manager.getPackageInfo("bad"); }));
    // The processor survives a failed command.
    EXPECT_EQ("", manager.getPackageInfo("y").getName());
}

TEST(PackageManagerLayer, NotificationsReachEachListenerOnceAndOnlyItsFamily)
{
    StubPackageManager manager;
    ManifestRecorder recorder;
    EndRecorder stranger;
    manager.addListener(&recorder);
    manager.addListener(&recorder);
    manager.addListener(&stranger);
    manager.addListener(nullptr);
    EXPECT_EQ(0, manager.onPackageManifestChanged("apple", "Path", "/r/apple.rpm"));
    manager.onPackageInfoChanged();
    manager.onPackageRepositoryChanged();
    EXPECT_EQ("apple/Path//r/apple.rpm", recorder.last);
    EXPECT_EQ(1, recorder.info);
    EXPECT_EQ(1, recorder.repository);
    manager.removeListener(&recorder);
    manager.onPackageInfoChanged();
    EXPECT_EQ(1, recorder.info);
}

TEST(PackageInstallerLayer, StubAcceptsAndDropsRequestsWithoutAnEnd)
{
    EndRecorder recorder;
    {
        StubPackageInstaller installer;
        installer.addListener(&recorder);
        installer.init();
        EXPECT_EQ(ReturnSuccess, installer.packageInstall(VectorObject<std::string>{"a"}, false));
        EXPECT_EQ(ReturnSuccess, installer.packageRemove(VectorObject<std::string>{}, true));
        installer.onRequestEnd(VectorObject<std::string>{"a"}, "install", ReturnSuccess);
    } // the destructor drains the thread
    EXPECT_EQ(1, recorder.ends);
}

} // namespace
