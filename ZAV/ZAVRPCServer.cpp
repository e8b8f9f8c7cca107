#include "ZAVRPCServer.h"

#include "LifecycleJournal.h"
#include "ServiceManager.h"
#include "WindowManager.h"
#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/FunctionCommand.h"
#include "serial/Deserializer.h"

#include <algorithm>
#include <exception>

namespace Velmora {

static char const MODULE[] = "ZAVRPCServer";

namespace {

bool existsInList(VectorObject<std::string> const& list, std::string const& uid)
{
    return std::find(list.begin(), list.end(), uid) != list.end();
}

// The handler's own name, the part of "<Interface>.<method>" after the dot.
char const* handlerName(std::string const& method)
{
    auto const dot = method.rfind('.');
    return method.c_str() + (dot == std::string::npos ? 0 : dot + 1);
}

} // namespace

ZAVRPCServer::ZAVRPCServer(std::vector<WindowManager*> const& windowManagers, PortMapper* portMapper,
                           ServiceManager* serviceManager, StateManager* stateManager, PackageManager* packageManager,
                           PackageInstaller* packageInstaller, SettingsDB* settingsDB, std::string const& name)
    : ZAVServer(windowManagers, portMapper, serviceManager, stateManager, packageManager, packageInstaller,
                settingsDB),
      RPCServer(name.empty() ? "ZAV" : name)
{
    auto const method = [](auto handler) { return static_cast<RPCMethod>(handler); };
    bool const hasWindows = !windowManagers.empty();

    if (portMapper) {
        portMapperMethods = {{"registerService", method(&ZAVRPCServer::registerService)},
                             {"lookupService", method(&ZAVRPCServer::lookupService)}};
        interfaces["IPortMapper"] = portMapperMethods;
    }
    if (hasWindows || serviceManager) {
        applicationManagerMethods = {{"getState", method(&ZAVRPCServer::getState)},
                                     {"setState", method(&ZAVRPCServer::setState)},
                                     {"activate", method(&ZAVRPCServer::activate)},
                                     {"suspend", method(&ZAVRPCServer::suspend)},
                                     {"terminate", method(&ZAVRPCServer::terminate)},
                                     {"getRuntimeStatistics", method(&ZAVRPCServer::getRuntimeStatistics)}};
        interfaces["IApplicationManager"] = applicationManagerMethods;
    }
    if (hasWindows) {
        windowManagerMethods = {{"handleFocus", method(&ZAVRPCServer::handleFocus)},
                                {"isFocused", method(&ZAVRPCServer::isFocused)},
                                {"handleEvent", method(&ZAVRPCServer::handleEvent)},
                                {"setVisibility", method(&ZAVRPCServer::setVisibility)},
                                {"getVisibility", method(&ZAVRPCServer::getVisibility)},
                                {"setOpacity", method(&ZAVRPCServer::setOpacity)},
                                {"getOpacity", method(&ZAVRPCServer::getOpacity)},
                                {"setZOrder", method(&ZAVRPCServer::setZOrder)},
                                {"getZOrder", method(&ZAVRPCServer::getZOrder)},
                                {"getWindowList", method(&ZAVRPCServer::getWindowList)},
                                {"launch", method(&ZAVRPCServer::launch)},
                                {"getLaunchParameters", method(&ZAVRPCServer::getLaunchParameters)},
                                {"dispatchEvent", method(&ZAVRPCServer::dispatchEvent)},
                                {"notify", method(&ZAVRPCServer::notify)}};
        interfaces["IWindowManager"] = windowManagerMethods;
    }
    if (serviceManager) {
        serviceManagerMethods = {{"getServiceList", method(&ZAVRPCServer::getServiceList)},
                                 {"authorizationTokenCreation", method(&ZAVRPCServer::authorizationTokenCreation)},
                                 {"authorizationTokenDeletion", method(&ZAVRPCServer::authorizationTokenDeletion)}};
        interfaces["IServiceManager"] = serviceManagerMethods;
    }
    if (packageManager) {
        packageManagerMethods = {{"getPackageInfoList", method(&ZAVRPCServer::getPackageInfoList)},
                                 {"getPackageInfo", method(&ZAVRPCServer::getPackageInfo)},
                                 {"getExtendedPackageInfoList", method(&ZAVRPCServer::getExtendedPackageInfoList)},
                                 {"getExtendedPackageInfo", method(&ZAVRPCServer::getExtendedPackageInfo)},
                                 {"getManifestPackageInfoList", method(&ZAVRPCServer::getManifestPackageInfoList)},
                                 {"getManifestPackageInfo", method(&ZAVRPCServer::getManifestPackageInfo)}};
        interfaces["IPackageManager"] = packageManagerMethods;
    }
    if (packageInstaller) {
        packageInstallerMethods = {{"packageInstall", method(&ZAVRPCServer::packageInstall)},
                                   {"packageRemove", method(&ZAVRPCServer::packageRemove)}};
        interfaces["IPackageInstaller"] = packageInstallerMethods;
    }
    if (settingsDB)
        interfaces["ISettingsDB"] = settingsDBMethods;

    // These answer without waiting for a manager: no hand-off to a handler thread.
    quickMethods = {"IApplicationManager.activate", "IApplicationManager.suspend", "IPortMapper.registerService",
                    "IPortMapper.lookupService", "IWindowManager.notify", "IWindowManager.dispatchEvent"};
}

// These make one call to the window manager of the session they name: on
// that manager's thread the call runs in place. An unknown session is
// answered by the handler, on a handler thread.
CommandProcessor* ZAVRPCServer::answeringProcessor(Request const& request)
{
    std::string const& method = request.getMethod();
    if (method != "IWindowManager.getWindowList" && method != "IWindowManager.launch")
        return nullptr;
    Json::Value const& parameters = request.getBody()["params"];
    if (!parameters.isObject() || !parameters["proxy"].isUInt())
        return nullptr;
    return getWindowManager(parameters["proxy"].asUInt());
}

ZAVRPCServer::~ZAVRPCServer()
{
    // Before the transport goes: no manager may be inside a listener call
    // into this object once its RPCServer part is being destroyed.
    unsubscribe();
    if (journal)
        journal->setSubscriber({});
    shutdown();
}

void ZAVRPCServer::init()
{
    ZAVServer::init();
    RPCServer::init();
}

void ZAVRPCServer::shutdown()
{
    RPCServer::shutdown();
    // Nothing is read any more; what was queued before is answered with an
    // error, or dropped by a manager that has stopped.
    for (WindowManager* manager : windowManagers) {
        try {
            if (manager)
                FunctionCommand::run(*manager, [] {});
        } catch (Exception const&) {
            // Stopped: it has dropped what was queued.
        }
    }
}

std::string ZAVRPCServer::getFixedRPCAddress() { return webAddress; }

void ZAVRPCServer::setWebAddress(std::string const& address) { webAddress = address; }

std::string ZAVRPCServer::guarded(Request const& request, Body const& body)
{
    std::string const& method = request.getMethod();
    try {
        Deserializer parameters(request.getBody().get("params", Json::Value())); // parsed once, with the request
        return body(parameters);
    } catch (Exception const& e) {
        VLOG(DebugLevelError, "%s(): caught exception: %s\n", handlerName(method), e.what());
        return error(request, e.what());
    } catch (std::exception const& e) {
        VLOG(DebugLevelError, "%s(): caught exception: %s\n", handlerName(method), e.what());
        return error(request, e.what());
    } catch (...) {
        VLOG(DebugLevelError, "%s(): caught unknown exception\n", handlerName(method));
        return error(request, "unknown");
    }
}

std::string ZAVRPCServer::withWindow(Request const& request, WindowBody const& body)
{
    return guarded(request, [&](Deserializer& parameters) {
        std::string const uid = deserialize<std::string>("uid", parameters);
        WindowManager* const manager = getWindowManager(uid);
        return manager ? body(*manager, uid, parameters) : error(request, "invalid uid");
    });
}

std::string ZAVRPCServer::withSession(Request const& request, SessionBody const& body)
{
    return guarded(request, [&](Deserializer& parameters) {
        WindowManager* const manager = getWindowManager(deserialize<unsigned int>("proxy", parameters));
        return manager ? body(*manager, parameters) : error(request, "invalid proxy");
    });
}

std::string ZAVRPCServer::error(Request const& request, std::string const& text)
{
    return IRPC::RPCErrorObject(request.getMethod(), text).serialize();
}

std::string ZAVRPCServer::done(Request const& request)
{
    return IRPC::RPCReturnObject(request.getMethod()).serialize();
}

std::string ZAVRPCServer::result(Request const& request, SerialObject const& value)
{
    return IRPC::RPCResultObject(request.getMethod(), value).serialize();
}

std::string ZAVRPCServer::result(Request const& request, std::string const& value)
{
    return IRPC::RPCResultObject(request.getMethod(), value).serialize();
}

WindowManager* ZAVRPCServer::getWindowManager(std::string const& uid)
{
    for (WindowManager* manager : windowManagers)
        if (manager && existsInList(manager->getWindowList(), uid))
            return manager;
    return nullptr;
}

WindowManager* ZAVRPCServer::getWindowManager(unsigned int proxy)
{
    for (WindowManager* manager : windowManagers)
        if (manager && manager->getSessionIndex() == proxy)
            return manager;
    return nullptr;
}

ApplicationManager* ZAVRPCServer::getApplicationManager(std::string const& uid)
{
    if (WindowManager* const manager = getWindowManager(uid))
        return manager;
    if (serviceManager && existsInList(serviceManager->getServiceList(), uid))
        return serviceManager;
    return nullptr;
}

} // namespace Velmora
