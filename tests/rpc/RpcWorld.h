// ZAVRPCServer over scripted managers (two window sessions of fixed windows,
// one service, an installer that ends each request at once), the stub
// catalogue and settings, the real state manager and port mapper. Every
// manager operation the handlers reach is logged as "<operation> <arguments>".
#pragma once

#include "BusTestSupport.h"
#include "Signal.h"
#include "HWPApplicationFactory.h"
#include "PackageInstaller.h"
#include "PortMapper.h"
#include "ServiceManager.h"
#include "StateManager.h"
#include "StubPackageManager.h"
#include "StubServiceManager.h"
#include "StubSettingsDB.h"
#include "WindowManager.h"
#include "ZAVRPCServer.h"
#include "frame/Exception.h"
#include "rpc/RPCClient.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace RpcTest {

using namespace Velmora;

// Takes the line of each manager call.
using Recorder = std::function<void(std::string line)>;

// One line of compact JSON.
inline std::string text(SerialObject const& object) { return IRPC::write(IRPC::toJson(object)); }

// A session whose window list is fixed; "gone" is listed but has no entry, as
// a window that ended between the list and the call. The first window is
// focused, visible and opaque (200), the others not. A launch of the URL
// "wait" logs "waiting <session>" and waits until `gate` is raised: a manager
// busy as long as a test likes.
class ScriptedWindows : public WindowManager {
public:
    ScriptedWindows(unsigned int session, ApplicationFactory* factory, std::vector<std::string> windows,
                    Recorder record, VelmoraTest::Signal& gate)
        : WindowManager(session, factory, 0, nullptr), windows(std::move(windows)), record(std::move(record)),
          gate(gate)
    {
    }
    ~ScriptedWindows() override { uninit(); }
    Client::Type getClientType() override { return Client::Master; }

protected:
    VectorObject<std::string> _getWindowList() override
    {
        VectorObject<std::string> list;
        list.assign(windows.begin(), windows.end());
        return list;
    }
    std::string _getState(std::string const& uid) override
    {
        return uid == "gone" ? ApplicationManager::_getState(uid) : "RUNNING";
    }
    void _setState(std::string const& uid, std::string const& state) override { log("setState", uid, state); }
    void _terminate(std::string const& uid) override { log("terminate", uid); }
    unsigned int _terminateLaunchedAs(std::string const&, std::string const&, std::string const&) override { return 0; }
    RuntimeStatistics _getRuntimeStatistics(std::string const& uid) override
    {
        RuntimeStatistics statistics;
        statistics.name = uid;
        return statistics;
    }
    void _startup() override {}
    void _wakeUp(unsigned int) override {}
    void _powerStateChange(unsigned int) override {}
    void _powerChangeRequest(unsigned int) override {}
    void _handleFocus(std::string const& uid, bool focus) override { log("handleFocus", uid, std::to_string(focus)); }
    bool _isFocused(std::string const& uid) override { return uid == windows.front(); }
    bool _handleEvent(std::string const& uid, Event* event) override
    {
        log("handleEvent", uid, text(*event));
        return true;
    }
    void _setVisibility(std::string const& uid, bool visible) override { log("setVisibility", uid, std::to_string(visible)); }
    bool _getVisibility(std::string const& uid) override { return uid == windows.front(); }
    void _setOpacity(std::string const& uid, unsigned int opacity) override { log("setOpacity", uid, std::to_string(opacity)); }
    unsigned int _getOpacity(std::string const& uid) override { return uid == windows.front() ? 200 : 0; }
    void _setZOrder(std::string const& uid, unsigned int zOrder) override { log("setZOrder", uid, std::to_string(zOrder)); }
    unsigned int _getZOrder(std::string const&) override { return 7; }
    std::string _launch(LaunchParameters const& parameters) override
    {
        if (parameters.getApplicationURL() == "wait") {
            log("waiting", std::to_string(getSessionIndex()));
            gate.waitFor(1, std::chrono::hours(1));
        }
        log("launch", std::to_string(getSessionIndex()), text(parameters));
        return "new-" + parameters.getApplicationURL();
    }
    LaunchParameters _getLaunchParameters(std::string const& uid) override
    {
        return LaunchParameters(uid, APPLICATION_TYPE_OTHER, "url-" + uid, "", {}, false, true);
    }
    void _dispatchEvent(Event* event) override { log("dispatchEvent", std::to_string(getSessionIndex()), text(*event)); }
    bool _setFocus(std::string const&, bool) override { return false; }

private:
    void log(std::string const& operation, std::string const& first, std::string const& second = "")
    {
        record(operation + " " + first + (second.empty() ? "" : " " + second));
    }
    std::vector<std::string> windows;
    Recorder record;
    VelmoraTest::Signal& gate;
};

// One service, "svc", that takes tokens.
class ScriptedServices : public ServiceManager {
public:
    ScriptedServices(ApplicationFactory* factory, Recorder record) : ServiceManager(factory, 0, nullptr), record(std::move(record)) {}
    ~ScriptedServices() override { uninit(); }
    Client::Type getClientType() override { return Client::Master; }

protected:
    VectorObject<std::string> _getServiceList() override { return VectorObject<std::string>{"svc"}; }
    std::string _getState(std::string const& uid) override { return "STARTED " + uid; }
    void _authorizationTokenCreation(unsigned int token, Rights rights) override
    {
        record("tokenCreation " + std::to_string(token) + " " + text(rights));
    }
    void _authorizationTokenDeletion(unsigned int token) override { record("tokenDeletion " + std::to_string(token)); }

private:
    Recorder record;
};

// Ends every request at once: an install with `force` succeeds, anything
// else fails with ReturnInvalidState.
class EndingInstaller : public PackageInstaller {
public:
    ~EndingInstaller() override { uninit(); }

protected:
    void _packageInstall(VectorObject<std::string> const& packages, bool force) override
    {
        onRequestEnd(packages, "install", force ? ReturnSuccess : ReturnInvalidState);
    }
    void _packageRemove(VectorObject<std::string> const& packages, bool) override
    {
        onRequestEnd(packages, "remove", ReturnInvalidState);
    }
};

// The managers and the server; `stub` builds the stub instance (no window
// manager, the stub service manager). Manager calls go to `calls` unless a
// recorder is given.
class RpcWorld {
public:
    explicit RpcWorld(bool stub = false, Recorder record = {})
    {
        if (!record)
            record = [this](std::string line) { calls.add(std::move(line)); };
        if (stub) {
            services = std::make_unique<StubServiceManager>(&factory);
        } else {
            sessions.push_back(std::make_unique<ScriptedWindows>(0, &factory, std::vector<std::string>{"a0", "gone"}, record, gate));
            sessions.push_back(std::make_unique<ScriptedWindows>(1, &factory, std::vector<std::string>{"b1", "c1"}, record, gate));
            services = std::make_unique<ScriptedServices>(&factory, record);
        }
        std::vector<WindowManager*> windowManagers;
        for (auto& session : sessions) {
            session->init();
            windowManagers.push_back(session.get());
        }
        services->init();
        stateManager->init();
        packages->init();
        installer->init();
        settings->init();
        server = std::make_unique<ZAVRPCServer>(windowManagers, portMapper.get(), services.get(), stateManager.get(),
                                                packages.get(), installer.get(), settings.get(), "");
        server->setWebAddress("127.0.0.1:0");
        server->init();
    }
    ~RpcWorld()
    {
        gate.raise();
        server.reset();
    }

    // A subscriber to every notification, logging "<name> <params>".
    std::unique_ptr<RPCClient> subscriber(BusTest::Log& heard)
    {
        auto client = std::make_unique<RPCClient>();
        client->setNotificationHandler(
            [&heard](std::string const& name, Json::Value const& params) { heard.add(name + " " + IRPC::write(params)); });
        client->connect("ZAV");
        client->callOrThrow("RPC.subscribe", IRPC::parse(R"({"events":["*"]})"));
        return client;
    }

    BusTest::RuntimeDir runtime;
    BusTest::Log calls;
    VelmoraTest::Signal gate;
    HWPApplicationFactory factory;
    std::vector<std::unique_ptr<WindowManager>> sessions;
    std::unique_ptr<ServiceManager> services;
    std::unique_ptr<PortMapper> portMapper = std::make_unique<PortMapper>();
    std::unique_ptr<StateManager> stateManager = std::make_unique<StateManager>();
    std::unique_ptr<StubPackageManager> packages = std::make_unique<StubPackageManager>();
    std::unique_ptr<EndingInstaller> installer = std::make_unique<EndingInstaller>();
    std::unique_ptr<StubSettingsDB> settings = std::make_unique<StubSettingsDB>();
    std::unique_ptr<ZAVRPCServer> server;
};

} // namespace RpcTest
