// All window policy of one display session, in the process that owns the
// hardware. One header; the implementation is split by concern:
//   MasterWindowManagerLaunch.cpp  the rewriting of every launch (token,
//                                  z-order, overlay), the window limit with
//                                  eviction of the oldest and the one put-off
//                                  launch, the slave route, termination and
//                                  the release of a gone window's media and
//                                  power registrations
//   MasterWindowManagerFocus.cpp   focus, the master window, state reports,
//                                  and the compositing operations (which do
//                                  nothing: windows draw themselves)
//   MasterWindowManagerInput.cpp   start-up, event dispatch and power notices
// Further concerns (render, voice, Wi-Fi Direct) join as further files.
//
// Decisions where the behaviour is ours to choose:
// - The holder certificate is "/usr/local/etc/velmora/DORICProtected.crt"
//   under the sysroot (VELMORA_ROOT). Any failure on the way to a token is
//   logged and the window starts without one; its pid is then its uid.
// - The media and power clients exist from start-up on (onBootComplete). A
//   window that ends before then has nothing to release there; afterwards a
//   service that is down costs one log line per gone window, never the table
//   entry.
// - A slave-route entry has no process of ours: its end is reported by the
//   slave, and nothing is reaped here.
// - The master window counts towards the limit of two windows; it is never
//   evicted and never ended by "singleton".
//
// Threads: the owner calls uninit() before deleting the manager. Public
// operations and listener calls from any thread, as in
// WindowManager; every `_` operation, pendingLaunches, masterUid and the
// clients run on the manager's thread. The clients are owned.
#pragma once

#include "HUXClient.h"
#include "interfaces/IServiceManager.h"
#include "QENClient.h"
#include "WindowManager.h"
#include "ZAVClient.h"

#include <functional>
#include <queue>
#include <string>

namespace Velmora {

class MasterWindowManager : public WindowManager, public virtual IServiceManager::IServiceManagerListener {
public:
    static unsigned int const ZORDER_OFFSET; // 10: windows lie at 11 and the first one at 12
    // The holder's public-key certificate that every launch is authorized with.
    static char const* const HOLDER_CERTIFICATE_PATH; // "/usr/local/etc/velmora/DORICProtected.crt"
    static char const* const SINGLETON_UID;           // "singleton": every window but the master

    MasterWindowManager(unsigned int sessionIndex, ApplicationFactory* factory, int argc, char** argv);
    ~MasterWindowManager() override;

    // WindowManager::init, then the environment: client_enable_dms, pm_demo ("y" sets).
    void init() override;
    Client::Type getClientType() override;

    // The service manager's notices: a complete boot starts the session
    // (clients, options, master window); the others are not followed yet.
    void onBootComplete() override;
    void onServiceFailure(std::string const& name) override;
    void onServiceListChange(VectorObject<std::string> const& list) override;

protected:
    // Launch.
    // The record really launched: the caller's type, URL and parameters with
    // this box's token, creation settings and focus.
    virtual LaunchParameters _overrideLaunchParams(LaunchParameters const& parameters);
    // The window with the smallest initial tick that is not the master; null when none.
    virtual ApplicationMapEntry* _getOldestApplicationEntry();
    std::string _launch(LaunchParameters const& parameters) override;
    using ApplicationManager::_terminate;
    void _terminate(std::string const& uid) override;
    void _destroyApplication(std::string const& uid) override;

    // Focus and the master window.
    virtual void _createMaster();
    virtual void _toggleMasterWindow();
    virtual void _autoFocus(bool notifyOld);
    bool _setFocus(std::string const& uid, bool notifyOld) override;
    void _onStateChange(std::string const& uid, std::string const& oldState, std::string const& newState) override;
    void _handleFocus(std::string const& uid, bool focus) override;
    bool _isFocused(std::string const& uid) override;
    bool _handleEvent(std::string const& uid, Event* event) override;
    void _setVisibility(std::string const& uid, bool visible) override;
    bool _getVisibility(std::string const& uid) override;
    void _setOpacity(std::string const& uid, unsigned int opacity) override;
    unsigned int _getOpacity(std::string const& uid) override;
    void _setZOrder(std::string const& uid, unsigned int zOrder) override;
    unsigned int _getZOrder(std::string const& uid) override;

    // Start-up, events and power.
    void _startup() override;
    void _dispatchEvent(Event* event) override;
    void _wakeUp(unsigned int reason) override;
    void _powerStateChange(unsigned int state) override;
    void _powerChangeRequest(unsigned int state) override;

    unsigned int powerState = 4;
    bool dmsEnabled = false;
    bool powerDemo = false;
    bool spareFlag = false;
    std::string masterUid;
    std::queue<LaunchParameters> pendingLaunches; // never more than one
    unsigned int maxApplications = 2;
    bool clientMode = false;
    ZAVClient* slaveClient = nullptr;
    std::string slaveAppSupport;
    HUXClient* powerClient = nullptr;
    QENClient* mediaClient = nullptr;
    std::string renderUri;
    bool keepMasterFocus = false;

private:
    // Launch helpers.
    std::string authorizationToken();
    bool goesToSlave(LaunchParameters const& parameters) const;
    std::string launchOnSlave(LaunchParameters const& parameters);
    void scanStartupOptions();
    // Start-up helper: a client of a platform service, created and dialled.
    template <class Client>
    Client* connectClient(char const* what);
    // Focus helpers.
    // Runs `call` on a window; a failure is logged and marks the window to die.
    static bool reachWindow(ApplicationMapEntry& entry, char const* operation, std::function<void()> const& call);
    // The entry's client interfaces; Exception(ReturnInvalidState) when it has none.
    static IWindowEvent& eventsOf(ApplicationMapEntry const& entry);
    static IWindowCompositing& compositingOf(ApplicationMapEntry const& entry);
    void showMaster(bool visible);
    void sendSyntheticKey();
};

} // namespace Velmora
