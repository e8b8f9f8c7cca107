#include "FSMonitor.h"

#include "frame/DebugPrint.h"
#include "Packager.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/inotify.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "Packager";

FSMonitor::FSMonitor(Packager& packager)
    : ActiveObject("FSMonitor"), packager(packager), wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
}

FSMonitor::~FSMonitor()
{
    exit();
    if (wakeFd >= 0)
        close(wakeFd);
}

void FSMonitor::requestStop()
{
    stopRequested = true;
    std::uint64_t one = 1;
    if (wakeFd >= 0 && write(wakeFd, &one, sizeof one) < 0)
        VLOG(DebugLevelError, "Error waking fs monitor.\n");
}

void FSMonitor::thread()
{
    int const inotifyFd = packager.getInotifyFd();
    while (!stopRequested) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(inotifyFd, &set);
        if (wakeFd >= 0)
            FD_SET(wakeFd, &set);
        timeval timeout{static_cast<time_t>(packager.getTimedManifestUpdateSec()), 0};
        int const ready = select(std::max(inotifyFd, wakeFd) + 1, &set, nullptr, nullptr, &timeout);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready < 0) {
            VLOG(DebugLevelError, "Error reading fsmonitor file descriptor.\n");
            stopRequested = true;
            continue;
        }
        if (stopRequested)
            continue;
        if (ready == 0) {
            bool const appeared = packager.watchRepository();
            if (packager.getTimedManifestUpdate() || appeared)
                refresh();
            continue;
        }
        if (readEvents())
            refresh();
    }
}

bool FSMonitor::readEvents()
{
    ssize_t const length = read(packager.getInotifyFd(), events, sizeof events);
    if (length < 0) {
        VLOG(DebugLevelError, "Error reading fs monitor file descriptor\n");
        return true;
    }
    // Any event of the repository means a refresh; those of its parent only
    // matter when the repository came (back), which a new watch tells.
    bool repositoryChanged = false;
    for (ssize_t offset = 0; offset < length;) {
        inotify_event event;
        std::memcpy(&event, events + offset, sizeof event);
        offset += static_cast<ssize_t>(sizeof event + event.len);
        repositoryChanged = repositoryChanged || event.wd != packager.getParentWatchDescriptor();
    }
    bool const appeared = packager.watchRepository();
    return repositoryChanged || appeared;
}

// A failed refresh is logged; the next event or period tries again.
void FSMonitor::refresh()
{
    runLoggingExceptions(MODULE, __LINE__, "thread", [this] {
        packager.stripLocalManifest();
        packager.updateLocalManifest();
    });
}

} // namespace Velmora
