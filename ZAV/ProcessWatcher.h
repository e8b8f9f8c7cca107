// Tells when a child process ends, whether or not it said goodbye: a program
// that is killed or crashes must leave its manager's table at once, not when
// a later call to it fails. Each watch holds a pidfd, which becomes readable
// when the process ends without reaping it (the factory reaps), and fires once.
// The pidfds sit in one epoll set, so that a new watch joins the set without
// waking the watcher.
//
// Threads: one watcher thread, started by the constructor and joined by the
// destructor; watch() from any thread. The callback runs on the watcher
// thread and must not block for long (its owner queues a command).
#pragma once

#include "FileDescriptor.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace Velmora {

class ProcessWatcher {
public:
    using Callback = std::function<void(std::string const& uid, std::string const& pid)>;

    explicit ProcessWatcher(Callback onEnd);
    ~ProcessWatcher();
    ProcessWatcher(ProcessWatcher const&) = delete;
    ProcessWatcher& operator=(ProcessWatcher const&) = delete;

    // Watches `pid` (decimal) for `uid`; false when it is no child of this process.
    bool watch(std::string const& pid, std::string const& uid);
    std::size_t getWatchCount() const;

    // How the child `pid` ended ("exit status 0", "signal 9 (Killed)") while it
    // waits to be reaped; empty while it runs, or when it is no child of ours.
    // Leaves it to the reaper.
    static std::string endOf(std::string const& pid);

private:
    struct Watch {
        FileDescriptor pidfd;
        std::string uid;
        std::string pid;
    };

    void run();

    Callback onEnd;
    mutable std::mutex mutex;
    std::map<int, Watch> watches; // by descriptor
    FileDescriptor stop; // readable when the watcher is to end
    FileDescriptor epoll;
    std::thread watcher;
};

} // namespace Velmora
