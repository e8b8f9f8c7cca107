// The launcher against real processes; none may leave a zombie or a descriptor behind.
#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "FdCount.h"
#include "HWPApplicationFactory.h"
#include "ReturnCodeOf.h"
#include "ScopedEnv.h"
#include "ScratchDirectory.h"
#include "frame/TestClock.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace Velmora;
using ::testing::HasSubstr;
using VelmoraTest::stderrOf;

namespace {

struct Launcher : testing::Test {
    void SetUp() override
    {
        velmoraSetDebugLevel(DebugLevelInfo); // the tests read level-7 lines
        descriptors = openDescriptorCount();
    }
    void TearDown() override
    {
        EXPECT_EQ(openDescriptorCount(), descriptors);
        EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a child is left";
    }
    HWPApplicationFactory factory;
    int descriptors = 0;
};

} // namespace

// The child gets no descriptor of the server but 0 to 2, even one opened
// without close-on-exec (the bus's sockets are): a child holding the server's
// listening sockets would keep them open after the server's end, and its
// clients would wait on a server that is gone. Nor does it keep the server's
// blocked stop signals or ignored signals: SIGTERM must end it.
TEST_F(Launcher, TheChildGetsItsNameAnEmptyArgumentBothVariablesVerbatimAndNothingElseOfTheServer)
{
    ScratchDirectory scratch;
    std::string const parameters = "echo:" + scratch.file("echo");
    std::string pid;
    {
        VelmoraTest::ScopedEnv inherited("VELMORA_APP_HOSTNAME", "inherited");
        int const open = ::dup(STDERR_FILENO); // without close-on-exec
        sigset_t stop;
        sigset_t before;
        ::sigemptyset(&stop);
        ::sigaddset(&stop, SIGTERM);
        ::sigaddset(&stop, SIGINT);
        ::pthread_sigmask(SIG_BLOCK, &stop, &before);
        auto const hangUp = std::signal(SIGHUP, SIG_IGN);
        pid = factory.createApplication(VELMORA_TEST_CHILD, "Box \"quoted\"", parameters);
        std::signal(SIGHUP, hangUp);
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
        ::close(open);
    }
    ASSERT_FALSE(pid.empty());
    factory.destroyApplication(pid, false); // it exits by itself; the graceful wait reaps it
    EXPECT_EQ(contentsOf(scratch.file("echo")), std::string("argc=2\nargv0=") + VELMORA_TEST_CHILD +
                                                   "\nargv1=\nhost=Box \"quoted\"\nparameters=" + parameters +
                                                   "\ninherited=0\nblocked=0\nignored=0\n");
}

// A missing program gives no pid and is logged from both sides of the fork; a
// forceful destroy kills a program that ignores SIGTERM at once, and the pid,
// reaped then, is a generic failure the next time; a program that exited at
// once is reaped by the first wait.
TEST_F(Launcher, MissingProgramsProgramsThatExitAtOnceAndForcefulDestroys)
{
    std::string log = stderrOf([&] { EXPECT_EQ(factory.createApplication("velmora-no-such-program", "Host", "{}"), ""); });
    EXPECT_THAT(log, HasSubstr("an error occurred with execlp (No such file or directory)"));
    EXPECT_THAT(log, HasSubstr("failure creating velmora-no-such-program with {}"));

    std::string pid = factory.createApplication(VELMORA_TEST_CHILD, "Host", "ignore-term");
    ASSERT_FALSE(pid.empty());
    factory.destroyApplication(pid, true);
    log = stderrOf([&] { EXPECT_EQ(returnCodeOf([&] { factory.destroyApplication(pid, false); }), ReturnGenericFailure); });
    EXPECT_THAT(log, HasSubstr("waitpid failed No child processes"));
    EXPECT_THAT(log, HasSubstr("destroyApplication(): throwing exception: Generic failure"));

    std::string const exited = factory.createApplication(VELMORA_TEST_CHILD, "Host", "exit");
    ASSERT_FALSE(exited.empty());
    siginfo_t info{};
    // Blocks until it has exited, and leaves it a zombie for the destroy to reap.
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(std::stoi(exited)), &info, WEXITED | WNOWAIT));
    TestClock clock;
    unsigned int before = clock.now();
    factory.destroyApplication(exited, false);
    EXPECT_EQ(clock.now(), before) << "no delay before the first wait";
}

// Another thread of the server uses the environment while processes start:
// a child that took the environment lock after the fork would hang, and the
// launcher with it. Shown in a child process whose alarm turns a hang into a failure.
TEST(LauncherFailure, StartsWhileAnotherThreadChangesTheEnvironment)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            alarm(100); // within the test's own time limit, generous for a sanitizer build on a busy machine
            std::atomic<bool> stop{false};
            // Takes the environment lock again and again; the variable is
            // absent, so the environment itself never changes under the launcher.
            std::thread churn([&] {
                while (!stop)
                    unsetenv("VELMORA_TEST_ABSENT");
            });
            HWPApplicationFactory factory;
            int started = 0;
            for (int i = 0; i < 50; ++i) {
                std::string const pid = factory.createApplication(VELMORA_TEST_CHILD, "Host", "exit");
                if (pid.empty())
                    continue;
                ++started;
                siginfo_t info{};
                waitid(P_PID, static_cast<id_t>(std::stoi(pid)), &info, WEXITED | WNOWAIT);
                factory.destroyApplication(pid, false);
            }
            stop = true;
            churn.join();
            std::_Exit(started == 50 ? 3 : 4);
        },
        ::testing::ExitedWithCode(3), "");
}

// A failed fork leaves no descriptor behind. Shown in a child process that
// runs as an unprivileged user allowed no further process.
TEST(LauncherFailure, AFailedForkLeaksNoDescriptor)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            rlimit none{}; // no further process
            if (getuid() == 0 && setuid(65534) != 0)
                std::_Exit(5);
            setrlimit(RLIMIT_NPROC, &none);
            HWPApplicationFactory factory;
            int const before = openDescriptorCount();
            bool const failed = factory.createApplication(VELMORA_TEST_CHILD, "Host", "exit").empty();
            std::_Exit(failed && openDescriptorCount() == before ? 3 : 4);
        },
        ::testing::ExitedWithCode(3), "");
}

// On the real clock: the kill must reach a real process within the factory's
// own budget, which a test clock would spend in a few milliseconds. The budget
// is one second with no core dumps, thirty when the process may dump core.
TEST_F(Launcher, AProgramThatNeverEndsIsKilledAfterTheTimeout)
{
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_CORE, &saved), 0);
    rlimit none = saved;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_CORE, &none), 0);
    HWPApplicationFactory oneSecond;
    if (saved.rlim_max != 0) {
        rlimit some = saved;
        some.rlim_cur = 1;
        ASSERT_EQ(setrlimit(RLIMIT_CORE, &some), 0);
        EXPECT_EQ(HWPApplicationFactory().getTerminationTimeout(), 30000u);
    }
    ASSERT_EQ(setrlimit(RLIMIT_CORE, &saved), 0);
    EXPECT_EQ(oneSecond.getTerminationTimeout(), 1000u);
    // A graceful destroy sends no signal: the program would run for ever.
    std::string pid = oneSecond.createApplication(VELMORA_TEST_CHILD, "Host", "sleep");
    ASSERT_FALSE(pid.empty());
    EXPECT_THAT(stderrOf([&] { oneSecond.destroyApplication(pid, false); }), HasSubstr("triggering a forceful kill"));
}

