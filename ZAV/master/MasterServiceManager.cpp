#include "MasterServiceManager.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "MasterPackageManager.h"
#include "MultiInputDriver.h"
#include "interfaces/PackageInfoListRequest.h"
#include "PlatformHelper.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

namespace Velmora {

static char const MODULE[] = "MasterServiceManager";

char const* const MasterServiceManager::SERVICE_GROUP = "Velmora/Service";
char const* const MasterServiceManager::START_NODE = "start_velmora";
char const* const MasterServiceManager::MEDIA_ENGINE_EXECUTABLE = "VelmoraQENExec";

namespace {

char const SESSION_OPTION[] = "--velmora:session";
// The number stands right behind the option word, wherever the word is found.
constexpr std::size_t SESSION_NUMBER_INDEX = sizeof(SESSION_OPTION) - 1;

char const* const MEDIA_FACILITIES[] = {"MediaStore", "MediaPlayer", "FastChannelChange", "Frontend", "TV"};

bool contains(std::string const& text, char const* fragment) { return text.find(fragment) != std::string::npos; }

} // namespace

void MasterServiceManager::SequenceBootupCommand::call()
{
    static_cast<MasterServiceManager*>(getServiceManager())->_sequenceBootup();
}

MasterServiceManager::MasterServiceManager(ApplicationFactory* factory, int argc, char** argv)
    : ServiceManager(factory, argc, argv)
{
    for (int i = 1; i < argc; ++i) {
        if (!std::strstr(argv[i], SESSION_OPTION))
            continue;
        unsigned long const index = std::strtoul(argv[i] + SESSION_NUMBER_INDEX, nullptr, 10);
        if (sessionCount < index + 1)
            sessionCount = static_cast<unsigned int>(index + 1);
    }
}

MasterServiceManager::~MasterServiceManager()
{
    // Nothing may run on the manager's thread while its links go.
    uninit();
    delete webClient;
    webClient = nullptr;
    if (inputDriver)
        delete inputDriver;
}

Client::Type MasterServiceManager::getClientType() { return Client::Master; }

void MasterServiceManager::init()
{
    ApplicationManager::init();
    buildGraph();
    // Taken before the first pass: a service may come up as soon as it is started.
    inputDriver = Singleton<InputDriver>::getInstance<MultiInputDriver>();
    SequenceBootupCommand firstPass(this);
    executeOrThrow(firstPass, MODULE, __LINE__, "init");
    if (sessionCount == 0) {
        VLOG(DebugLevelError, "Must specify at least one session to start with!\n");
        throwException(MODULE, __LINE__, "init", ReturnGenericFailure);
    }
}

void MasterServiceManager::buildGraph()
{
    MasterPackageManager* packages = ExplicitSingleton<MasterPackageManager>::getInstance();
    struct Release {
        MasterPackageManager* packages;
        ~Release() { delete packages; }
    } release{packages};
    // One catalogue query gives every service's record; only dependencies
    // outside that list cost a lookup of their own, and each only once.
    PackageInfoListRequest const request(VectorObject<std::string>{SERVICE_GROUP});
    VectorObject<ExtendedPackageInfo> const services = packages->getExtendedPackageInfoList(request);
    std::map<std::string, ExtendedPackageInfo> known;
    for (ExtendedPackageInfo const& service : services)
        known.emplace(service.getName(), service);
    auto lookUp = [&](std::string const& name) -> ExtendedPackageInfo const& {
        auto found = known.find(name);
        if (found == known.end())
            found = known.emplace(name, packages->getExtendedPackageInfo(name)).first;
        return found->second;
    };
    for (ExtendedPackageInfo const& service : services) {
        for (BasePackageInfo const& dependency : service.getDependencies()) {
            // RPM's own capabilities ("rpmlib(...)") are never packages.
            if (dependency.getName().rfind("rpmlib(", 0) == 0)
                continue;
            ExtendedPackageInfo const& prerequisite = lookUp(dependency.getName());
            if (!contains(prerequisite.getGroup(), SERVICE_GROUP))
                continue;
            serviceGraph.newEdge(StringObject(prerequisite.getCustomPackageInfo().getApplicationURL()),
                                 StringObject(service.getCustomPackageInfo().getApplicationURL()));
        }
    }
    reportCycles();
}

void MasterServiceManager::reportCycles() const
{
    std::set<std::set<std::string>> reported;
    for (StringObject const& root : serviceGraph.getRoots()) {
        for (VectorObject<StringObject> const& cycle : serviceGraph.getCycles(root)) {
            std::set<std::string> nodes;
            std::string text;
            for (StringObject const& node : cycle) {
                nodes.insert(node.getValue());
                text += (text.empty() ? "" : " -> ") + node.getValue();
            }
            if (reported.insert(nodes).second)
                VLOG(DebugLevelError, "Dependency cycle among services, started in walk order: %s\n", text.c_str());
        }
    }
}

void MasterServiceManager::_sequenceBootup()
{
    unsigned int pendingTrees = 0;
    for (StringObject const& root : serviceGraph.getRoots())
        if (advanceTree(serviceGraph.getDfsTree(root)))
            ++pendingTrees;
    if (pendingTrees == 0)
        onBootComplete();
}

bool MasterServiceManager::advanceTree(VectorObject<StringObject> const& tree)
{
    for (StringObject const& node : tree) {
        std::string const& name = node.getValue();
        if (contains(name, START_NODE))
            continue;
        auto const found = std::find_if(applications.begin(), applications.end(),
                                        [&](auto const& row) { return row.second.getName() == name; });
        if (found == applications.end()) {
            startReason = "boot sequence";
            _createApplication(name, std::to_string(sessionCount));
            return true;
        }
        std::string const& state = found->second.getLastReportedState();
        if (state != ILifecycleManagement::STATE_RUNNING)
            return true;
        if (ILifecycleManagement::isApplicationTerminated(state)) {
            VLOG(DebugLevelError, "application %s is in abnormal state %s\n", found->second.getName().c_str(),
                 state.c_str());
            return true;
        }
    }
    return false;
}

void MasterServiceManager::_onApplicationListChange()
{
    ServiceManager::_onApplicationListChange();
    _sequenceBootup();
}

MasterServiceManager::KnownService MasterServiceManager::classify(std::string const& url)
{
    if (contains(url, "hux"))
        return KnownService::PowerManager;
    if (contains(url, "QEN"))
        return KnownService::MediaEngine;
    if (contains(url, "NET"))
        return KnownService::Network;
    if (contains(url, "WEB"))
        return KnownService::WebService;
    if (contains(url, "DIAG"))
        return KnownService::Diagnostics;
    return KnownService::None;
}

void MasterServiceManager::_onStateChange(std::string const& uid, std::string const& oldState,
                                          std::string const& newState)
{
    ApplicationMapEntry* entry = _getApplicationEntry(uid);
    if (entry && newState != entry->getLastReportedState()) {
        KnownService const service = classify(entry->getName());
        if (newState == ILifecycleManagement::STATE_RUNNING)
            serviceUp(service);
        else if (ILifecycleManagement::isApplicationTerminated(newState))
            serviceDown(service);
    }
    ServiceManager::_onStateChange(uid, oldState, newState);
}

void MasterServiceManager::serviceUp(KnownService service)
{
    switch (service) {
    case KnownService::PowerManager:
        announce("HUX");
        (new PlatformHelper(std::string()))->start();
        inputDriver->enableIr();
        break;
    case KnownService::MediaEngine:
        for (char const* facility : MEDIA_FACILITIES)
            announce(facility);
        break;
    case KnownService::Network:
        inputDriver->enableHotplug();
        announce("NET");
        break;
    case KnownService::WebService:
        if (!webClient)
            connectWebService();
        break;
    case KnownService::Diagnostics:
        announce("DIAG");
        break;
    case KnownService::None:
        break;
    }
}

void MasterServiceManager::serviceDown(KnownService service)
{
    switch (service) {
    case KnownService::PowerManager:
        // The box goes down with its power manager. Other threads (the bus
        // among them) still run, so static destructors must not: flush the
        // logs and end at once with status 0.
        VLOG(DebugLevelError, "the power manager ended: the server ends with it (exit status 0)\n");
        std::fflush(nullptr);
        std::_Exit(0);
    case KnownService::MediaEngine:
        onServiceFailure("QEN");
        if (webClient)
            for (char const* facility : MEDIA_FACILITIES)
                withdraw(facility);
        startReason = "service restarted: the media engine ended";
        _createApplication(MEDIA_ENGINE_EXECUTABLE, std::string());
        break;
    case KnownService::Network:
        inputDriver->disableHotplug();
        withdraw("NET");
        break;
    case KnownService::WebService:
        delete webClient;
        webClient = nullptr;
        break;
    case KnownService::Diagnostics:
        withdraw("DIAG");
        break;
    case KnownService::None:
        break;
    }
}

void MasterServiceManager::connectWebService()
{
    webClient = WEBClient::create(Client::Plain, std::string());
    if (!webClient)
        throwException(MODULE, __LINE__, "_onStateChange", ReturnGenericFailure);
    try {
        webClient->init();
    } catch (...) {
        // Stay collecting, so that the service's next coming up tries again.
        delete webClient;
        webClient = nullptr;
        throw;
    }
    announce("ZAV");
    for (std::string const& name : pendingServices)
        announce(name);
    pendingServices.clear();
}

// A web service that is dead or slower than the bus deadline throws; the
// state bookkeeping and the other reactions must go on, so the call is logged.
void MasterServiceManager::tellWebService(char const* what, std::string const& name,
                                          void (WEBClient::*call)(std::string const&))
{
    try {
        (webClient->*call)(name);
    } catch (Exception const& e) {
        VLOG(DebugLevelError, "Couldn't %s facility %s at the web service: %s\n", what, name.c_str(), e.what());
    }
}

void MasterServiceManager::announce(std::string const& name)
{
    if (webClient)
        tellWebService("add", name, &WEBClient::addService);
    else
        pendingServices.push_back(name);
}

void MasterServiceManager::withdraw(std::string const& name)
{
    if (webClient)
        tellWebService("remove", name, &WEBClient::removeService);
}

} // namespace Velmora
