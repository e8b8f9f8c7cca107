// Launch policy: the rewriting of every launch, the window limit, the local
// and the slave route, termination and the end of a window.
#include "MasterWindowManager.h"

#include "AuthorizationAttributesManager.h"
#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/OSTime.h"
#include "serial/Serialization.h"
#include "frame/SysRoot.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

namespace Velmora {

static char const MODULE[] = "MasterWindowManager";

unsigned int const MasterWindowManager::ZORDER_OFFSET = 10;
char const* const MasterWindowManager::HOLDER_CERTIFICATE_PATH = "/usr/local/etc/velmora/DORICProtected.crt";
char const* const MasterWindowManager::SINGLETON_UID = "singleton";

namespace {

bool environmentIsYes(char const* name)
{
    char const* value = std::getenv(name);
    return value && std::strcmp(value, "y") == 0;
}

} // namespace

MasterWindowManager::MasterWindowManager(unsigned int sessionIndex, ApplicationFactory* factory, int argc,
                                         char** argv)
    : WindowManager(sessionIndex, factory, argc, argv)
{
}

MasterWindowManager::~MasterWindowManager()
{
    WindowManager::uninit();
    delete powerClient;
    delete mediaClient;
    if (slaveClient) {
        slaveClient->removeListener(static_cast<IApplication::IApplicationListener*>(this));
        delete slaveClient;
    }
}

void MasterWindowManager::init()
{
    WindowManager::init();
    powerState = 0;
    dmsEnabled = environmentIsYes("client_enable_dms");
    powerDemo = environmentIsYes("pm_demo");
}

Client::Type MasterWindowManager::getClientType() { return Client::Master; }

std::string MasterWindowManager::authorizationToken()
{
    std::unique_ptr<AuthorizationAttributesManager> const authorization(
        Singleton<AuthorizationAttributesManager>::getInstance());
    if (!authorization) {
        VLOG(DebugLevelError, "AuthorizationAttributesManager::getInstance FAILED.");
        return std::string();
    }
    std::string const holder = authorization->CertificateFileToBuffer(SysRoot::path(HOLDER_CERTIFICATE_PATH));
    if (holder.empty())
        VLOG(DebugLevelError, "AuthorizationAttributesManager::CertificateFileToBuffer FAILED.");
    std::string const attributeCertificate = authorization->retreiveAttributeCertificate(holder);
    if (attributeCertificate.empty())
        VLOG(DebugLevelError, "AuthorizationAttributesManager::retreiveAttributeCertificate FAILED.");
    uint32_t const token = authorization->applyAttributeCertificate(holder, attributeCertificate);
    if (token == 0) {
        VLOG(DebugLevelError, "AuthorizationAttributesManager::applyAttributeCertificate FAILED.");
        return std::string();
    }
    return std::to_string(token);
}

IWindowManager::LaunchParameters MasterWindowManager::_overrideLaunchParams(LaunchParameters const& parameters)
{
    bool const first = applications.empty();
    unsigned int const zOrder = ZORDER_OFFSET + (first ? 2 : 1);
    bool const overlay = !first && parameters.getApplicationURL().find("tvclient.html") == std::string::npos;
    ISurfaceManagement::CreationSettings const settings(sessionIndex, ISurfaceCompositing::Dimensions(1280, 720),
                                                        false, 255, zOrder, ISurfaceCompositing::Rect(0, 0, 1280, 720),
                                                        false, false, overlay);
    return LaunchParameters(authorizationToken(), parameters.getApplicationType(), parameters.getApplicationURL(),
                            parameters.getApplicationParameters(), settings, true, false);
}

ApplicationManager::ApplicationMapEntry* MasterWindowManager::_getOldestApplicationEntry()
{
    ApplicationMapEntry* oldest = nullptr;
    // Ticks are compared by their distance from one now, so a wrap of the counter is harmless.
    auto const now = OS_GetTicks();
    for (auto& [uid, entry] : applications) {
        if (uid == masterUid)
            continue;
        if (!oldest || now - entry.getInitialTick() > now - oldest->getInitialTick())
            oldest = &entry;
    }
    return oldest;
}

std::string MasterWindowManager::_launch(LaunchParameters const& parameters)
{
    LaunchParameters const effective = _overrideLaunchParams(parameters);
    std::string const requester = launchRequester.empty() ? "IWindowManager.launch" : launchRequester;
    launchRequester.clear();
    std::string const& type = effective.getApplicationType();
    std::string const& url = effective.getApplicationURL();
    std::string const launched = url.empty() ? type : type + " " + url; // a Wi-Fi Display launch has no URL
    std::string uid;
    bool putOff = false;
    ApplicationMapEntry* oldest = _getOldestApplicationEntry();
    if (oldest && applications.size() >= maxApplications) {
        VLOG(DebugLevelInfo, "_launch(): %zu windows, the limit: %s is asked to end and the launch of %s waits\n",
             applications.size(), oldest->getUid().c_str(), url.c_str());
        journal({.applicationType = type, .name = url, .kind = LifecycleEntry::KIND_PUT_OFF,
                 .reason = "requested by " + requester + "; " + std::to_string(maxApplications) + " windows open",
                 .cause = "waiting for " + oldest->getUid() + " to end"});
        journal({.uid = oldest->getUid(), .kind = LifecycleEntry::KIND_EVICTED, .reason = "oldest window at the limit",
                 .cause = "for the launch of " + launched + " requested by " + requester});
        pendingLaunches = {};
        pendingLaunches.push(effective);
        runLoggingExceptions(MODULE, __LINE__, "_launch", [this, oldest] { ApplicationManager::_terminate(oldest); });
        putOff = true;
    } else if (goesToSlave(effective)) {
        uid = launchOnSlave(effective);
        if (!uid.empty())
            journal({.uid = uid, .applicationType = type, .name = url, .kind = LifecycleEntry::KIND_STARTED,
                     .reason = "requested by " + requester, .cause = "on the slave " + slaveClient->getServerUid()});
    } else {
        std::string const name = getExecutableName(effective);
        if (!name.empty()) {
            startReason = "requested by " + requester;
            uid = _createApplication(name, effective.serialize());
        }
    }
    if (!putOff && uid.empty()) {
        VLOG(DebugLevelError, "_launch(): %s %s could not be started\n", type.c_str(), url.c_str());
        journal({.applicationType = type, .name = url, .kind = LifecycleEntry::KIND_LAUNCH_FAILED,
                 .reason = "requested by " + requester, .cause = "no launch script for the type, or it did not start"});
        onError(std::string(), effective.getApplicationType() + " not supported by Velmora build");
        IWindowEvent::KeyEvent key(IWindowEvent::KeyEvent::KEY_SYNTHETIC, true);
        _dispatchEvent(&key);
        return uid;
    }
    // Until the new window runs, keys reach no one.
    if (!keepMasterFocus && focusedUid == masterUid)
        focusBecause("the launch of " + type + " " + url + " requested by " + requester + " is under way",
                     std::string(), true);
    return uid;
}

bool MasterWindowManager::goesToSlave(LaunchParameters const& parameters) const
{
    return slaveClient && (slaveAppSupport == "all" || slaveAppSupport == parameters.getApplicationType());
}

std::string MasterWindowManager::launchOnSlave(LaunchParameters const& parameters)
{
    std::string const uid = slaveClient->launch(parameters);
    if (uid.empty())
        return uid;
    std::string const serialized = parameters.serialize();
    if (parameters.getApplicationType() == APPLICATION_TYPE_ANDROID) {
        // Served through the slave connection itself, which this manager already hears.
        applications[uid] = ApplicationMapEntry(uid, slaveClient->getServerUid(), serialized, initialTimeoutDelay,
                                                slaveClient);
        return uid;
    }
    APPClient* client = APPClient::create(getClientType(), uid);
    applications[uid] = ApplicationMapEntry(uid, slaveClient->getServerUid(), serialized, initialTimeoutDelay, client);
    client->addListener(static_cast<IApplication::IApplicationListener*>(this));
    client->init();
    return uid;
}

void MasterWindowManager::_terminate(std::string const& uid)
{
    std::string const reason = std::exchange(terminateReason, std::string());
    if (uid != SINGLETON_UID) {
        ApplicationManager::_terminate(uid);
        return;
    }
    terminateEach([](ApplicationMapEntry const&) { return true; }, reason.empty() ? "terminate requested" : reason,
                  (reason.empty() ? "IApplicationManager.terminate of \"singleton\"" : "\"singleton\"") +
                      std::string(": every window but the master"));
}

unsigned int MasterWindowManager::_terminateLaunchedAs(std::string const& type, std::string const& url,
                                                       std::string const& reason)
{
    auto const launchedAs = [&](ApplicationMapEntry const& entry) {
        LaunchParameters const launched = deserialize<LaunchParameters>(entry.getParameters());
        return launched.getApplicationType() == type && launched.getApplicationURL() == url;
    };
    return terminateEach(launchedAs, reason, "every window launched as " + type + " " + url);
}

unsigned int MasterWindowManager::terminateEach(std::function<bool(ApplicationMapEntry const&)> const& chosen,
                                                std::string const& reason, std::string const& cause)
{
    unsigned int asked = 0;
    for (auto& [uid, entry] : applications) {
        if (uid == masterUid || !chosen(entry))
            continue;
        journal({.uid = uid, .kind = LifecycleEntry::KIND_TERMINATE, .reason = reason, .cause = cause});
        runLoggingExceptions(MODULE, __LINE__, "_terminate", [&] { ApplicationManager::_terminate(&entry); });
        ++asked;
    }
    return asked;
}

void MasterWindowManager::_destroyApplication(std::string const& uid)
{
    std::string const gone = uid; // the caller's reference may lie in the entry
    ApplicationManager::_destroyApplication(gone);
    if (mediaClient) {
        try {
            mediaClient->releaseClient(gone);
            runLoggingExceptions(MODULE, __LINE__, "_destroyApplication",
                                 [this] { mediaClient->releaseClient("RPC"); });
        } catch (Exception const& e) {
            VLOG(DebugLevelError, "_destroyApplication(): the media engine kept %s: %s\n", gone.c_str(), e.what());
        }
    }
    // The power manager being down must not cost the rest of the window's end.
    if (powerClient)
        runLoggingExceptions(MODULE, __LINE__, "_destroyApplication",
                             [this, &gone] { powerClient->unregisterClient(gone); });
}

void MasterWindowManager::scanStartupOptions()
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--velmora:zavSlaveName") == 0 && i + 1 < argc) {
            ++i;
            if (!slaveClient) {
                slaveClient = ZAVClient::create(getClientType(), argv[i] + std::to_string(sessionIndex));
                slaveClient->init();
                slaveClient->addListener(static_cast<IApplication::IApplicationListener*>(this));
            }
        }
        if (std::strcmp(argv[i], "--velmora:zavSlaveAppSupport") == 0 && i + 1 < argc)
            slaveAppSupport = argv[++i];
        if (std::strcmp(argv[i], "--velmora:client") == 0)
            clientMode = true;
    }
}

} // namespace Velmora
