// velmora-android-slave: the stand-in for the Android system of a box. It
// serves the slave endpoint of each display session (<name><index>) that a
// server started with "--velmora:zavSlaveName <name>" dials, and runs each
// "Android" application as a native program on the SDK (see SlaveSession).
#include "AndroidSlave.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <CLI/CLI.hpp>
#include <systemd/sd-daemon.h>

#include <cstdio>
#include <cstdlib>

using namespace Velmora;

int main(int argc, char** argv)
{
    std::string name = "android";
    unsigned int sessions = 1;
    std::string program = "velmora-test-app";
    std::string sysroot;
    int logLevel = -1;
    CLI::App app("The Android slave of a box without Android: serves the endpoint <name><index> of each session\n"
                 "and runs each Android application as a native program that dials back to it.",
                 "velmora-android-slave");
    app.add_option("--name", name, "Slave name, as the server's --velmora:zavSlaveName")->capture_default_str();
    app.add_option("--sessions", sessions, "Number of display sessions, as the server's --sessions")
        ->check(CLI::Range(1u, 16u))
        ->capture_default_str();
    app.add_option("--program", program,
                   "Program started for an application whose URL does not name an executable in PATH")
        ->capture_default_str();
    app.add_option("--sysroot", sysroot,
                   "The box's sysroot, as the server's --sysroot: VELMORA_ROOT of the applications, and its\n"
                   "usr/local/bin leads their PATH")
        ->check(CLI::ExistingDirectory);
    app.add_option("--log-level", logLevel, "Highest log level shown: 1 errors ... 9 traces (VELMORA_DEBUG)")
        ->check(CLI::Range(0, 9));
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& e) {
        int const status = app.exit(e);
        return status == 0 ? 0 : 2;
    }
    if (logLevel >= 0)
        velmoraSetDebugLevel(logLevel);
    if (!sysroot.empty()) {
        ::setenv("VELMORA_ROOT", sysroot.c_str(), 1);
        char const* path = std::getenv("PATH");
        ::setenv("PATH", (sysroot + "/usr/local/bin" + (path && *path ? ":" + std::string(path) : "")).c_str(), 1);
    }

    AndroidSlave::blockSignals();
    AndroidSlave slave(name, sessions, program);
    try {
        slave.init();
    } catch (Exception const& e) {
        std::fprintf(stderr, "velmora-android-slave: cannot serve %s: %s\n", name.c_str(), e.what());
        return 1;
    }
    // A supervisor (systemd, a test) hears when the endpoints are open.
    sd_notifyf(0, "READY=1\nSTATUS=serving %s0 to %s%u", name.c_str(), name.c_str(), sessions - 1);
    slave.run();
    return 0;
}
