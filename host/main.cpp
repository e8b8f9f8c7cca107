// velmora-server: the host process of one server instance. It builds the
// managers in the order of their dependencies (master classes, or the stub
// classes with --stub), one window manager per session, the listener that
// ends a removed package's windows, then the RPC server; tells the supervisor
// when the endpoint accepts (READY=1) and pings its watchdog while every
// manager's thread runs; and on SIGTERM or SIGINT tears everything down in
// reverse: the RPC server first, then the managers, which end their child
// processes. Options that begin with "--velmora:" go to the managers'
// constructors untouched.
//
// Exit status: 0 after a clean stop, 1 when the instance cannot start, 2 for
// bad usage.
#include "AuthorizationAttributesManager.h"
#include "HWPApplicationFactory.h"
#include "LifecycleJournal.h"
#include "ManagerWatchdog.h"
#include "MasterPackageInstaller.h"
#include "MasterPackageManager.h"
#include "MasterServiceManager.h"
#include "MasterSettingsDB.h"
#include "MasterWindowManager.h"
#include "PortMapper.h"
#include "RemovedPackageWindows.h"
#include "RPMPackager.h"
#include "StateManager.h"
#include "StubPackageInstaller.h"
#include "StubPackageManager.h"
#include "StubServiceManager.h"
#include "StubSettingsDB.h"
#include "ZAVRPCServer.h"
#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/SysRoot.h"
#include "FileDescriptor.h"
#include "rpc/RuntimeDirectory.h"

#include <CLI/CLI.hpp>
#include <sqlite3.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <malloc.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Velmora;

static char const MODULE[] = "velmora-server";

namespace {

struct Options {
    unsigned int sessions = 1;
    bool stub = false;
    std::string endpoint = "ZAV";
    unsigned int port = 0;
    std::string sysroot;
    std::string issuerCertificate = "/usr/local/etc/velmora/ACIssuer.crt";
    std::string issuerKey = "/usr/local/etc/velmora/ACIssuer.key";
    std::string rpmRc;
    std::string rpmMacros;
    std::string rpmDbRoot;
    int logLevel = -1;
    std::string journal = LifecycleJournal::DEFAULT_PATH; // empty: no journal at all
    std::vector<std::string> managerOptions; // the "--velmora:" words, in order
};

bool isManagerOption(std::string const& word) { return word.rfind("--velmora:", 0) == 0; }

// Splits off the "--velmora:" options, each with the word behind it unless that
// word is an option itself, and parses the rest. Returns an exit status when
// the process is to end at once (--help, bad usage).
std::optional<int> parse(int argc, char** argv, Options& options)
{
    std::vector<std::string> own; // CLI11 takes its words in reverse order
    for (int i = argc - 1; i >= 1; --i) {
        bool const value = i > 1 && isManagerOption(argv[i - 1]) && argv[i][0] != '-';
        if (!isManagerOption(argv[i]) && !value)
            own.push_back(argv[i]);
    }
    for (int i = 1; i < argc; ++i) {
        if (!isManagerOption(argv[i]))
            continue;
        options.managerOptions.push_back(argv[i]);
        if (i + 1 < argc && argv[i + 1][0] != '-')
            options.managerOptions.push_back(argv[++i]);
    }

    CLI::App app("The Velmora application-manager server.\n"
                 "Options that begin with --velmora: are passed to the managers untouched.",
                 "velmora-server");
    app.add_option("--sessions", options.sessions, "Number of display sessions, one window manager each")
        ->check(CLI::Range(1u, 16u))
        ->capture_default_str();
    app.add_flag("--stub", options.stub, "Run the stub classes (a process that does not own the hardware)");
    app.add_option("--endpoint", options.endpoint, "Bus endpoint name")->capture_default_str();
    app.add_option("--port", options.port, "Loopback TCP port for WebSocket and HTTP POST, 0 for any free one")
        ->check(CLI::Range(0u, 65535u))
        ->capture_default_str();
    app.add_option("--sysroot", options.sysroot,
                   "Directory put in front of every fixed path (VELMORA_ROOT); its usr/local/bin leads PATH")
        ->check(CLI::ExistingDirectory);
    app.add_option("--issuer-certificate", options.issuerCertificate, "Attribute certificate issuer's certificate")
        ->capture_default_str();
    app.add_option("--issuer-key", options.issuerKey, "Attribute certificate issuer's private key")
        ->capture_default_str();
    app.add_option("--rpm-rc", options.rpmRc, "RPM rc file (empty: the library's default)");
    app.add_option("--rpm-macros", options.rpmMacros, "RPM macro file (empty: the library's default)");
    app.add_option("--rpm-db-root", options.rpmDbRoot, "RPM database root (empty: the sysroot)");
    app.add_option("--journal", options.journal, "Lifecycle journal file under the sysroot (empty: no journal)")
        ->capture_default_str();
    app.add_option("--log-level", options.logLevel, "Highest log level shown: 1 errors ... 9 traces (VELMORA_DEBUG)")
        ->check(CLI::Range(0, 9));
    try {
        app.parse(own);
    } catch (CLI::ParseError const& e) {
        int const status = app.exit(e);
        return status == 0 ? 0 : 2;
    }
    return std::nullopt;
}

// The words the managers' constructors see: the program name, the caller's
// "--velmora:" options, one "--velmora:session<N>" per session and the
// endpoint name as the children's server, unless the caller gave those.
std::vector<std::string> managerArguments(Options const& options)
{
    std::vector<std::string> words{"velmora-server"};
    words.insert(words.end(), options.managerOptions.begin(), options.managerOptions.end());
    auto given = [&](std::string const& prefix) {
        for (std::string const& word : options.managerOptions)
            if (word.rfind(prefix, 0) == 0)
                return true;
        return false;
    };
    if (!given("--velmora:session"))
        for (unsigned int i = 0; i < options.sessions; ++i)
            words.push_back("--velmora:session" + std::to_string(i));
    if (!given("--velmora:applicationHostname")) {
        words.push_back("--velmora:applicationHostname");
        words.push_back(options.endpoint);
    }
    return words;
}

// The sysroot, the log level and the children's PATH, before any manager reads them.
void prepareEnvironment(Options const& options)
{
    if (!options.sysroot.empty())
        ::setenv("VELMORA_ROOT", options.sysroot.c_str(), 1);
    if (options.logLevel >= 0)
        velmoraSetDebugLevel(options.logLevel);
    char const* path = std::getenv("PATH");
    std::string const programs = SysRoot::path("/usr/local/bin");
    ::setenv("PATH", (programs + (path && *path ? ":" + std::string(path) : std::string())).c_str(), 1);
}

// SIGTERM and SIGINT are blocked in every thread (each inherits the mask of
// main) and taken by sigwait in main. The factory's programs start with no
// signal blocked; a child forked by a library (a package's scriptlet) unblocks
// them again, so that what it runs can be stopped.
sigset_t stopSignals;

void unblockStopSignals() { ::pthread_sigmask(SIG_UNBLOCK, &stopSignals, nullptr); }

void blockStopSignals()
{
    ::sigemptyset(&stopSignals);
    ::sigaddset(&stopSignals, SIGTERM);
    ::sigaddset(&stopSignals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    ::pthread_atfork(nullptr, nullptr, unblockStopSignals);
}

void waitForStopSignal()
{
    int signal = 0;
    ::sigwait(&stopSignals, &signal);
}

// True when a live endpoint answers under `name`: then this instance must not
// start anything, since its services and windows would join the other's box.
bool endpointTaken(std::string const& name)
{
    std::string const path = RuntimeDirectory::endpointPath(name);
    sockaddr_un address{};
    if (path.size() >= sizeof(address.sun_path))
        return false; // the endpoint's own start reports the bad name
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    FileDescriptor const probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return probe.valid() && ::connect(probe.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
}

// Sends `message` to the supervisor's notification socket (NOTIFY_SOCKET: a
// path, or "@" and an abstract name) without waiting: a supervisor whose queue
// is full loses it. The watchdog pings go so, since a ping that waited for a
// supervisor behind in its reading would wedge the manager that sent it; the
// pings already queued stand for a lost one, and the next round tries again.
// STOPPING=1 goes so too: the exit tells a supervisor as much. libsystemd has
// no sender that does not wait; this one knows the two address forms that
// libsystemd of this Debian release knows, and leaves any other to sd_notify.
void notifyWithoutWaiting(char const* message)
{
    char const* const socketName = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    std::size_t const size = socketName ? std::strlen(socketName) : 0;
    if (size == 0)
        return;
    if (size < 2 || size >= sizeof(address.sun_path) || (socketName[0] != '/' && socketName[0] != '@')) {
        sd_notify(0, message);
        return;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socketName, size);
    if (socketName[0] == '@')
        address.sun_path[0] = '\0'; // an abstract name: exactly `size` bytes long
    FileDescriptor const sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (sender.valid())
        ::sendto(sender.get(), message, std::strlen(message), MSG_DONTWAIT | MSG_NOSIGNAL,
                 reinterpret_cast<sockaddr*>(&address), static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size));
}

// One server instance; members are built in the order of their dependencies
// and torn down in reverse.
class Instance {
public:
    Instance() = default;
    // Builds and starts every part; throws when one cannot start, and the
    // destructor then takes down what was built.
    void start(Options const& options, std::vector<char*> const& argv)
    {
        int const argc = static_cast<int>(argv.size());
        char** const args = const_cast<char**>(argv.data());
        if (!options.journal.empty()) {
            journal = std::make_unique<LifecycleJournal>(SysRoot::path(options.journal));
            journal->start();
        }
        portMapper = std::make_unique<PortMapper>();
        stateManager = std::make_unique<StateManager>();
        if (options.stub) {
            packageManager = std::make_unique<StubPackageManager>();
            packageInstaller = std::make_unique<StubPackageInstaller>();
            settingsDB = own(std::make_unique<StubSettingsDB>());
            serviceManager = std::make_unique<StubServiceManager>(&factory);
        } else {
            packager = std::make_unique<RPMPackager>();
            packager->init(options.rpmRc, options.rpmMacros, options.rpmDbRoot);
            packageManager = std::make_unique<MasterPackageManager>(*packager);
            packageInstaller = std::make_unique<MasterPackageInstaller>(*packager);
            settingsDB = own(std::make_unique<MasterSettingsDB>());
            serviceManager = std::make_unique<MasterServiceManager>(&factory, argc, args);
        }
        for (unsigned int session = 0; session < options.sessions; ++session) {
            windowManagers.push_back(std::make_unique<MasterWindowManager>(session, &factory, argc, args));
            serviceManager->addListener(windowManagers.back().get());
            windowManagers.back()->setLifecycleObserver(journal.get());
        }
        if (journal) {
            serviceManager->setLifecycleObserver(journal.get());
            serviceManager->addListener(journal.get());
            packageInstaller->addListener(journal.get());
        }
        authorization = AuthorizationAttributesManager::getInstance();
        if (!authorization->initialize(SysRoot::path(options.issuerCertificate), SysRoot::path(options.issuerKey),
                                       serviceManager.get()))
            VLOG(DebugLevelWarning, "no attribute certificate issuer (%s, %s): windows start without a token\n",
                 options.issuerCertificate.c_str(), options.issuerKey.c_str());
        // The window managers run before the first boot pass, which may complete
        // the boot at once and start the master windows.
        stateManager->init();
        packageManager->init();
        packageInstaller->init();
        settingsDB->init();
        for (auto& windows : windowManagers)
            windows->init();
        serviceManager->init();
        std::vector<WindowManager*> windows;
        for (auto& manager : windowManagers)
            windows.push_back(manager.get());
        removedPackageWindows = std::make_unique<RemovedPackageWindows>(*packageInstaller, *packageManager, windows);
        rpcServer = std::make_unique<ZAVRPCServer>(windows, portMapper.get(), serviceManager.get(), stateManager.get(),
                                                   packageManager.get(), packageInstaller.get(), settingsDB,
                                                   options.endpoint);
        rpcServer->setWebAddress("127.0.0.1:" + std::to_string(options.port));
        if (journal)
            rpcServer->setJournal(journal.get());
        rpcServer->init();
    }

    ~Instance()
    {
        if (rpcServer) {
            rpcServer->shutdown();
            rpcServer.reset();
        }
        watchdog.reset();
        removedPackageWindows.reset(); // before the window managers it asks
        for (auto it = windowManagers.rbegin(); it != windowManagers.rend(); ++it) {
            serviceManager->removeListener(it->get());
            (*it)->uninit();
        }
        windowManagers.clear(); // before the services that the windows use
        if (authorization) {
            delete authorization; // getInstance() and the constructor each hold a reference
            delete authorization;
        }
        serviceManager.reset();
        settings.reset();
        packageInstaller.reset();
        packageManager.reset();
        packager.reset();
        stateManager.reset();
        portMapper.reset();
    }

    Instance(Instance const&) = delete;
    Instance& operator=(Instance const&) = delete;

    unsigned short port() const { return rpcServer->getPort(); }

    // WATCHDOG=1 every `periodMs` or so, while every manager runs. (The
    // packager's processor runs no thread of its own: its work runs on callers.)
    void watch(unsigned int periodMs)
    {
        std::vector<CommandProcessor*> processors{stateManager.get(), packageManager.get(), packageInstaller.get(),
                                                  settingsDB, serviceManager.get()};
        for (auto& windows : windowManagers)
            processors.push_back(windows.get());
        watchdog = std::make_unique<ManagerWatchdog>(processors, periodMs, [] { notifyWithoutWaiting("WATCHDOG=1"); });
    }

private:
    // Takes over the settings database that `created` holds.
    template <class T>
    SettingsDB* own(std::unique_ptr<T> created)
    {
        SettingsDB* const database = created.get();
        settings = std::move(created);
        return database;
    }

    HWPApplicationFactory factory;
    // First built and last gone: every manager tells it until its end.
    std::unique_ptr<LifecycleJournal> journal;
    std::unique_ptr<PortMapper> portMapper;
    std::unique_ptr<StateManager> stateManager;
    std::unique_ptr<RPMPackager> packager;
    std::unique_ptr<PackageManager> packageManager;
    std::unique_ptr<PackageInstaller> packageInstaller;
    // SettingsDB keeps its destructor to itself; its processor base deletes it.
    std::unique_ptr<CommandProcessor> settings;
    SettingsDB* settingsDB = nullptr;
    std::unique_ptr<ServiceManager> serviceManager;
    std::vector<std::unique_ptr<MasterWindowManager>> windowManagers;
    std::unique_ptr<RemovedPackageWindows> removedPackageWindows;
    AuthorizationAttributesManager* authorization = nullptr;
    std::unique_ptr<ZAVRPCServer> rpcServer;
    std::unique_ptr<ManagerWatchdog> watchdog;
};

} // namespace

int main(int argc, char** argv)
{
    // One malloc arena for all threads: glibc gives each new thread an arena
    // of its own (up to eight per core), and on a box the pages that each one
    // keeps cost more than the rare wait for the shared one.
    ::mallopt(M_ARENA_MAX, 1);
    // SQLite's page caches grow a page at a time instead of setting aside
    // twenty pages per connection at the first read: each store is a few
    // pages and keeps two connections. A process-wide setting, so it is made
    // here, before any thread or any other user of SQLite.
    ::sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0);
    Options options;
    if (auto const status = parse(argc, argv, options))
        return *status;
    prepareEnvironment(options);
    std::vector<std::string> words = managerArguments(options);
    std::vector<char*> managerArgv;
    for (std::string& word : words)
        managerArgv.push_back(word.data());

    blockStopSignals();
    if (endpointTaken(options.endpoint)) {
        VLOG(DebugLevelError, "the endpoint %s is served by another process; not starting\n", options.endpoint.c_str());
        return 1;
    }
    try {
        Instance instance;
        instance.start(options, managerArgv);
        VLOG(DebugLevelNotice, "serving %s on 127.0.0.1:%u with %u session(s)%s\n", options.endpoint.c_str(),
             static_cast<unsigned int>(instance.port()), options.sessions, options.stub ? ", stub classes" : "");
        // READY=1 must arrive, so it waits for room in the supervisor's queue.
        sd_notifyf(0, "READY=1\nSTATUS=serving %s on 127.0.0.1:%u", options.endpoint.c_str(),
                   static_cast<unsigned int>(instance.port()));
        uint64_t watchdogUsec = 0;
        if (sd_watchdog_enabled(0, &watchdogUsec) > 0)
            instance.watch(static_cast<unsigned int>(std::max<uint64_t>(watchdogUsec / 4000, 1)));
        waitForStopSignal();
        notifyWithoutWaiting("STOPPING=1");
        VLOG(DebugLevelNotice, "stopping\n");
    } catch (Exception const& e) {
        VLOG(DebugLevelError, "cannot start: %s (the lines above name the cause)\n", e.what());
        return 1;
    } catch (std::exception const& e) {
        VLOG(DebugLevelError, "cannot start: %s\n", e.what());
        return 1;
    }
    return 0;
}
