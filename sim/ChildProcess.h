// One program that the Android slave runs, tied to the slave's life: the
// child asks the kernel for SIGKILL when the thread that forked it ends
// (PR_SET_PDEATHSIG), so a slave that is killed outright leaves no program
// behind. The fork comes from an endpoint's worker thread, and those threads
// live until the endpoint shuts down, which the slave does only after its
// programs have ended. Arguments and environment are built before the fork,
// so the child of this threaded process only makes async-signal-safe calls.
// The program gets descriptors 0 to 2 only, none of the slave's sockets.
//
// The slave's signal loop learns of an ended child without reaping it and
// hands its pid to reap(), so a pid is never freed while its object may still
// signal it; a process still running when its object goes is killed and
// reaped by the destructor, so no process outlives its owner.
// Threads: any; signal(), reap() and the destructor exclude each other.
#pragma once

#include <mutex>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Velmora {

class ChildProcess {
public:
    // Starts the program at `path` (argv {path}) with `environment`
    // ("NAME=value" entries) and every signal unblocked; throws Exception
    // when it cannot fork. A failed exec ends the child with status 127.
    ChildProcess(std::string const& path, std::vector<std::string> environment);
    ~ChildProcess();
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    pid_t getPid() const { return pid; }
    // Sends `signal` unless the process has been reaped (its pid may be reused).
    void signal(int signal);
    // Takes the exit status if the process has ended; true once it is reaped.
    bool reap();

private:
    pid_t pid = -1;
    std::mutex mutex;
    bool gone = false;
};

} // namespace Velmora
