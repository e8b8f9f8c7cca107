// Tells when a child process ends, whether or not it said goodbye: a service
// that is killed or crashes before it reports must still leave the table so
// that the boot sequencer starts it again. Each watch holds a pidfd, which
// becomes readable when the process ends without reaping it (the factory
// reaps), and fires once.
//
// Threads: one watcher thread, started by the constructor and joined by the
// destructor; watch() from any thread. The callback runs on the watcher
// thread and must not block for long.
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
    using Callback = std::function<void(std::string const& uid)>;

    explicit ProcessWatcher(Callback onEnd);
    ~ProcessWatcher();
    ProcessWatcher(ProcessWatcher const&) = delete;
    ProcessWatcher& operator=(ProcessWatcher const&) = delete;

    // Watches `pid` (decimal) for `uid`; false when it is no child of this process.
    bool watch(std::string const& pid, std::string const& uid);
    std::size_t getWatchCount() const;

private:
    void run();
    void wake();

    Callback onEnd;
    mutable std::mutex mutex;
    std::map<int, std::pair<FileDescriptor, std::string>> watches; // by descriptor
    bool stopping = false;
    FileDescriptor wakeup;
    std::thread watcher;
};

} // namespace Velmora
