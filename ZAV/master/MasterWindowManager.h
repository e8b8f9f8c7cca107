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
//   MasterWindowManagerInput.cpp   start-up, event dispatch, the key tables,
//                                  the power key and the power notices
//   MasterWindowManagerRender.cpp  renderer requests and finished animations
//   MasterWindowManagerVoice.cpp   the grammar of voice transcripts
//   MasterWindowManagerWiFiDirect.cpp  Miracast peers, Bluetooth attachment,
//                                  and CreateTcpListener
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
//   evicted, never ended by "singleton" and never by terminateLaunchedAs
//   (its package may be removed: the box keeps its home screen).
// - The platform's notices arrive on the delivery threads of the media and
//   power clients (one each), so a voice or Miracast launch that waits for
//   this manager holds up only later notices of the same service.
// - A repeated boot completion dials a client again that lost its service;
//   a client whose service restarts dials it again by itself as well.
// - A power key whose request the power manager fails lifts the infra-red
//   filter it armed: the box stays awake and must hear every key.
// - Voice: the search site's base URL is VELMORA_SEARCH_URL, read at each
//   transcript, a slash added when it has none; unset, it is SEARCH_URL_DEFAULT, a local
//   page of the box. A transcript longer than MAX_TRANSCRIPT bytes is refused
//   with a log line: its URL would not fit a child's environment.
// - Miracast: a peer whose address is not a dotted IPv4 address, or whose
//   RTSP port is 0 or above 65535, is refused with a log line; no player
//   could reach it.
// - The lifecycle observer (the journal) hears who asked for each launch
//   (launchRequester), which window a put-off launch waits for, which launch
//   evicted a window, and why the focus moved (focusReason); it decides nothing.
//
// Threads: the owner calls uninit() before deleting the manager. Public
// operations and listener calls from any thread, as in
// WindowManager; every `_` operation, pendingLaunches, masterUid and the
// clients run on the manager's thread. The clients are owned.
#pragma once

#include "HUXClient.h"
#include "IBluetooth.h"
#include "InputDriver.h"
#include "interfaces/IServiceManager.h"
#include "IPowerManager.h"
#include "IRenderer.h"
#include "ISurfaceAnimation.h"
#include "IWireless.h"
#include "QENClient.h"
#include "WindowManager.h"
#include "ZAVClient.h"

#include <functional>
#include <queue>
#include <string>

namespace Velmora {

class MasterWindowManager : public WindowManager,
                            public virtual IServiceManager::IServiceManagerListener,
                            public virtual IWindowEvent::IInputEventListener,
                            public virtual IPowerManager::IPowerManagerListener,
                            public virtual IRenderer::OnRendererEventListener,
                            public virtual ISurfaceAnimation::ISurfaceAnimationListener,
                            public virtual IBluetooth::IBluetoothListener,
                            public virtual IWireless::IWirelessListener {
public:
    using BTDeviceInfo = IBluetooth::BTDeviceInfo;
    using WiFiApInfo = IWireless::WiFiApInfo;
    using WiFiDirectPeerInfo = IWireless::WiFiDirectPeerInfo;

    // A renderer's request, kept until the manager's thread runs _requestRender.
    class RenderCommand : public WindowManagerCommand {
    public:
        RenderCommand(WindowManager* manager, IRenderer::NotifyEvent event, std::string text)
            : WindowManagerCommand(manager), event(event), text(std::move(text))
        {
        }
        void call() override;

    private:
        IRenderer::NotifyEvent event;
        std::string text;
    };
    // An A2DP device has attached; nothing follows yet.
    class StartAvCommand : public WindowManagerCommand {
    public:
        using WindowManagerCommand::WindowManagerCommand;
        void call() override {}
    };

    static unsigned int const ZORDER_OFFSET; // 10: windows lie at 11 and the first one at 12
    // The holder's public-key certificate that every launch is authorized with.
    static char const* const HOLDER_CERTIFICATE_PATH; // "/usr/local/etc/velmora/DORICProtected.crt"
    static char const* const SINGLETON_UID;           // "singleton": every window but the master
    static char const* const SEARCH_URL_DEFAULT;      // "file:///usr/local/html_root/velmoraLauncher/search/"
    static std::size_t const MAX_TRANSCRIPT;          // 4096 bytes

    MasterWindowManager(unsigned int sessionIndex, ApplicationFactory* factory, int argc, char** argv);
    ~MasterWindowManager() override;

    // WindowManager::init, then the environment: client_enable_dms, pm_demo ("y" sets).
    void init() override;
    // Leaves the input driver and the clients' listener lists (waiting for a
    // notice being delivered), then WindowManager::uninit.
    void uninit() override;
    Client::Type getClientType() override;

    // The service manager's notices: a complete boot starts the session
    // (clients, options, master window); the others are not followed yet.
    void onBootComplete() override;
    void onServiceFailure(std::string const& name) override;
    void onServiceListChange(VectorObject<std::string> const& list) override;

    // Keys from the input driver, queued as dispatchEvent.
    void onInputEvent(InputEvent const& event) override;
    // Power notices, logged and queued.
    int onPowerStateChange(unsigned int const& state) override;
    int onPowerChangeRequest(unsigned int const& state) override;
    int onWakeUp(unsigned int const& reason) override;
    // Renderer and animation notices, queued.
    int onRendererEvent(IRenderer::NotifyEvent event, std::string const& text) override;
    int onAnimationFinished(std::string const& uid) override;
    // A voice transcript: at most one launch, waited for on the caller's thread.
    void onHidVoiceRecDone(std::string const& transcript) override;
    // The page a transcript asks for; empty for none. Any thread.
    static std::string voicePage(std::string const& transcript);
    // An A2DP device that attached queues StartAvCommand.
    void onAttachDone(std::string const& result, BTDeviceInfo const& device) override;
    // A Miracast peer: the Wi-Fi Display player, waited for on the caller's thread.
    void onWiFiDirectConnect(WiFiDirectPeerInfo const& peer) override;
    // The other notices of the families do nothing.
    void onDiscoveryDone(VectorObject<BTDeviceInfo>&) override {}
    void onDetachDone(std::string const&, BTDeviceInfo const&) override {}
    void simplePairingConfirm(BTDeviceInfo&) override {}
    void simplePairingNotify(BTDeviceInfo&, unsigned int) override {}
    void onAvkStateEvent(std::string const&) override {}
    void onScanDone(VectorObject<WiFiApInfo>&, std::string const&) override {}
    void onFetchApInfoDone(WiFiApInfo&, std::string const&) override {}
    void onConnectionResult(WiFiApInfo&, std::string const&) override {}
    void onWiFiInviteEvent(std::string const&) override {}
    void onRSSIEvent(std::string const&) override {}
    void onWiFiDirectDiscoveredPeer(WiFiDirectPeerInfo const&) override {}
    void onWiFiDirectNotify(std::string const&, unsigned int const&, WiFiDirectPeerInfo const&) override {}

    // A listening TCP socket on address:port (backlog 10), owned by the
    // caller; -1 after a line on standard output when a step fails.
    int CreateTcpListener(char const* address, unsigned short port);

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
    unsigned int _terminateLaunchedAs(std::string const& type, std::string const& url,
                                      std::string const& reason) override;
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
    virtual void _handlePowerKey(IWindowEvent::KeyEvent::Code code);
    // Render and animation.
    virtual int _requestRender(IRenderer::NotifyEvent event, std::string const& text);

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
    InputDriver* inputDriver = nullptr;
    HUXClient* powerClient = nullptr;
    QENClient* mediaClient = nullptr;
    std::string renderUri;
    bool keepMasterFocus = false;
    std::string toggleCause = "toggled"; // why the master window toggles, for the journal

private:
    // Launch helpers.
    std::string authorizationToken();
    bool goesToSlave(LaunchParameters const& parameters) const;
    std::string launchOnSlave(LaunchParameters const& parameters);
    void scanStartupOptions();
    // Asks every window but the master that `chosen` picks to end, each
    // journalled with `reason` and `cause`; answers how many were asked.
    unsigned int terminateEach(std::function<bool(ApplicationMapEntry const&)> const& chosen,
                               std::string const& reason, std::string const& cause);
    // Start-up helper: a client of a platform service that this manager listens to.
    template <class Client>
    Client* connectClient();
    // Focus helpers.
    // Runs `call` on a window; a failure is logged and marks the window to die.
    static bool reachWindow(ApplicationMapEntry& entry, char const* operation, std::function<void()> const& call);
    // The entry's client interfaces; Exception(ReturnInvalidState) when it has none.
    static IWindowEvent& eventsOf(ApplicationMapEntry const& entry);
    static IWindowCompositing& compositingOf(ApplicationMapEntry const& entry);
    void showMaster(bool visible);
    // _toggleMasterWindow, with why kept in toggleCause for the journal ("the Home key").
    void toggleMasterWindowBecause(std::string const& why);
    void sendSyntheticKey();
    // Input helpers.
    // True when the key tables consume the key.
    bool consumedByKeyTables(IWindowEvent::KeyEvent const& key);
    bool consumedInDemoMode(IWindowEvent::KeyEvent const& key);
    void routeEvent(Event* event);
    // Hands `event` to a window: a program of ours gets it without the
    // manager's thread waiting for its answer (a failed one marks the window at
    // its next event); a slave's window answers through the slave server.
    static void deliverEvent(ApplicationMapEntry& entry, Event const& event);
    // Voice and Wi-Fi Direct helper: a web application at `url`, launched and waited for.
    void launchPage(std::string const& url, std::string const& requester);
};

} // namespace Velmora
