// Usage (the host):
//
//     auto* server = new ZAVRPCServer(windowManagers, portMapper, serviceManager, stateManager,
//                                     packageManager, packageInstaller, settingsDB, serviceName);
//     server->setWebAddress("127.0.0.1:0");   // optional, before init(): WebSocket and HTTP POST
//     server->init();                         // subscribes to the managers, then opens the endpoints
//     ...
//     server->shutdown();                     // closes endpoints and connections, joins the threads,
//                                             // waits for requests queued on the window managers
//     delete server;                          // unsubscribes; then the host deletes the managers
//
// Every manager is created and init()ed before the server; a null pointer
// leaves its interface out (window managers: an empty vector). An empty
// serviceName gives the endpoint "ZAV". init() throws Exception when the
// endpoint name is served by a live process.
//
// The server's face to other processes: the remote methods of the managers,
// one table per interface (IPortMapper, IApplicationManager, IWindowManager,
// IServiceManager, ISettingsDB, IPackageManager, IPackageInstaller, and
// ILifecycleJournal when the host gives a journal), and the
// listener operations that turn manager changes into notifications. It keeps
// no state beyond the constant tables. Each handler reads its parameters,
// picks the manager (a window manager by session index "proxy" or by the
// window list holding "uid"), calls the public operation and renders the
// result; every failure, including an exception of any type, becomes an
// error reply.
//
// Threads: handlers run on the RPC server's handler threads, several at once,
// and wait for the managers' threads; the few that never block run on the
// reading threads; getWindowList and launch of an existing session run on
// that session's window manager's thread, where its operations run in place.
// Listener operations run on the managers' threads and only hand a text to
// the transport. setWebAddress, init, shutdown and the destructor belong to
// the owner's thread.
#pragma once

#include "ZAVServer.h"
#include "rpc/RPCServer.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace Velmora {

class ApplicationManager;
class Deserializer;
class LifecycleJournal;

class ZAVRPCServer : public ZAVServer, public RPCServer {
public:
    ZAVRPCServer(std::vector<WindowManager*> const& windowManagers, PortMapper* portMapper,
                 ServiceManager* serviceManager, StateManager* stateManager, PackageManager* packageManager,
                 PackageInstaller* packageInstaller, SettingsDB* settingsDB, std::string const& name);
    ~ZAVRPCServer() override;

    // ZAVServer::init() (subscriptions), then RPCServer::init() (serving).
    void init() override;
    // RPCServer::shutdown(), then waits for the requests still queued on the
    // window managers' threads, which hold this server as their handler.
    void shutdown() override;
    // Empty unless setWebAddress() gave a loopback address.
    std::string getFixedRPCAddress() override;
    // "127.0.0.1:<port>" (0: any free port) to serve WebSocket and HTTP POST
    // beside the Unix endpoint; call before init().
    void setWebAddress(std::string const& address);
    // Offers ILifecycleJournal and sends its new entries as
    // "ILifecycleJournal::onEntry"; before init(). Not owned: the journal
    // outlives the server, which leaves it in its destructor.
    void setJournal(LifecycleJournal* journal);

    // Listener operations: those that become notifications, and the rest,
    // which do nothing.
    void onError(std::string const& uid, std::string const& errorType) override;
    void onKeepAlive(std::string const& uid, std::string const& state) override;
    void onStateChange(std::string const& uid, std::string const& oldState, std::string const& newState) override;
    void onBootComplete() override;
    void onServiceFailure(std::string const& name) override;
    void onServiceListChange(VectorObject<std::string> const& list) override;
    using IWindowCompositing::IWindowCompositingListener::onVisibilityChange;
    using IWindowCompositing::IWindowCompositingListener::onOpacityChange;
    using IWindowCompositing::IWindowCompositingListener::onZOrderChange;
    using IWindowCompositing::IWindowCompositingListener::onLocationChange;
    void onVisibilityChange(std::string const& uid, bool const& oldValue, bool const& newValue) override;
    void onOpacityChange(std::string const& uid, unsigned int const& oldValue, unsigned int const& newValue) override;
    void onZOrderChange(std::string const& uid, unsigned int const& oldValue, unsigned int const& newValue) override;
    void onLocationChange(std::string const& uid, ISurfaceCompositing::Rect const& oldValue,
                          ISurfaceCompositing::Rect const& newValue) override;
    void onWindowListChange(IWindowManager& manager, VectorObject<std::string> const& list) override;
    void onFocusChange(IWindowManager& manager, std::string const& oldFocus, std::string const& newFocus) override;
    void onLayoutChange(IWindowManager& manager, std::string const& oldLayout, std::string const& newLayout) override;
    int onEntityListChange(VectorObject<std::string> const& list) override;
    int onAttributeListChange(std::string const& entity, VectorObject<std::string> const& list) override;
    int onAllowedValuesChange(std::string const& entity,
                              VectorObject<ISettingsDB::AttributeValuePair> const& pairs) override;
    int onCurrentValuesChange(std::string const& entity,
                              VectorObject<ISettingsDB::AttributeValuePair> const& pairs) override;
    int onPackageInfoChanged() override;
    int onPackageManifestChanged(std::string const& entity, std::string const& attribute,
                                 std::string const& value) override;
    int onPackageRepositoryChanged() override;
    int onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation,
                     ReturnCode result) override;
    int onStateChange() override;

    // Handlers, one per remote method of the same name; each returns the
    // reply text.
    using Request = IRPC::RPCSynchronousMethodObject;
    virtual std::string getState(Request const& request);
    virtual std::string setState(Request const& request);
    virtual std::string activate(Request const& request);
    virtual std::string suspend(Request const& request);
    virtual std::string terminate(Request const& request);
    virtual std::string getRuntimeStatistics(Request const& request);
    virtual std::string getServiceList(Request const& request);
    virtual std::string authorizationTokenCreation(Request const& request);
    virtual std::string authorizationTokenDeletion(Request const& request);
    virtual std::string handleFocus(Request const& request);
    virtual std::string isFocused(Request const& request);
    virtual std::string handleEvent(Request const& request);
    virtual std::string setVisibility(Request const& request);
    virtual std::string getVisibility(Request const& request);
    virtual std::string setOpacity(Request const& request);
    virtual std::string getOpacity(Request const& request);
    virtual std::string setZOrder(Request const& request);
    virtual std::string getZOrder(Request const& request);
    virtual std::string getWindowList(Request const& request);
    virtual std::string launch(Request const& request);
    virtual std::string getLaunchParameters(Request const& request);
    virtual std::string dispatchEvent(Request const& request);
    virtual std::string getPackageInfoList(Request const& request);
    virtual std::string getPackageInfo(Request const& request);
    virtual std::string getExtendedPackageInfoList(Request const& request);
    virtual std::string getExtendedPackageInfo(Request const& request);
    virtual std::string getManifestPackageInfoList(Request const& request);
    virtual std::string getManifestPackageInfo(Request const& request);
    virtual std::string packageInstall(Request const& request);
    virtual std::string packageRemove(Request const& request);
    virtual std::string registerService(Request const& request);
    virtual std::string lookupService(Request const& request);
    virtual std::string notify(Request const& request);
    virtual std::string queryJournal(Request const& request);

protected:
    CommandProcessor* answeringProcessor(Request const& request) override;

private:
    using Body = std::function<std::string(Deserializer& parameters)>;
    using WindowBody = std::function<std::string(WindowManager& manager, std::string const& uid, Deserializer& parameters)>;
    using SessionBody = std::function<std::string(WindowManager& manager, Deserializer& parameters)>;

    // Runs `body` over the request's parameters: the guarded block that turns
    // every exception into an error reply with a log line.
    static std::string guarded(Request const& request, Body const& body);
    // guarded(), after choosing the window manager whose list holds "uid"; "invalid uid" when none.
    std::string withWindow(Request const& request, WindowBody const& body);
    // guarded(), after choosing the window manager of session "proxy"; "invalid proxy" when none.
    std::string withSession(Request const& request, SessionBody const& body);
    static std::string error(Request const& request, std::string const& text);
    static std::string done(Request const& request);
    static std::string result(Request const& request, SerialObject const& value);
    static std::string result(Request const& request, std::string const& value);

    // The first window manager whose window list holds `uid`, else null.
    WindowManager* getWindowManager(std::string const& uid);
    // The window manager of session `proxy`, else null.
    WindowManager* getWindowManager(unsigned int proxy);
    // A window manager holding `uid`, else the service manager when its list does, else null.
    ApplicationManager* getApplicationManager(std::string const& uid);
    // Sends an object of string members, in the order given, as notification `name`.
    void notifyObject(std::string const& name, std::initializer_list<std::pair<char const*, std::string>> members);

    MethodTable portMapperMethods;
    MethodTable applicationManagerMethods;
    MethodTable windowManagerMethods;
    MethodTable serviceManagerMethods;
    MethodTable settingsDBMethods;
    MethodTable packageManagerMethods;
    MethodTable packageInstallerMethods;
    MethodTable journalMethods;
    LifecycleJournal* journal = nullptr;
    std::string webAddress;
};

} // namespace Velmora
