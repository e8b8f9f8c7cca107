#include "ProcessWatcher.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sys/epoll.h>
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
    : onEnd(std::move(onEnd)), stop(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), epoll(::epoll_create1(EPOLL_CLOEXEC))
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = stop.get();
    if (!stop.valid() || !epoll.valid() || ::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, stop.get(), &event) != 0)
        throwException(MODULE, __LINE__, "ProcessWatcher", ReturnGenericFailure);
    watcher = std::thread([this] {
        pthread_setname_np(pthread_self(), "ProcessWatcher");
        run();
    });
}

ProcessWatcher::~ProcessWatcher()
{
    uint64_t const one = 1;
    [[maybe_unused]] ssize_t const written = ::write(stop.get(), &one, sizeof(one));
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
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd.get();
    int const key = fd.get();
    std::lock_guard lock(mutex);
    // In the table before the set: an end reported at once finds its watch.
    watches[key] = {std::move(fd), uid, pid};
    if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, key, &event) == 0)
        return true;
    watches.erase(key);
    return false;
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

void ProcessWatcher::run()
{
    for (;;) {
        epoll_event events[16];
        int const count = ::epoll_wait(epoll.get(), events, 16, -1);
        if (count < 0 && errno != EINTR)
            return;
        std::vector<Watch> ended;
        {
            std::lock_guard lock(mutex);
            for (int i = 0; i < count; ++i) {
                if (events[i].data.fd == stop.get())
                    return;
                auto const found = watches.find(events[i].data.fd);
                if (found == watches.end())
                    continue;
                ended.push_back(std::move(found->second)); // its pidfd leaves the set when closed
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
