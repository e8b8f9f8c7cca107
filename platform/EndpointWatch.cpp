#include "EndpointWatch.h"

#include "rpc/RuntimeDirectory.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/inotify.h>

namespace Velmora {

EndpointWatch::EndpointWatch(std::string const& endpoint)
    : socketName(endpoint + ".sock"), watch(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    // A listener is linked into place, a stale one renamed over: both count.
    if (watch.valid() &&
        ::inotify_add_watch(watch.get(), RuntimeDirectory::path().c_str(), IN_CREATE | IN_MOVED_TO) < 0)
        watch.reset();
}

EndpointWatch::Result EndpointWatch::await(int timeoutMs, int stopFd)
{
    if (!valid())
        return Result::Failed;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        int left = -1;
        if (timeoutMs >= 0) {
            auto const remaining = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            left = static_cast<int>(std::max<long long>(remaining.count(), 0));
        }
        pollfd waits[] = {{watch.get(), POLLIN, 0}, {stopFd, POLLIN, 0}};
        int const ready = ::poll(waits, stopFd >= 0 ? 2 : 1, left);
        if (ready < 0 && errno != EINTR)
            return Result::Failed;
        if (stopFd >= 0 && waits[1].revents != 0)
            return Result::Stopped;
        if (waits[0].revents != 0 && drainNamesSocket())
            return Result::Appeared;
        if (ready == 0)
            return Result::TimedOut;
    }
}

bool EndpointWatch::drainNamesSocket()
{
    bool named = false;
    alignas(inotify_event) char buffer[4096];
    for (ssize_t length; (length = ::read(watch.get(), buffer, sizeof buffer)) > 0;)
        for (ssize_t offset = 0; offset < length;) {
            auto const* event = reinterpret_cast<inotify_event const*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            named = named || (event->len > 0 && socketName == event->name);
        }
    return named;
}

} // namespace Velmora
