#include "ChildProcess.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "ChildProcess";

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

} // namespace

ChildProcess::ChildProcess(std::string const& path, std::vector<std::string> environment)
{
    std::vector<std::string> arguments{path};
    std::vector<char*> const argv = pointers(arguments);
    std::vector<char*> const envp = pointers(environment);
    pid_t const parent = ::getpid();
    pid = ::fork();
    if (pid < 0) {
        VLOG(DebugLevelError, "cannot fork for %s (%s)\n", path.c_str(), std::strerror(errno));
        throwException(MODULE, __LINE__, "ChildProcess", ReturnGenericFailure);
    }
    if (pid > 0)
        return;
    // Only async-signal-safe calls from here on.
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) // the slave ended before the request took hold
        ::_exit(127);
    // The slave's bus sockets are not close-on-exec: a program keeps none of them.
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    ::execve(path.c_str(), argv.data(), envp.data());
    ::_exit(127);
}

ChildProcess::~ChildProcess()
{
    std::lock_guard lock(mutex);
    if (gone)
        return;
    ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR)
        ;
}

void ChildProcess::signal(int signal)
{
    std::lock_guard lock(mutex);
    if (!gone)
        ::kill(pid, signal);
}

bool ChildProcess::reap()
{
    std::lock_guard lock(mutex);
    int status = 0;
    if (!gone && ::waitpid(pid, &status, WNOHANG) == pid)
        gone = true;
    return gone;
}

} // namespace Velmora
