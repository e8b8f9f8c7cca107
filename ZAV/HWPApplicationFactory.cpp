#include "HWPApplicationFactory.h"

#include "FileDescriptor.h"
#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/OSTime.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sstream>
#include <string_view>
#include <vector>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "HWPApplicationFactory";

HWPApplicationFactory::HWPApplicationFactory()
{
    rlimit limit{};
    bool dumpsCore = getrlimit(RLIMIT_CORE, &limit) == 0 && limit.rlim_cur != 0;
    terminationTimeout = dumpsCore ? OS_GetTickRate() * 30 : OS_GetTickRate();
}

namespace {

extern "C" char** environ;

// The child's argv {name, ""} and its environment: this process's, with the
// two variables of the launch set.
struct ExecPlan {
    ExecPlan(std::string const& name, std::string const& hostname, std::string const& parameters)
        : arguments{name, ""}
    {
        static std::string const HOSTNAME = "VELMORA_APP_HOSTNAME=";
        static std::string const PARAMETERS = "VELMORA_APP_PARAMETERS=";
        for (char** entry = environ; entry && *entry; ++entry) {
            std::string_view const text(*entry);
            if (text.rfind(HOSTNAME, 0) != 0 && text.rfind(PARAMETERS, 0) != 0)
                environment.emplace_back(text);
        }
        environment.push_back(HOSTNAME + hostname);
        environment.push_back(PARAMETERS + parameters);
        argv = pointers(arguments);
        envp = pointers(environment);
    }

    static std::vector<char*> pointers(std::vector<std::string>& texts)
    {
        std::vector<char*> result;
        for (std::string& text : texts)
            result.push_back(text.data());
        result.push_back(nullptr);
        return result;
    }

    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    std::vector<char*> argv;
    std::vector<char*> envp;
};

// What a program gets of the server: descriptors 0 to 2 only, no blocked
// signal and every signal's default action. The server blocks its stop
// signals in every thread to take them in one place; a program that kept them
// blocked could not be stopped but by SIGKILL.
struct SpawnSettings {
    SpawnSettings()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSettings()
    {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnSettings(SpawnSettings const&) = delete;
    SpawnSettings& operator=(SpawnSettings const&) = delete;

    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

} // namespace

std::string HWPApplicationFactory::createApplication(std::string const& name, std::string const& hostname,
                                                     std::string const& parameters)
{
    ExecPlan plan(name, hostname, parameters);
    pid_t pid = 0;
    // The child shares this process's memory until its exec, which it reports:
    // no copy of the server's address space, and no pipe for the exec's outcome.
    // It gets no descriptor but 0 to 2: the bus's sockets are not close-on-exec,
    // and a child holding the server's listening sockets would keep them after
    // the server's end, for clients to wait on.
    SpawnSettings const settings;
    int const failure = posix_spawnp(&pid, name.c_str(), &settings.actions, &settings.attributes, plan.argv.data(),
                                     plan.envp.data());
    if (failure == EAGAIN || failure == ENOMEM) {
        VLOG(DebugLevelError, "an error occurred with fork (%s)", strerror(failure));
        return std::string();
    }
    if (failure != 0) {
        VLOG(DebugLevelError, "an error occurred with execlp (%s)", strerror(failure));
        VLOG(DebugLevelError, "failure creating %s with %s", name.c_str(), parameters.c_str());
        return std::string();
    }
    return std::to_string(pid);
}

namespace {

std::string endOf(int status)
{
    if (WIFSIGNALED(status))
        return "signal " + std::to_string(WTERMSIG(status)) + " (" + ::strsignal(WTERMSIG(status)) + ")";
    return "exit status " + std::to_string(WEXITSTATUS(status));
}

// One step of the wait for a process to end: up to `milliseconds`, over as
// soon as the process behind `pidfd` has ended, so that the manager's commands
// do not wait out the rest of the step. Without a pidfd, or on a test clock,
// the step is a plain delay, except after SIGKILL: a killed process ends in
// real time, which a test clock that a test moves on must not outrun.
void awaitEnd(FileDescriptor const& pidfd, unsigned int milliseconds, bool killed)
{
    if (!pidfd.valid() || (OS_TestClockActive() && !killed)) {
        OS_TaskDelayMsec(milliseconds);
        return;
    }
    pollfd ended{pidfd.get(), POLLIN, 0};
    ::poll(&ended, 1, static_cast<int>(milliseconds));
}

} // namespace

std::string HWPApplicationFactory::destroyApplication(std::string const& pidText, bool forceful)
{
    pid_t pid = 0;
    std::istringstream(pidText) >> pid;
    if (pid <= 0) {
        // Never signal a process group or every process: only a real pid goes on.
        VLOG(DebugLevelError, "waitpid failed %s", "(invalid pid)");
        throwException(MODULE, __LINE__, "destroyApplication", ReturnGenericFailure);
    }
    FileDescriptor const pidfd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    pid_t result = -1;
    int status = 0;
    unsigned int start = OS_GetTicks();
    for (;;) {
        if (result == pid)
            return endOf(status);
        if (forceful)
            kill(pid, SIGKILL);
        result = waitpid(pid, &status, WNOHANG);
        if (result < 0) {
            VLOG(DebugLevelError, "waitpid failed %s", strerror(errno));
            throwException(MODULE, __LINE__, "destroyApplication", ReturnGenericFailure);
        }
        if (result != 0)
            continue;
        if (OS_GetTicks() - start <= terminationTimeout) {
            awaitEnd(pidfd, 500, forceful);
            continue;
        }
        if (forceful) {
            VLOG(DebugLevelError, "forceful kill failed");
            throwException(MODULE, __LINE__, "destroyApplication", ReturnGenericFailure);
        }
        VLOG(DebugLevelInfo, "triggering a forceful kill");
        forceful = true;
        start = OS_GetTicks();
    }
}

} // namespace Velmora
