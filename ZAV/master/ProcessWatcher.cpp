#include "ProcessWatcher.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <cerrno>
#include <cstdlib>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

namespace Velmora {

static char const MODULE[] = "ProcessWatcher";

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
    char* end = nullptr;
    long const number = std::strtol(pid.c_str(), &end, 10);
    if (pid.empty() || *end != '\0' || number <= 0)
        return false;
    FileDescriptor fd(static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(number), 0)));
    if (!fd.valid())
        return false;
    // Only our own children: their end is ours to notice, and pids of others may be reused.
    siginfo_t info{};
    if (::waitid(P_PIDFD, static_cast<id_t>(fd.get()), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return false;
    {
        std::lock_guard lock(mutex);
        int const key = fd.get();
        watches[key] = {std::move(fd), uid};
    }
    wake();
    return true;
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
        std::vector<std::string> ended;
        {
            std::lock_guard lock(mutex);
            for (pollfd const& entry : polled) {
                if (entry.fd == wakeup.get() || entry.revents == 0)
                    continue;
                auto const found = watches.find(entry.fd);
                if (found == watches.end())
                    continue;
                ended.push_back(found->second.second);
                watches.erase(found);
            }
        }
        for (std::string const& uid : ended) {
            VLOG(DebugLevelInfo, "process of %s ended\n", uid.c_str());
            runLoggingExceptions(MODULE, __LINE__, "run", [&] { onEnd(uid); });
        }
    }
}

} // namespace Velmora
