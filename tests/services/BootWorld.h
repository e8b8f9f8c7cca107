// A box to boot in a test: service packages installed into a private RPM
// root, a private runtime directory with the server's bus endpoint, plain
// services (the SDK's test program, each noting its start in an order file)
// and the simulators, found on PATH and logging to logFile("sim"). Box holds
// the master classes that boot such a world.
#pragma once

#include "HWPApplicationFactory.h"
#include "MasterPackageManager.h"
#include "MasterServiceManager.h"
#include "PackageWorld.h"
#include "rpc/RPCServer.h"
#include "RPMPackager.h"
#include "ScopedEnv.h"
#include "ScratchDirectory.h"
#include "ServiceFakes.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <csignal>
#include <sys/stat.h>

namespace ServiceTest {

struct ServicePackage {
    std::string name;
    std::string url;
    std::vector<std::string> requires_;
    std::string group = "Velmora/Service";
};

class BootWorld {
public:
    // `set` names the package set in the build tree's cache.
    BootWorld(std::string const& set, std::vector<ServicePackage> const& packages)
    {
        std::vector<VelmoraTest::PackageSpec> specs;
        for (ServicePackage const& package : packages)
            specs.push_back({package.name, "1.0", package.group, "{\"applicationURL\":\"" + package.url + "\"}",
                             package.requires_});
        world.installMany(set, specs);

        std::filesystem::create_directories(bin);
        std::filesystem::create_directories(runtime);
        host.init();
    }
    ~BootWorld() { host.shutdown(); }

    // A plain service under `name`; `environment` picks the test program's behaviour.
    void plainService(std::string const& name, std::string const& environment = "")
    {
        std::filesystem::path const script = bin / name;
        std::ofstream(script) << "#!/bin/sh\necho " << name << " >> " << orderFile << "\nexec env " << environment
                              << " " << VELMORA_TEST_APP << "\n";
        ::chmod(script.c_str(), 0755);
    }

    std::vector<std::string> starts() const { return readLines(orderFile); }

    std::filesystem::path const& runtimeDirectory() const { return runtime; }
    std::filesystem::path logFile(std::string const& name) const { return base / (name + ".log"); }

private:
    VelmoraTest::PackageWorld world;
    std::filesystem::path const base = world.root().parent_path();
    std::filesystem::path const bin = base / "bin";
    std::filesystem::path const runtime = base / "run";
    std::string const orderFile = (base / "order.log").string();
    VelmoraTest::ScopedEnv const runtimeVariable{"VELMORA_RUNTIME_DIR", runtime.string()};
    VelmoraTest::ScopedEnv const path{"PATH", VelmoraTest::ScopedEnv::pathBefore(bin.string() + ":" + VELMORA_SIM_DIR)};
    VelmoraTest::ScopedEnv const simulatorLog{"VELMORA_SIM_LOG", logFile("sim").string()};
    Velmora::RPCServer host{"Host"};
};

// The master classes of one box over a BootWorld.
struct Box {
    explicit Box(BootWorld& world, std::vector<char const*> args = {"server", "--velmora:session0"})
        : world(world), arguments(std::move(args)),
          manager(&factory, static_cast<int>(arguments.size()), const_cast<char**>(arguments.data()))
    {
        packager.init("", "", "");
        packages.init();
        manager.addListener(&listener);
    }
    // Ends the services with a signal before the manager reaps them: its own
    // destruction would give each one a grace period first.
    ~Box()
    {
        manager.removeListener(&listener);
        VectorObject<std::string> services = manager.getServiceList();
        manager.uninit();
        for (std::string const& uid : services)
            ::kill(std::stoi(uid), SIGTERM);
    }

    std::size_t boots() const { return listener.journal.count("boot complete"); }
    // What the web service was told, in order.
    std::vector<std::string> webLines() const
    {
        std::vector<std::string> lines = readLines(world.logFile("sim"));
        std::erase_if(lines, [](std::string const& line) { return !line.starts_with("add ") && !line.starts_with("remove "); });
        return lines;
    }

    BootWorld& world;
    std::vector<char const*> arguments;
    HWPApplicationFactory factory;
    RPMPackager packager;
    MasterPackageManager packages{packager};
    ServiceListener listener;
    MasterServiceManager manager;
};

} // namespace ServiceTest
