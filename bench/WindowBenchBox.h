// One display session of a box, in this process, for the window figures and
// as the in-process baseline of the server figures: a private sysroot with
// the launch scripts and a holder certificate, the media and power
// simulators started by a service manager, the authorization manager with
// test keys, and a MasterWindowManager with the real process factory. Made
// once per process and ended by release(); it sets VELMORA_RUNTIME_DIR, VELMORA_ROOT and PATH.
// cycle() belongs to one thread at a time.
#pragma once

#include "AuthorizationFixture.h"
#include "frame/FunctionCommand.h"
#include "HWPApplicationFactory.h"
#include "LifecycleObserver.h"
#include "MasterWindowManager.h"
#include "NullWindowManagerListener.h"
#include "rpc/RPCClient.h"
#include "rpc/RPCServer.h"
#include "ServiceManager.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace VelmoraBench {

using namespace Velmora;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Waits, without polling, for the focus to name a window.
class FocusWaiter : public VelmoraTest::NullWindowManagerListener {
public:
    // Notified after the unlock: woken, the bench's thread finds the mutex free
    // instead of sleeping on it once more before it reads the clock.
    void onFocusChange(IWindowManager&, std::string const&, std::string const& newFocus) override
    {
        {
            std::lock_guard lock(mutex);
            focus = newFocus;
        }
        changed.notify_all();
    }
    // A launch or an end that never shows in the focus ends the bench with a
    // message, rather than hanging it.
    void waitFor(std::string const& uid)
    {
        std::unique_lock lock(mutex);
        if (changed.wait_for(lock, std::chrono::minutes(1), [&] { return focus == uid; }))
            return;
        std::fprintf(stderr, "bench: the focus is \"%s\", never \"%s\"\n", focus.c_str(), uid.c_str());
        std::abort();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::string focus;
};

class Services : public ServiceManager {
public:
    explicit Services(ApplicationFactory* factory) : ServiceManager(factory, 0, nullptr) {}
    Client::Type getClientType() override { return Client::Master; }
    void start(std::string const& program)
    {
        FunctionCommand::run(*this, [&] { _createApplication(program, "{}"); });
    }
};

// One session of a box with its services, made once per process.
class BenchBox {
public:
    static BenchBox& get()
    {
        if (!box())
            box().reset(new BenchBox);
        return *box();
    }
    // Ends the windows and the simulators, so that none outlives the bench.
    static void release()
    {
        if (box())
            box()->windows->uninit();
        box().reset();
    }

    // One launch to its focus, in seconds; the window is gone again on return.
    double cycle()
    {
        auto const start = Clock::now();
        std::string const uid = windows->launch(
            IWindowManager::LaunchParameters("", IWindowManager::APPLICATION_TYPE_OTHER, "bench", "", {}, false, false));
        waiter.waitFor(uid);
        double const seconds = std::chrono::duration<double>(Clock::now() - start).count();
        windows->terminate(uid);
        waiter.waitFor("");
        windows->getWindowList(); // queued behind the end of the window
        return seconds;
    }

    // Has the window manager tell `observer` of every change (null: nobody),
    // and returns once no call into the one before is in progress.
    void observeWith(LifecycleObserver* observer)
    {
        windows->setLifecycleObserver(observer);
        windows->getWindowList(); // a round trip through the manager's thread
    }
    std::filesystem::path journalPath() const { return sandbox.root / "usr/local/var/velmora/journal"; }

    std::string const program = VELMORA_TEST_APP;

private:
    BenchBox()
    {
        fs::create_directories(sandbox.root / "usr/local/bin");
        fs::create_directories(sandbox.root / "usr/local/etc/velmora");
        for (auto const& script : fs::directory_iterator(VELMORA_LAUNCH_SCRIPTS))
            fs::copy_file(script.path(), sandbox.root / "usr/local/bin" / script.path().filename());
        writeFile(sandbox.root / "usr/local/etc/velmora/DORICProtected.crt",
                               VelmoraTest::toPem(VelmoraTest::TestPki::get().doricHolder.get()));
        setenv("VELMORA_RUNTIME_DIR", (sandbox.root / "run").c_str(), 1);
        std::string const path = std::getenv("PATH") ? std::getenv("PATH") : "";
        setenv("PATH",
               ((sandbox.root / "usr/local/bin").string() + ":" + fs::path(program).parent_path().string() + ":" +
                VELMORA_SIM_DIR + ":" + path)
                   .c_str(),
               1);
        host.init();
        services.init();
        services.start("VelmoraQENExec");
        services.start("velmora-hux");
        for (char const* endpoint : {"QEN", "HUX"})
            while (!reachable(endpoint))
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        AuthorizationAttributesManager::getInstance()->initialize(sandbox.issuerCertificate, sandbox.issuerKey,
                                                                  &services);
        windows = std::make_unique<MasterWindowManager>(0, &factory, 0, nullptr);
        windows->addListener(&waiter);
        windows->init();
        windows->onBootComplete();
        windows->getWindowList(); // after the start-up
    }
    static bool reachable(char const* endpoint)
    {
        try {
            RPCClient client(1);
            client.connect(endpoint);
            return true;
        } catch (Exception const&) {
            return false;
        }
    }

    VelmoraTest::Sandbox sandbox;
    RPCServer host{"Host"};
    HWPApplicationFactory factory;
    Services services{&factory};
    FocusWaiter waiter;
    std::unique_ptr<MasterWindowManager> windows;

    static std::unique_ptr<BenchBox>& box()
    {
        static std::unique_ptr<BenchBox> made;
        return made;
    }
};

} // namespace VelmoraBench
