// The package command layers and their null objects: calls reach the manager's
// thread, failures come back as Exception, the installer stub never ends a
// request. The listener walk itself is the ListenerList's, tested there.
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
