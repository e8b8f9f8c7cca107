// Booting over real packages and real processes.
#include "BootWorld.h"
#include "DirectoryWatch.h"
#include "PlatformHelper.h"
#include "rpc/RPCClient.h"
#include "ReturnCodeOf.h"
#include "ServerProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

using namespace Velmora;
using namespace ServiceTest;
using VelmoraTest::DirectoryWatch;

namespace {

std::vector<ServicePackage> const BOX{
    {"start-core", "start_velmora", {}},
    {"start-extra", "start_velmora_extra", {}},
    {"power", "velmora-hux", {"start-core"}},
    {"media", "VelmoraQENExec", {"power"}},
    {"network", "velmora-svc-NET", {"media"}},
    {"web", "VelmoraWEB", {"network"}},
    {"chain-a", "velmora-svc-a", {"start-extra"}},
    {"chain-b", "velmora-svc-b", {"chain-a"}},
    {"chain-c", "velmora-svc-c", {"chain-a"}},
    {"chain-d", "velmora-svc-d", {"chain-b", "chain-c", "outside-lib"}},
    {"outside-lib", "velmora-svc-outside", {}, "Velmora/Base"},
    {"lonely", "velmora-svc-lonely", {"outside-lib"}},
};

// The pid a log line starting with `prefix` names: a plain service's
// "registered <pid>" (its uid), a simulator's "up <name> <pid>".
pid_t pidIn(std::filesystem::path const& log, std::string const& prefix)
{
    for (std::string const& line : readLines(log))
        if (line.rfind(prefix, 0) == 0)
            return static_cast<pid_t>(std::stoi(line.substr(prefix.size())));
    return -1;
}

// The plain services of BOX log to files of their own.
void prepareBox(BootWorld& world)
{
    for (char const* name : {"velmora-svc-NET", "velmora-svc-a", "velmora-svc-b", "velmora-svc-c", "velmora-svc-d",
                             "velmora-svc-outside", "velmora-svc-lonely"})
        world.plainService(name, std::string("VELMORA_TEST_APP_LOG=") + world.logFile(name).string());
}

Names const FACILITIES{"add ZAV",   "add HUX", "add MediaStore", "add MediaPlayer", "add FastChannelChange",
                       "add Frontend", "add TV", "add NET"};

TEST(Booting, ServicesComeUpInDependencyOrderAndRecoverFromDeaths)
{
    BootWorld world("box", BOX);
    prepareBox(world);
    DirectoryWatch logs(world.logFile("sim").parent_path()); // the logs and the order file
    Box box(world);
    box.manager.init();
    ASSERT_TRUE(box.listener.journal.waitFor([&] { return box.boots() >= 1; }));

    // The diamond's tree starts in its walk order, one at a time: a, b, d, c.
    // The walk reaches d through b before c, so d doesn't wait for c. A
    // dependency outside the group adds no edge: outside and lonely never start.
    Names chain = world.starts();
    std::erase(chain, "velmora-svc-NET"); // the other tree's
    EXPECT_EQ((Names{"velmora-svc-a", "velmora-svc-b", "velmora-svc-d", "velmora-svc-c"}), chain);

    // The web service came last in its chain: it heard the server, then what came up before it.
    ASSERT_TRUE(logs.waitFor([&] { return box.webLines().size() >= FACILITIES.size(); }));
    EXPECT_EQ(FACILITIES, box.webLines());
    EXPECT_TRUE(std::filesystem::exists(world.runtimeDirectory() / "platform.started"));
    EXPECT_EQ(8u, box.manager.getServiceList().size());

    // A killed service is started again and the boot completes once more.
    std::size_t const bootsBefore = box.boots();
    pid_t const b = pidIn(world.logFile("velmora-svc-b"), "registered ");
    ASSERT_GT(b, 0);
    ::kill(b, SIGKILL);
    ASSERT_TRUE(logs.waitFor([&] {
        Names const now = world.starts();
        return std::count(now.begin(), now.end(), "velmora-svc-b") == 2;
    }));
    ASSERT_TRUE(box.listener.journal.waitFor([&] { return box.boots() > bootsBefore; }));

    // The media engine's crash is a failure; it is withdrawn, restarted and announced again.
    RPCClient media(1);
    media.connect("QEN");
    media.callOrThrow("Sim.die", IRPC::parse(R"({"how":"crash"})"));
    ASSERT_TRUE(box.listener.journal.waitFor([&] { return box.listener.journal.count("failure QEN") == 1; }));
    Names expected = FACILITIES;
    for (char const* verb : {"remove ", "add "})
        for (char const* facility : {"MediaStore", "MediaPlayer", "FastChannelChange", "Frontend", "TV"})
            expected.push_back(verb + std::string(facility));
    ASSERT_TRUE(logs.waitFor([&] { return box.webLines().size() >= expected.size(); }));
    EXPECT_EQ(expected, box.webLines());
    EXPECT_EQ(8u, box.manager.getServiceList().size());

    // The manager never drops the platform helper it made: a repeated run starts afresh.
    PlatformHelper* platform = Singleton<PlatformHelper>::getInstance<PlatformHelper>();
    delete platform;
    delete platform;
}

// The server is a child in a process group of its own, so that the services
// it leaves behind when it ends can be cleared away with it; its files go to
// a folder of the parent's, since the child ends without its destructors.
TEST(PowerManagerEnd, EndsTheServerWithStatusZero)
{
    ScratchDirectory const childFiles{"velmora-boot-child"};
    pid_t const server = ::fork();
    ASSERT_GE(server, 0);
    if (server == 0) {
        ::setpgid(0, 0);
        ::setenv("TMPDIR", childFiles.get().c_str(), 1);
        BootWorld world("box", BOX);
        prepareBox(world);
        Box box(world);
        box.manager.init();
        if (!box.listener.journal.waitFor([&] { return box.boots() >= 1; }))
            std::_Exit(3);
        // Killed rather than told: this thread stays off the bus while the
        // manager's thread ends the process.
        pid_t const hux = pidIn(world.logFile("sim"), "up HUX ");
        if (hux <= 0)
            std::_Exit(5);
        ::kill(hux, SIGKILL);
        for (;;)
            ::pause(); // until the server ends the process, or the test gives up on it
    }
    bool const ended = HostTest::awaitEnd(server, 60'000);
    ::kill(-server, SIGKILL);
    int status = -1;
    ::waitpid(server, &status, 0);
    ASSERT_TRUE(ended) << "the server did not end";
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
}

std::vector<ServicePackage> const BROKEN{
    {"start-core", "start_velmora", {}},
    {"start-extra", "start_velmora_extra", {}},
    {"cycle-1", "velmora-svc-cycle1", {"cycle-3"}},
    {"cycle-2", "velmora-svc-cycle2", {"cycle-1"}},
    {"cycle-3", "velmora-svc-cycle3", {"cycle-2"}},
    {"silent", "velmora-svc-silent", {"start-core"}},
    {"after-silent", "velmora-svc-after", {"silent"}},
    {"missing", "velmora-svc-missing", {"start-extra"}},
    {"after-missing", "velmora-svc-after-missing", {"missing"}},
};

// Without a session init fails, but only after a first pass; the boot stays
// incomplete and the manager keeps serving: a silent service's death brings a new one.
TEST(BrokenBoot, NoSessionFailsInitYetTheIncompleteBootKeepsServing)
{
    BootWorld world("broken", BROKEN);
    for (char const* name : {"velmora-svc-cycle1", "velmora-svc-cycle2", "velmora-svc-cycle3", "velmora-svc-after",
                             "velmora-svc-after-missing"})
        world.plainService(name);
    world.plainService("velmora-svc-silent",
                       "VELMORA_TEST_APP_SILENT=1 VELMORA_TEST_APP_LOG=" + world.logFile("silent").string());
    auto const silentPid = [&] { return pidIn(world.logFile("silent"), "registered "); };

    DirectoryWatch logs(world.logFile("silent").parent_path()); // the log and the order file
    Box box(world, {"server"});
    EXPECT_EQ(ReturnGenericFailure, returnCodeOf([&] { box.manager.init(); }));
    ASSERT_TRUE(logs.waitFor([&] { return silentPid() > 0; }));
    // A round trip on the manager's thread: every pass so far has run.
    EXPECT_EQ(1u, box.manager.getServiceList().size());
    EXPECT_EQ((Names{"velmora-svc-silent"}), world.starts());

    ::kill(silentPid(), SIGKILL);
    ASSERT_TRUE(logs.waitFor([&] { return world.starts().size() == 2; }));
    EXPECT_EQ((Names{"velmora-svc-silent", "velmora-svc-silent"}), world.starts());
    EXPECT_EQ(0u, box.boots());
}

} // namespace
