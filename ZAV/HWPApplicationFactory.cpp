#include "HWPApplicationFactory.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/OSTime.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <sstream>
#include <string_view>
#include <vector>
#include <sys/resource.h>
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

// Owns a descriptor; closes it on every way out.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    int get() const { return fd; }
    void reset()
    {
        if (fd >= 0)
            close(fd);
        fd = -1;
    }

private:
    int fd;
};

// Everything the child needs, built before the fork: between fork and exec a
// child of a threaded process may only make async-signal-safe calls (no
// malloc, no locks), so it merely walks these arrays.
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
        // As execlp searches: a name with a slash is a path, else each PATH entry in turn.
        if (name.find('/') != std::string::npos) {
            candidates.push_back(name);
        } else {
            char const* path = std::getenv("PATH");
            std::string_view rest = path ? path : "/bin:/usr/bin";
            for (;;) {
                std::size_t const colon = rest.find(':');
                std::string_view const directory = rest.substr(0, colon);
                candidates.push_back((directory.empty() ? std::string(".") : std::string(directory)) + "/" + name);
                if (colon == std::string_view::npos)
                    break;
                rest.remove_prefix(colon + 1);
            }
        }
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

    // In the child: tries each candidate; returns the errno of the most telling failure.
    int exec() const
    {
        int failure = ENOENT;
        for (std::string const& candidate : candidates) {
            execve(candidate.c_str(), argv.data(), envp.data());
            if (errno != ENOENT && errno != ENOTDIR)
                failure = errno;
        }
        return failure;
    }

    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    std::vector<std::string> candidates;
    std::vector<char*> argv;
    std::vector<char*> envp;
};

} // namespace

std::string HWPApplicationFactory::createApplication(std::string const& name, std::string const& hostname,
                                                     std::string const& parameters)
{
    ExecPlan const plan(name, hostname, parameters);
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0) {
        VLOG(DebugLevelError, "an error occurred with pipe (%s)", strerror(errno));
        return std::string();
    }
    Descriptor readEnd(pipeEnds[0]);
    Descriptor writeEnd(pipeEnds[1]);
    pid_t const pid = fork();
    if (pid == -1) {
        VLOG(DebugLevelError, "an error occurred with fork (%s)", strerror(errno));
        return std::string();
    }
    if (pid == 0) {
        // Only async-signal-safe calls from here on: the exec, a write, _exit.
        int const failure = plan.exec();
        ssize_t ignored = write(writeEnd.get(), &failure, sizeof failure);
        (void)ignored;
        _exit(1);
    }
    writeEnd.reset();
    // The write end closes on a successful exec and nothing arrives; a failed
    // exec sends its errno.
    int failure = 0;
    ssize_t got;
    do {
        got = read(readEnd.get(), &failure, sizeof failure);
    } while (got < 0 && errno == EINTR);
    if (got == static_cast<ssize_t>(sizeof failure)) {
        VLOG(DebugLevelError, "an error occurred with execlp (%s)", strerror(failure));
        VLOG(DebugLevelError, "failure creating %s with %s", name.c_str(), parameters.c_str());
        int status;
        waitpid(pid, &status, 0);
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
            OS_TaskDelayMsec(500);
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
