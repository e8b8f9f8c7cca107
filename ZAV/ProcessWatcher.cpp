#include "ProcessWatcher.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

namespace Velmora {

static char const MODULE[] = "ProcessWatcher";

namespace {

// The pid of a decimal text; 0 when it is none.
pid_t pidOf(std::string const& text)
{
    char* end = nullptr;
    long const number = std::strtol(text.c_str(), &end, 10);
    return text.empty() || *end != '\0' || number <= 0 ? 0 : static_cast<pid_t>(number);
}

} // namespace

ProcessWatcher::ProcessWatcher(Callback onEnd)
    : onEnd(std::move(onEnd)), wakeup(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!wakeup.valid())
        throwException(MODULE, __LINE__, "ProcessWatcher", ReturnGenericFailure);
    watcher = std::thread([this] { run(); });
}

ProcessWatcher::~ProcessWatcher()
{
    {
        std::lock_guard lock(mutex);
        stopping = true;
    }
    wake();
    watcher.join();
}

bool ProcessWatcher::watch(std::string const& pid, std::string const& uid)
{
    pid_t const number = pidOf(pid);
    if (number == 0)
        return false;
    FileDescriptor fd(static_cast<int>(::syscall(SYS_pidfd_open, number, 0)));
    if (!fd.valid())
        return false;
    // Only our own children: their end is ours to notice, and pids of others may be reused.
    siginfo_t info{};
    if (::waitid(P_PIDFD, static_cast<id_t>(fd.get()), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return false;
    {
        std::lock_guard lock(mutex);
        int const key = fd.get();
        watches[key] = {std::move(fd), uid, pid};
    }
    wake();
    return true;
}

std::string ProcessWatcher::endOf(std::string const& pid)
{
    pid_t const number = pidOf(pid);
    siginfo_t info{};
    if (number == 0 || ::waitid(P_PID, static_cast<id_t>(number), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid != number)
        return std::string();
    if (info.si_code == CLD_EXITED)
        return "exit status " + std::to_string(info.si_status);
    return "signal " + std::to_string(info.si_status) + " (" + ::strsignal(info.si_status) + ")";
}

std::size_t ProcessWatcher::getWatchCount() const
{
    std::lock_guard lock(mutex);
    return watches.size();
}

void ProcessWatcher::wake()
{
    uint64_t const one = 1;
    [[maybe_unused]] ssize_t const written = ::write(wakeup.get(), &one, sizeof(one));
}

void ProcessWatcher::run()
{
    for (;;) {
        std::vector<pollfd> polled{{wakeup.get(), POLLIN, 0}};
        {
            std::lock_guard lock(mutex);
            if (stopping)
                return;
            for (auto const& [fd, watch] : watches)
                polled.push_back({fd, POLLIN, 0});
        }
        if (::poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR)
            return;
        uint64_t drained = 0;
        [[maybe_unused]] ssize_t const read = ::read(wakeup.get(), &drained, sizeof(drained));
        std::vector<Watch> ended;
        {
            std::lock_guard lock(mutex);
            for (pollfd const& entry : polled) {
                if (entry.fd == wakeup.get() || entry.revents == 0)
                    continue;
                auto const found = watches.find(entry.fd);
                if (found == watches.end())
                    continue;
                ended.push_back(std::move(found->second));
                watches.erase(found);
            }
        }
        for (Watch const& watch : ended) {
            VLOG(DebugLevelInfo, "process %s of %s ended\n", watch.pid.c_str(), watch.uid.c_str());
            runLoggingExceptions(MODULE, __LINE__, "run", [&] { onEnd(watch.uid, watch.pid); });
        }
    }
}

} // namespace Velmora
