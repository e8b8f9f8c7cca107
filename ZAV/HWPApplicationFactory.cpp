#include "HWPApplicationFactory.h"

#include "DebugPrint.h"
#include "Exception.h"
#include "OSTime.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <sstream>
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

std::string HWPApplicationFactory::createApplication(std::string const& name, std::string const& hostname,
                                                     std::string const& parameters)
{
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC) != 0) {
        VLOG(DebugLevelError, "an error occurred with pipe (%s)", strerror(errno));
        return std::string();
    }
    pid_t pid = fork();
    if (pid == -1) {
        // The two descriptors stay open on this path, as the design accepts.
        VLOG(DebugLevelError, "an error occurred with fork (%s)", strerror(errno));
        return std::string();
    }
    if (pid == 0) {
        close(pipeEnds[0]);
        setenv("VELMORA_APP_HOSTNAME", hostname.c_str(), 1);
        setenv("VELMORA_APP_PARAMETERS", parameters.c_str(), 1);
        execlp(name.c_str(), name.c_str(), "", static_cast<char*>(nullptr));
        VLOG(DebugLevelError, "an error occurred with execlp (%s)", strerror(errno));
        char failed = 0;
        ssize_t ignored = write(pipeEnds[1], &failed, 1);
        (void)ignored;
        close(pipeEnds[1]);
        _exit(1);
    }
    close(pipeEnds[1]);
    char outcome = 1;
    ssize_t got;
    do {
        got = read(pipeEnds[0], &outcome, 1);
    } while (got < 0 && errno == EINTR);
    std::string result;
    if (got == 1 && outcome != 1) {
        VLOG(DebugLevelError, "failure creating %s with %s", name.c_str(), parameters.c_str());
        int status;
        waitpid(pid, &status, 0);
    } else {
        std::ostringstream text;
        text << pid;
        result = text.str();
    }
    close(pipeEnds[0]);
    return result;
}

void HWPApplicationFactory::destroyApplication(std::string const& pidText, bool forceful)
{
    pid_t pid = 0;
    std::istringstream(pidText) >> pid;
    if (pid <= 0) {
        // Never signal a process group or every process: only a real pid goes on.
        VLOG(DebugLevelError, "waitpid failed %s", "(invalid pid)");
        throwException(MODULE, __LINE__, "destroyApplication", ReturnGenericFailure);
    }
    pid_t result = -1;
    unsigned int start = OS_GetTicks();
    for (;;) {
        if (result == pid)
            return;
        if (forceful)
            kill(pid, SIGKILL);
        int status;
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
