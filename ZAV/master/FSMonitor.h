// The thread that keeps the manifest in step with the repository directory.
// It waits on the Packager's inotify descriptor for at most the timed-update
// period; any event of the repository (the names are not looked at) or, with
// the timed update on, the end of a period leads to one full refresh: strip,
// then update. A repository that was missing, or removed and made again, is
// watched anew when its parent tells of it (or at the end of a period), and
// refreshed then. A signal that interrupts the wait is no failure.
//
// Threads: the owner (Packager) creates it, calls init() to start the thread
// and destroys it to stop it; a private wake-up descriptor makes the stop
// prompt. The thread reads the Packager's descriptor and period, which don't
// change while a monitor exists. The Packager is not owned.
#pragma once

#include "frame/ActiveObject.h"

#include <atomic>

namespace Velmora {

class Packager;

class FSMonitor : public ActiveObject {
public:
    explicit FSMonitor(Packager& packager);
    ~FSMonitor() override;

    void thread() override;

protected:
    void requestStop() override;

private:
    // One read of the pending events; true when they call for a refresh.
    bool readEvents();
    void refresh();

    Packager& packager;
    int wakeFd;
    std::atomic<bool> stopRequested{false};
    char events[32768];
};

} // namespace Velmora
