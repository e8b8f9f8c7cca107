#include "AndroidSlave.h"

#include "frame/DebugPrint.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>

namespace Velmora {

static char const MODULE[] = "AndroidSlave";

namespace {

sigset_t handledSignals()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGTERM);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGCHLD);
    return signals;
}

sigset_t childSignal()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGCHLD);
    return signals;
}

// An ended child, not reaped yet: its pid, 0 when none has ended, -1 when there are no children.
pid_t endedChild()
{
    siginfo_t info{};
    if (::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) < 0)
        return errno == ECHILD ? -1 : 0;
    return info.si_pid;
}

} // namespace

void AndroidSlave::blockSignals()
{
    sigset_t const signals = handledSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

AndroidSlave::AndroidSlave(std::string const& name, unsigned int count, std::string const& defaultProgram)
{
    for (unsigned int i = 0; i < count; ++i)
        sessions.push_back(std::make_unique<SlaveSession>(name + std::to_string(i), defaultProgram));
}

AndroidSlave::~AndroidSlave() = default;

void AndroidSlave::init()
{
    for (auto const& session : sessions) {
        session->init();
        VLOG(DebugLevelNotice, "serving %s\n", session->getName().c_str());
    }
}

void AndroidSlave::run()
{
    sigset_t const signals = handledSignals();
    for (;;) {
        int const signal = ::sigwaitinfo(&signals, nullptr);
        if (signal == SIGCHLD)
            reapChildren();
        else if (signal == SIGTERM || signal == SIGINT)
            break;
    }
    stop();
}

void AndroidSlave::reapChildren()
{
    for (pid_t pid = endedChild(); pid > 0; pid = endedChild()) {
        bool claimed = false;
        for (auto const& session : sessions)
            if ((claimed = session->childEnded(pid)))
                break;
        if (!claimed) {
            int status = 0;
            ::waitpid(pid, &status, WNOHANG);
        }
    }
}

bool AndroidSlave::reapAllUntil(std::chrono::steady_clock::time_point deadline)
{
    sigset_t const signals = childSignal();
    for (;;) {
        reapChildren();
        if (endedChild() < 0)
            return true;
        auto const left = deadline - std::chrono::steady_clock::now();
        if (left <= std::chrono::steady_clock::duration::zero())
            return false;
        auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        auto const nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds);
        timespec const wait{static_cast<time_t>(seconds.count()), static_cast<long>(nanoseconds.count())};
        ::sigtimedwait(&signals, nullptr, &wait);
    }
}

void AndroidSlave::stop()
{
    VLOG(DebugLevelNotice, "ending\n");
    sd_notify(0, "STOPPING=1");
    for (auto const& session : sessions)
        session->stopApplications();
    if (!reapAllUntil(std::chrono::steady_clock::now() + STOP_GRACE)) {
        VLOG(DebugLevelError, "applications outlived the end of the slave, killed\n");
        for (auto const& session : sessions)
            session->killApplications();
        reapAllUntil(std::chrono::steady_clock::now() + STOP_GRACE);
    }
    // Their connections close just after the processes: the last reports reach the master first.
    for (auto const& session : sessions)
        session->awaitNoApplications(std::chrono::seconds(1));
    for (auto const& session : sessions)
        session->shutdown();
}

} // namespace Velmora
